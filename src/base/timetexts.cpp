#include "base/timetexts.h"

#include <QLocale>

namespace {

constexpr int kSecondsPerDay = 24 * 60 * 60;
constexpr int kNewReport = 30; // seconds

// The Russian forms for 1, for 2 to 4 and for the others.
QString counted(int count, const QString &one, const QString &few, const QString &many)
{
    const int lastTwo = count % 100;
    const int last = count % 10;
    if (last == 0 || last > 4 || (lastTwo > 10 && lastTwo < 20))
        return many;
    return last == 1 ? one : few;
}

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
    QString minutes = QString::number(duration.minute()) + QStringLiteral("мин");
    if (duration.hour() == 0)
        return minutes;
    return QString::number(duration.hour()) + QStringLiteral("ч. ") + minutes;
}

QString backlogText(int count, const QDateTime &oldest, const QDateTime &now)
{
    if (count == 0 || (count == 1 && qAbs(oldest.secsTo(now)) < kNewReport))
        return QString();
    const QString since = QLocale::c().toString(
        oldest, oldest.date() == now.date() ? QStringLiteral("hh:mm") : QStringLiteral("dd.MM hh:mm"));
    return QString::number(count) + QLatin1Char(' ')
        + counted(count, QStringLiteral("отчёт ждёт"), QStringLiteral("отчёта ждут"),
                  QStringLiteral("отчётов ждут"))
        + QStringLiteral(" отправки с ") + since;
}
