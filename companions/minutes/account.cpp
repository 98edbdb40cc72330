#include "minutes/account.h"

#include "storage/recordtime.h"

#include <QJsonObject>

#include <algorithm>

namespace minutes {

namespace {

constexpr int kOnItsWay = 10; // s from the journal's line to the record

bool takeOne(Tally &tally, const Identity &id)
{
    const auto found = tally.find(id);
    return found != tally.end() && (*found)-- > 0;
}

} // namespace

uint qHash(const Identity &id, uint seed)
{
    return ::qHash(id.record, seed) ^ ::qHash(id.teamId, seed + 1) ^ ::qHash(id.taskId, seed + 2)
        ^ uint(id.active);
}

Identity Identity::of(const QJsonObject &values)
{
    const auto text = [&values](const char *key) { return values.value(QLatin1String(key)).toString(); };
    return {text("record"), text("team"), text("task"), values.value(QLatin1String("active")).toInt()};
}

void Sum::add(const Minute &minute)
{
    ++counted;
    active += minute.id.active > 0 ? 1 : 0;
    slices += minute.id.active;
    ++(minute.fate == Minute::Fate::Accepted      ? accepted
           : minute.fate == Minute::Fate::Waiting ? waiting
                                                  : missing);
}

void Sum::add(const Sum &other)
{
    counted += other.counted;
    active += other.active;
    slices += other.slices;
    accepted += other.accepted;
    waiting += other.waiting;
    missing += other.missing;
}

void Account::add(const JournalReader::Line &line)
{
    const auto is = [&line](const char *event) { return line.event == QLatin1String(event); };
    Tally *tally = is("minute") ? &m_counted
        : is("accepted")        ? &m_accepted
        : is("restored")        ? &m_restored
                                : nullptr;
    const bool isMinute = tally == &m_counted;
    const bool isOther = isMinute && line.values.value(QLatin1String("login")).toString() != m_login;
    if (!line.isWhole() || !tally || isOther || (isMinute && m_isSettled) || m_known.contains(line.hash))
        return;
    m_known.insert(line.hash);
    const Identity id = Identity::of(line.values);
    ++(*tally)[id];
    if (!isMinute)
        return;
    const QDateTime at = momentOf(line.values);
    m_moments.insert(id, at);
    if (const QDate day = dayOf(line.values); m_period.contains(day))
        m_minutes.append({day, at, id});
}

void Account::finish(const Tally &waiting, const QDateTime &now)
{
    Tally accepted = m_accepted;
    Tally onDisk = waiting;
    for (Minute &minute : m_minutes) {
        const bool isWaiting = takeOne(onDisk, minute.id);
        // An accepted one may still have its record.
        if (takeOne(accepted, minute.id))
            minute.fate = Minute::Fate::Accepted;
        else if (isWaiting || qAbs(minute.at.secsTo(now)) < kOnItsWay)
            minute.fate = Minute::Fate::Waiting;
        else
            minutes::add(m_notes, {Note::Kind::Missing, minute.at, minute.at});
    }
    noteRest(waiting);
}

// What the minutes do not account for.
void Account::noteRest(const Tally &waiting)
{
    QVector<Note> found;
    const auto add = [&](Note::Kind kind, const Identity &id, int times, const QString &detail = QString()) {
        const QDateTime at = m_moments.value(id, recordTime(id.record));
        if (m_period.contains(at.date()) && times > 0)
            found.append({kind, at, at, detail, times});
    };
    for (auto each = m_accepted.cbegin(); each != m_accepted.cend(); ++each) {
        if (const int counted = m_counted.value(each.key()); counted > 0)
            add(Note::Kind::AcceptedTwice, each.key(), *each - counted);
        else
            add(Note::Kind::NotInJournal, each.key(), *each, QStringLiteral("принят"));
    }
    for (auto each = m_restored.cbegin(); each != m_restored.cend(); ++each)
        add(Note::Kind::Restored, each.key(), *each);
    for (auto each = waiting.cbegin(); each != waiting.cend(); ++each)
        add(Note::Kind::NotInJournal, each.key(),
            *each - m_counted.value(each.key()) - m_accepted.value(each.key()),
            QStringLiteral("ждёт отправки"));
    // So that those that say the same are next to each other.
    std::sort(found.begin(), found.end(), [](const Note &one, const Note &other) {
        return std::tie(one.kind, one.detail, one.from) < std::tie(other.kind, other.detail, other.from);
    });
    for (const Note &note : qAsConst(found))
        minutes::add(m_notes, note);
}

QVector<Sum> Account::sums() const
{
    QVector<Sum> sums;
    QHash<Identity, int> places;
    for (const Minute &minute : m_minutes) {
        const Identity row{minute.day.toString(Qt::ISODate), minute.id.teamId, minute.id.taskId};
        const auto found = places.constFind(row);
        const int place = found == places.constEnd() ? sums.size() : *found;
        if (place == sums.size()) {
            sums.append({minute.day, row.teamId, row.taskId});
            places.insert(row, place);
        }
        sums[place].add(minute);
    }
    std::stable_sort(sums.begin(), sums.end(),
                     [](const Sum &one, const Sum &other) { return one.day < other.day; });
    return sums;
}

} // namespace minutes
