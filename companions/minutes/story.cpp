#include "minutes/story.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTime>

#include <utility>

namespace minutes {

namespace {

constexpr int kSecondsOfSlice = 6;
constexpr int kSecondsOfMinute = 60;
constexpr int kLongestMinute = 90; // s, on a machine that is busy
constexpr int kDateAndTime = 19; // characters of a moment without its offset
constexpr int kUnnoticed = 10; // s from the program's start to the timer's that are no gap

QString text(const QJsonObject &values, const char *key)
{
    return values.value(QLatin1String(key)).toString();
}

// "[from,to]" of a counter as minutes that it grew by, and in words when it changed.
int growth(const QJsonObject &values, const char *key, const QString &name, QStringList *words)
{
    const QJsonArray pair = values.value(QLatin1String(key)).toArray();
    const QString from = pair.at(0).toString();
    const QString to = pair.at(1).toString();
    if (from != to)
        words->append(name + QLatin1Char(' ') + from + QStringLiteral(" → ") + to);
    const QString format = QStringLiteral("HH:mm:ss");
    return QTime::fromString(from, format).secsTo(QTime::fromString(to, format)) / kSecondsOfMinute;
}

} // namespace

QDateTime momentOf(const QJsonObject &values)
{
    return QDateTime::fromString(text(values, "at"), Qt::ISODate);
}

QDate dayOf(const QJsonObject &values)
{
    const QDate day = QDate::fromString(text(values, "day"), Qt::ISODate);
    return day.isValid() ? day : momentOf(values).date();
}

void Story::note(const Note &note)
{
    const QDate end = note.to.isValid() ? note.to.date() : m_period.to;
    if (note.from.date() <= m_period.to && end >= m_period.from)
        minutes::add(m_notes, note);
}

void Story::enter(Phase phase, const QDateTime &at)
{
    m_phase = phase;
    m_since = at;
    m_dropped.clear();
}

void Story::addGap(const QDateTime &until, bool isOver)
{
    const bool isShort =
        m_reason == Note::Kind::Stopped && m_dropped.isNull() && m_since.secsTo(until) < kUnnoticed;
    if (m_phase == Phase::Closed || (m_phase == Phase::Stopped && !(isOver && isShort)))
        note({m_reason, m_since, isOver ? until : QDateTime(), m_dropped});
}

void Story::addDamage(const QDateTime &until)
{
    if (m_damagedCount > 0)
        note({Note::Kind::Damaged, m_last.isValid() ? m_last : until, until, m_damaged, m_damagedCount});
    if (std::exchange(m_damagedCount, 0) > 0)
        m_lastMinute = QDateTime();
}

void Story::addMinute(const QDateTime &at, const QJsonObject &values)
{
    if (const QString login = text(values, "login"); login != m_login) {
        note({Note::Kind::OtherLogin, at, at, login});
        return;
    }
    if (m_phase != Phase::Running)
        enter(Phase::Running, at);
    if (m_lastMinute.isValid() && m_lastMinute.secsTo(at) > kLongestMinute)
        note({Note::Kind::Stalled, m_lastMinute, at});
    const QDate day = dayOf(values);
    if (m_lastDay.isValid() && m_lastDay < day) {
        const QDateTime midnight(day, QTime(0, 0), Qt::OffsetFromUTC, at.offsetFromUtc());
        note({Note::Kind::Midnight, midnight, midnight});
    }
    m_lastMinute = at;
    m_lastDay = day;
}

void Story::addCorrection(Note::Kind kind, const QDateTime &at, const QJsonObject &values)
{
    QStringList words;
    const int work = growth(values, "workTime", QStringLiteral("рабочее"), &words);
    const int active = growth(values, "activeTime", QStringLiteral("активное"), &words);
    if (words.isEmpty())
        return;
    note({kind, at, at, words.join(QStringLiteral(", "))});
    const QDate day = dayOf(values);
    if (kind == Note::Kind::Corrected && m_period.contains(day)) {
        m_corrections[day].work += work;
        m_corrections[day].active += active;
    }
}

void Story::add(const JournalReader::Line &line, const QString &file)
{
    if (line.state != JournalReader::State::Whole) {
        // What has no end may be on its way to the disk.
        if (line.isEnded && ++m_damagedCount == 1)
            m_damaged = QStringLiteral("%1, строка %2").arg(file).arg(line.line);
        return;
    }
    const QDateTime at = momentOf(line.values);
    if (!at.isValid())
        return;
    const QString &event = line.event;
    const auto is = [&event](const char *name) { return event == QLatin1String(name); };
    const auto slices = [&line] {
        const int seconds = line.values.value(QLatin1String("slices")).toInt() * kSecondsOfSlice;
        return seconds > 0 ? QStringLiteral(", отброшено секунд: %1").arg(seconds) : QStringLiteral("");
    };
    // A fragment that is accounted for is no damage.
    if (is("torn") && m_damagedCount > 0)
        --m_damagedCount;
    addDamage(at);
    const QDateTime before = m_last;
    // These are written before the next run is opened.
    if (!is("counters") && !is("gap") && !is("torn"))
        m_last = at;

    if (is("minute")) {
        addMinute(at, line.values);
    } else if (is("opened")) {
        const bool wasRunning = m_phase == Phase::Running;
        const bool wasKilled = wasRunning || m_phase == Phase::Stopped;
        addGap(wasKilled ? before : at);
        if (wasKilled)
            note({Note::Kind::Killed, before, at,
                  wasRunning ? QStringLiteral(", незаконченная минута не засчитана") : QString()});
        enter(Phase::Stopped, at);
        m_reason = Note::Kind::Stopped;
        m_lastMinute = QDateTime();
        m_lastDay = QDate();
    } else if (is("start")) {
        addGap(at);
        enter(Phase::Running, at);
        m_lastMinute = at;
        m_lastDay = at.date();
    } else if (is("stop") || is("closed")) {
        const bool isClosed = is("closed");
        if (m_phase == Phase::Stopped)
            addGap(at);
        enter(isClosed ? Phase::Closed : Phase::Stopped, at);
        m_reason = !isClosed                                           ? Note::Kind::Stopped
            : text(line.values, "reason") == QLatin1String("sign-out") ? Note::Kind::SignedOut
                                                                       : Note::Kind::Closed;
        m_dropped = slices();
        m_lastMinute = QDateTime();
        m_lastDay = QDate();
    } else if (is("sleep")) {
        note({Note::Kind::Slept, at.addSecs(-line.values.value(QLatin1String("seconds")).toInt()), at});
        m_lastMinute = QDateTime();
    } else if (is("clock")) {
        const auto moment = [&line](const char *key) {
            return text(line.values, key).left(kDateAndTime).replace(QLatin1Char('T'), QLatin1Char(' '));
        };
        const QString moments = moment("from") + QStringLiteral(" → ") + moment("to");
        note({Note::Kind::ClockSet, at, at, moments});
        m_lastMinute = QDateTime();
    } else if (is("gap")) {
        QStringList words;
        if (const int lines = line.values.value(QLatin1String("lines")).toInt(); lines > 0)
            words.append(QString::number(lines));
        growth(line.values, "workTime", QStringLiteral("рабочее время по журналу и по программе"), &words);
        growth(line.values, "activeTime", QStringLiteral("активное"), &words);
        note({Note::Kind::Gap, before.isValid() ? before : at, at, words.join(QStringLiteral(", "))});
        m_lastMinute = QDateTime();
    } else if (is("corrected") || is("counters")) {
        addCorrection(is("corrected") ? Note::Kind::Corrected : Note::Kind::Counters, at, line.values);
    } else if (is("refused") || is("screenshot-refused")) {
        note({is("refused") ? Note::Kind::Refused : Note::Kind::ScreenshotRefused, at, at,
              text(line.values, "answer")});
    } else if (is("torn")) {
        note({Note::Kind::Torn, before.isValid() ? before : at, at,
              QString::number(line.values.value(QLatin1String("bytes")).toInt())});
    }
}

void Story::finish(const QDateTime &now)
{
    addDamage(m_last.isValid() ? m_last : now);
    if (m_phase == Phase::Running && m_last.secsTo(now) > kLongestMinute)
        note({Note::Kind::Silent, m_last, QDateTime()});
    else
        addGap(now, false);
}

} // namespace minutes
