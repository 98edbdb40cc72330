#include "widgets/elidedcombobox.h"

#include <QListView>
#include <QScrollBar>
#include <QStylePainter>
#include <QStyledItemDelegate>

#include <algorithm>

namespace {

constexpr int kWidestList = 560;
constexpr int kAroundIcon = 4; // what styles leave between icon and text
constexpr int kAroundText = 4;
constexpr int kMeasuredTexts = 30;
constexpr int kAroundRow = 24; // paddings of the list and its rows

} // namespace

ElidedComboBox::ElidedComboBox(QWidget *parent)
    : QComboBox(parent)
{
    // Rows of the box's own delegate do not follow the style sheet.
    setItemDelegate(new QStyledItemDelegate(this));
    // One row is measured instead of thousands, and the widths are set anyhow.
    setSizeAdjustPolicy(AdjustToMinimumContentsLengthWithIcon);
    if (auto *list = qobject_cast<QListView *>(view()))
        list->setUniformItemSizes(true);
}

// Measuring a text takes long, so only those with the most characters are.
int ElidedComboBox::listWidth() const
{
    QStringList texts;
    for (int i = 0; i < count(); ++i)
        texts.append(itemText(i));
    const int measured = std::min(kMeasuredTexts, texts.size());
    std::partial_sort(texts.begin(), texts.begin() + measured, texts.end(),
                      [](const QString &one, const QString &other) { return one.size() > other.size(); });
    int widest = 0;
    for (int i = 0; i < measured; ++i)
        widest = std::max(widest, view()->fontMetrics().horizontalAdvance(texts.at(i)));
    const int aroundText = view()->verticalScrollBar()->sizeHint().width() + kAroundRow
        + (itemIcon(0).isNull() ? 0 : view()->iconSize().width() + kAroundIcon);
    return std::min(widest + aroundText, kWidestList);
}

void ElidedComboBox::showPopup()
{
    view()->setMinimumWidth(listWidth());
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
