#pragma once

#include "ledger.h"

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

// Compares what the client does with what was chosen in it, and its counter of the day with its records.
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
        m_counters = counters();
    }

    // What each user sees as worked has to grow by the records of this run. A minute is counted before it
    // has a record: a kill in between may lose one.
    void judgeCounters(const QMultiHash<QString, QStringList> &bookings, bool mayLoseMinute)
    {
        const auto now = counters();
        int mayBeLost = mayLoseMinute ? 1 : 0;
        for (const Account &account : kAccounts) {
            const auto &before = m_counters[account.login];
            const auto &after = now[account.login];
            if (before.first != after.first)
                continue; // midnight has passed
            QSet<QString> recorded;
            for (auto it = bookings.cbegin(); it != bookings.cend(); ++it) {
                if (it->first() == account.login)
                    recorded.insert(it.key());
            }
            m_compared += recorded.size();
            const int lost = after.second - before.second - recorded.size();
            if (lost < 0 || lost > mayBeLost)
                complain(s("%1 minutes more counted than recorded of %2").arg(lost).arg(account.login));
            mayBeLost -= lost;
        }
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
            } else {
                if (what == s("made")) {
                    m_said = *m_asked;
                    ++m_made[m_lastAsked];
                }
                judgeState(what, entry);
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
        std::printf("%d Starts, %d Stops, %d tasks, %d users chosen; %d minutes compared with the session's "
                    "counter\n",
                    m_made[s("start")], m_made[s("stop")], m_made[s("task")], m_made[s("user")], m_compared);
    }

    bool isSatisfied(int fewestCompared) const { return m_complaints == 0 && m_compared > fewestCompared; }

private:
    // Of each user: the day and its minutes.
    QMap<QString, QPair<QString, int>> counters() const
    {
        QMap<QString, QPair<QString, int>> read;
        for (const Account &account : kAccounts) {
            const QSettings stored(m_room.stored(account.login + s("/session.ini")), QSettings::IniFormat);
            const QTime time = QTime::fromString(stored.value(s("todayWorktime")).toString(), s("hh:mm:ss"));
            read[account.login] = {stored.value(s("worktimeDate")).toString(), QTime(0, 0).secsTo(time) / 60};
        }
        return read;
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

    // The record and perhaps a screenshot; neither when the client died before they were written.
    void judgeMinute(const QList<QStringList> &bookings)
    {
        const auto allows = [&](const QStringList &state) {
            const QStringList booking = state.mid(0, 3) + QStringList{QString::number(m_port)};
            return state[3] == s("recording") && bookings.count(booking) == bookings.size();
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
    QMap<QString, QPair<QString, int>> m_counters; // at the start of this run
    QMap<QString, int> m_made;
    int m_compared = 0; // minutes
    int m_complaints = 0;
};
