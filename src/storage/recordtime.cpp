#include "storage/recordtime.h"

#include <QLocale>

namespace {

const QString kFormat = QStringLiteral("dd-MM-yyyy-hh-mm-ss");

} // namespace

QString recordTimeText(const QDateTime &time)
{
    return QLocale::c().toString(time, kFormat);
}

// Qt takes longer to parse a format than everything else that is done with a record, so
// it gets only what this program does not write. Older clients wrote the digits of the
// user's language.
QDateTime recordTime(const QString &text)
{
    bool isPlain = text.size() == kFormat.size();
    for (int i = 0; isPlain && i < text.size(); ++i) {
        const QChar c = text.at(i);
        isPlain = kFormat.at(i) == QLatin1Char('-') ? c == QLatin1Char('-') : c.digitValue() >= 0;
    }
    if (!isPlain)
        return QDateTime::fromString(text, kFormat);
    const auto number = [&text](int at, int length) {
        int value = 0;
        for (int i = at; i < at + length; ++i)
            value = value * 10 + text.at(i).digitValue();
        return value;
    };
    const QDate day(number(6, 4), number(3, 2), number(0, 2));
    const QTime hour(number(11, 2), number(14, 2), number(17, 2));
    return day.isValid() && hour.isValid() ? QDateTime(day, hour) : QDateTime();
}
