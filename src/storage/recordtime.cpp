#include "storage/recordtime.h"

#include <QLocale>

namespace {

const QString kFormat = QStringLiteral("dd-MM-yyyy-hh-mm-ss");
constexpr qint64 kSecondsPerDay = 24 * 60 * 60;

struct Moment
{
    QDate day;
    QTime hour;
};

// Both are invalid when one of them is.
template <typename NumberAt>
Moment momentOf(NumberAt number)
{
    const QDate day(number(6, 4), number(3, 2), number(0, 2));
    const QTime hour(number(11, 2), number(14, 2), number(17, 2));
    return day.isValid() && hour.isValid() ? Moment{day, hour} : Moment();
}

bool isPlain(const char *text)
{
    for (int i = 0; i < kRecordTimeLength; ++i) {
        const bool isDash = kFormat.at(i) == QLatin1Char('-');
        if (isDash ? text[i] != '-' : text[i] < '0' || text[i] > '9')
            return false;
    }
    return true;
}

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
    const Moment moment = momentOf(number);
    return moment.day.isValid() ? QDateTime(moment.day, moment.hour) : QDateTime();
}

qint64 recordMoment(const char *text)
{
    Moment moment;
    if (isPlain(text)) {
        moment = momentOf([text](int at, int length) {
            int value = 0;
            for (int i = at; i < at + length; ++i)
                value = value * 10 + (text[i] - '0');
            return value;
        });
    } else {
        const QDateTime time = recordTime(QString::fromUtf8(text).left(kRecordTimeLength));
        moment = {time.date(), time.time()};
    }
    return moment.day.isValid()
        ? moment.day.toJulianDay() * kSecondsPerDay + moment.hour.msecsSinceStartOfDay() / 1000
        : 0;
}

QDateTime timeOfMoment(qint64 moment)
{
    const QDateTime time(QDate::fromJulianDay(moment / kSecondsPerDay),
                         QTime::fromMSecsSinceStartOfDay(static_cast<int>(moment % kSecondsPerDay) * 1000));
    return moment > 0 && time.isValid() ? time : QDateTime::fromSecsSinceEpoch(0);
}
