#include "ui/elidedcombobox.h"

#include <QAbstractItemView>
#include <QScrollBar>
#include <QStylePainter>
#include <QStyledItemDelegate>

#include <algorithm>

namespace {

constexpr int kWidestList = 560;
constexpr int kAroundIcon = 4; // what styles leave between icon and text
constexpr int kAroundText = 4;

} // namespace

ElidedComboBox::ElidedComboBox(QWidget *parent)
    : QComboBox(parent)
{
    // Rows of the box's own delegate do not follow the style sheet.
    setItemDelegate(new QStyledItemDelegate(this));
}

void ElidedComboBox::showPopup()
{
    const int wanted = view()->sizeHintForColumn(0) + view()->verticalScrollBar()->sizeHint().width();
    view()->setMinimumWidth(std::clamp(wanted, 0, kWidestList));
    QComboBox::showPopup();
}

void ElidedComboBox::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QStylePainter painter(this);
    painter.setPen(palette().color(QPalette::Text));
    QStyleOptionComboBox option;
    initStyleOption(&option);
    painter.drawComplexControl(QStyle::CC_ComboBox, option);
    int width =
        style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this).width()
        - kAroundText;
    if (!option.currentIcon.isNull())
        width -= option.iconSize.width() + kAroundIcon;
    if (currentIndex() < 0)
        option.currentText = placeholderText();
    option.currentText = fontMetrics().elidedText(option.currentText, Qt::ElideRight, width);
    painter.drawControl(QStyle::CE_ComboBoxLabel, option);
}
