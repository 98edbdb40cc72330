#include "ui/descriptionrows.h"

#include "widgets/simplemarkup.h"
#include "widgets/tooltips.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kItemPadding = 6; // of the style sheet
constexpr int kFileHeight = 23;
constexpr int kFileMargin = 10;
constexpr int kFileSpacing = 6;
constexpr int kPhraseHeight = 15;
constexpr int kPhraseWidth = 180;
constexpr int kCountWidth = 90;
constexpr int kPhraseSpacing = 8;
constexpr float kUnitStep = 1024.0F;

QString shownName(const Attachment &file)
{
    return file.filenameOrig.isEmpty() ? file.filename : file.filenameOrig;
}

QString sizeOf(const Attachment &file)
{
    return sizeText(file.size.toFloat());
}

QString exactWords(const Keyword &phrase)
{
    return QStringLiteral("Точн. ") + titleLine(phrase.count);
}

QString inexactWords(const Keyword &phrase)
{
    return QStringLiteral("Неточн. ") + titleLine(phrase.count2);
}

} // namespace

QVariant fileItem(const Attachment &file, int role)
{
    switch (role) {
    case Qt::AccessibleTextRole:
        return QString(titleLine(shownName(file)) + QStringLiteral(", ") + sizeOf(file));
    case SizeRole:
        return sizeOf(file);
    default:
        return titleData(shownName(file), role);
    }
}

QVariant phraseItem(const Keyword &phrase, int role)
{
    switch (role) {
    case Qt::AccessibleTextRole:
        return QString(titleLine(phrase.keyword) + QStringLiteral(", ") + exactWords(phrase)
                       + QStringLiteral(", ") + inexactWords(phrase));
    case ExactRole:
        return exactWords(phrase);
    case InexactRole:
        return inexactWords(phrase);
    default:
        return titleData(phrase.keyword, role);
    }
}

QVariant textItem(const TextTask &textTask, int role)
{
    return role == Qt::UserRole ? QVariant::fromValue(textTask) : titleData(textTask.title, role);
}

QString sizeText(float bytes)
{
    static const QStringList units{QStringLiteral("B"), QStringLiteral("KB"), QStringLiteral("MB"),
                                   QStringLiteral("GB"), QStringLiteral("TB")};
    float value = std::isfinite(bytes) ? bytes : 0.0F;
    int unit = 0;
    while (value >= kUnitStep && unit + 1 < units.size()) {
        value /= kUnitStep;
        ++unit;
    }
    return QString::number(static_cast<double>(value), 'f', 2) + QLatin1Char(' ') + units.at(unit);
}

FileRowDelegate::FileRowDelegate(const QPixmap &icon, QObject *parent)
    : RowDelegate(parent)
    , m_icon(icon)
{ }

QRect FileRowDelegate::sizeRect(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QRect row = option.rect.adjusted(kItemPadding + kFileMargin, 0, -kItemPadding - kFileMargin, 0);
    const int width = option.fontMetrics.horizontalAdvance(index.data(SizeRole).toString());
    return QRect(row.right() + 1 - width, row.top(), width, row.height());
}

QRect FileRowDelegate::titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QRect place = option.rect;
    place.setLeft(place.left() + kItemPadding + kFileMargin + iconSize().width() + kFileSpacing);
    place.setRight(sizeRect(option, index).left() - kFileSpacing - 1);
    return place;
}

void FileRowDelegate::drawRow(QPainter *painter, const QStyleOptionViewItem &row,
                              const QModelIndex &index) const
{
    QRect icon(QPoint(), iconSize());
    icon.moveCenter(row.rect.center());
    icon.moveLeft(row.rect.left() + kItemPadding + kFileMargin);
    painter->drawPixmap(icon, m_icon);
    drawTitle(painter, row, index);
    drawText(painter, sizeRect(row, index), index.data(SizeRole).toString());
}

int FileRowDelegate::rowHeight(const QStyleOptionViewItem &option) const
{
    Q_UNUSED(option)
    return kFileHeight;
}

QRect PhraseRowDelegate::titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    Q_UNUSED(index)
    return QRect(option.rect.left() + kItemPadding, option.rect.top(), kPhraseWidth, option.rect.height());
}

void PhraseRowDelegate::drawRow(QPainter *painter, const QStyleOptionViewItem &row,
                                const QModelIndex &index) const
{
    drawTitle(painter, row, index);
    QRect place = titleRect(row, index);
    for (const int role : {int(ExactRole), int(InexactRole)}) {
        const QString count = index.data(role).toString();
        place.moveLeft(place.right() + 1 + kPhraseSpacing);
        place.setWidth(std::min(kCountWidth, row.fontMetrics.horizontalAdvance(count)));
        drawText(painter, place, count);
    }
}

int PhraseRowDelegate::rowHeight(const QStyleOptionViewItem &option) const
{
    Q_UNUSED(option)
    return kPhraseHeight;
}
