#pragma once

#include "ledger.h"

#include <algorithm>
#include <cstdio>
#include <optional>

struct Account
{
    QString login;
    QString password;
};

inline const QVector<Account> kAccounts{{s("anna@orvana.example"), s("orvana")},
                                        {s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я")}};

// What was chosen in the client; every user's task and timer are kept for the next login.
struct Choices
{
    // A kind and what belongs to it, as in the journal.
    Choices after(const QStringList &choice) const
    {
        Choices next = *this;
        const QString kind = choice.value(0);
        QStringList &work = next.works[login];
        if (kind == s("user"))
            next.login = choice.value(1);
        else if (kind == s("task"))
            work = choice.mid(1, 2) + work.mid(2);
        else
            work = work.mid(0, 2) + QStringList{s(kind == s("start") ? "recording" : "idle")};
        return next;
    }

    // As in the journal: user, team, task, and whether it records.
    QStringList state() const { return QStringList{login} + works.value(login); }

    QString login;
    QMap<QString, QStringList> works; // by user
};

// Compares what the client does with what was chosen in it, and its counters of the day with its journal.
class Judge final
{
public:
    explicit Judge(const ClientRoom &room)
        : m_room(room)
        , m_said{kAccounts.front().login,
                 {{kAccounts.front().login, {s("17"), s("1702"), s("recording")}},
                  {kAccounts.back().login, {QString(), QString(), s("idle")}}}}
    { }

    QString journalPath() const { return m_room.path(s("journal")); }

    void runStarts(int run, int port)
    {
        m_run = run;
        m_port = port;
    }

    // As long as the client has not handled a choice, it may act on it or not.
    void judgeJournal(const QMultiHash<QString, QStringList> &bookings)
    {
        QFile journal(journalPath());
        journal.open(QIODevice::ReadOnly);
        while (!journal.atEnd()) {
            QStringList entry =
                QString::fromUtf8(journal.readLine()).remove(QLatin1Char('\n')).split(QLatin1Char('\t'));
            const QString what = entry.takeFirst();
            if (what == s("asks")) {
                m_asked = m_said.after(entry);
                m_lastAsked = entry.value(0);
            } else if (what == s("minute")) {
                judgeMinute(bookings.values(entry.value(0)));
                count(bookings.values(entry.value(0)));
            } else {
                judgeCounters(what, entry);
                if (what == s("made")) {
                    m_said = *m_asked;
                    ++m_made[m_lastAsked];
                }
                judgeState(what, entry.mid(0, 4));
            }
        }
    }

    void complain(const QString &what)
    {
        ++m_complaints;
        std::printf("run %d: %s\n", m_run, qPrintable(what));
        std::fflush(stdout);
    }

    void print() const
    {
        std::printf(
            "%d Starts, %d Stops, %d tasks, %d users chosen; counters of %d minutes compared with the "
            "journal\n",
            m_made[s("start")], m_made[s("stop")], m_made[s("task")], m_made[s("user")], m_compared);
    }

    bool isSatisfied(int fewestCompared) const { return m_complaints == 0 && m_compared > fewestCompared; }

private:
    void count(const QList<QStringList> &bookings)
    {
        for (const QStringList &booking : bookings) {
            if (booking.size() < 6)
                continue; // a screenshot
            auto &counted = m_counted[{booking.at(0), booking.at(4)}];
            ++counted.first;
            counted.second += booking.at(5) == s("0") ? 0 : 1;
        }
    }

    // The counters of the user who is signed in, whatever has killed the client before.
    void judgeCounters(const QString &when, const QStringList &state)
    {
        const auto expected = m_counted.value({state.value(0), state.value(4)});
        const QPair<int, int> shown{state.value(5).toInt(), state.value(6).toInt()};
        m_compared += shown.first;
        if (shown != expected)
            complain(s("%1 with %2 + %3 minutes and not %4 + %5 of %6 on %7")
                         .arg(when)
                         .arg(shown.first)
                         .arg(shown.second)
                         .arg(expected.first)
                         .arg(expected.second)
                         .arg(state.value(0), state.value(4)));
    }

    void judgeState(const QString &when, const QStringList &state)
    {
        if (m_asked && m_asked->state() == state)
            m_said = *m_asked;
        m_asked.reset();
        if (m_said.state() == state)
            return;
        complain(s("%1 with [%2] and not [%3], last choice: %4")
                     .arg(when, state.join(s(" ")), m_said.state().join(s(" ")), m_lastAsked));
        m_said.login = state.value(0);
        m_said.works[m_said.login] = state.mid(1);
    }

    // The line and perhaps a screenshot; neither when the client died before they were written.
    void judgeMinute(const QList<QStringList> &bookings)
    {
        const auto allows = [&](const QStringList &state) {
            const QStringList booking = state.mid(0, 3) + QStringList{QString::number(m_port)};
            return state[3] == s("recording")
                && std::all_of(bookings.cbegin(), bookings.cend(),
                               [&](const QStringList &each) { return each.mid(0, 4) == booking; });
        };
        if (!allows(m_said.state()) && !(m_asked && allows(m_asked->state())))
            complain(s("minute of [%1] and not [%2]")
                         .arg(bookings.value(0).join(s(" ")), m_said.state().join(s(" "))));
    }

    const ClientRoom &m_room;
    int m_run = 0;
    int m_port = 0;
    Choices m_said;
    std::optional<Choices> m_asked; // as it will be once it is made
    QString m_lastAsked;
    QMap<QPair<QString, QString>, QPair<int, int>> m_counted; // work and active minutes by user and day
    QMap<QString, int> m_made;
    int m_compared = 0; // minutes of the counters that were judged
    int m_complaints = 0;
};
