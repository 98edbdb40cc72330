#include "ui/timetexts.h"

namespace {

constexpr int kSecondsPerDay = 24 * 60 * 60;

} // namespace

QString overdueText(const QDateTime &deadline, const QDateTime &now)
{
    if (!deadline.isValid())
        return QString();
    qint64 days = deadline.daysTo(now);
    const int secondsToDeadline = now.time().secsTo(deadline.time());
    int remainder = -secondsToDeadline;
    if (secondsToDeadline > 0) {
        --days;
        remainder = kSecondsPerDay - secondsToDeadline;
    }
    const QTime rest = QTime(0, 0).addSecs(remainder);
    QString text;
    if (days > 0)
        text += QString::number(days) + QStringLiteral("д. ");
    if (rest.hour() > 0)
        text += QString::number(rest.hour()) + QStringLiteral("ч. ");
    if (rest.minute() > 0)
        text += QString::number(rest.minute()) + QStringLiteral(" мин.");
    return text;
}

QString durationWords(const QTime &duration)
{
    const QString minutes = duration.toString(QStringLiteral("m")) + QStringLiteral("мин");
    if (duration.hour() == 0)
        return minutes;
    return duration.toString(QStringLiteral("h")) + QStringLiteral("ч. ") + minutes;
}
