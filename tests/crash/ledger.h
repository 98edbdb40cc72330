#pragma once

#include <QHash>
#include <QString>
#include <QVector>

#include <chrono>
#include <mutex>

// Keeps book of what the client promised and what the service got. A report is
// promised from the moment its record has its final name in the watched folder;
// it is known by the number that the trial build puts into its version, together
// with what else must arrive unchanged. Safe to use from several threads.
class Ledger final
{
public:
    struct Sums
    {
        int counted = 0;
        int received = 0; // different ones
        int missing = 0; // neither received nor waiting in the folder
        int waiting = 0;
        int uncounted = 0; // received without ever having been on the disk
        int unread = 0; // gone from the folder before the service had accepted it
        int excused = 0; // received again after a kill or a lost reply
        int unexcused = 0;
        bool isClean() const { return missing + waiting + uncounted + unread + unexcused == 0; }
    };

    // The folder has to exist and to stay.
    explicit Ledger(const QString &folder);
    ~Ledger();
    Q_DISABLE_COPY_MOVE(Ledger)

    // Takes in the records that have come since the last call. Called before any
    // answer leaves the service, it sees each one before the client may delete it.
    void readFolder();
    // The service has accepted it and may still fail to say so.
    void accepted(const QString &id);
    // Between these two, accepting calls need not reach the client.
    void repliesGetLost();
    void repliesArrive();
    // No client runs: what was accepted and still lies in the folder fell to the kill.
    void clientIsGone();
    Sums sums();
    int counted();

    static QString minuteId(const QString &version, const QString &taskId, const QString &active);
    static QString pictureId(const QString &version, const QString &fileName);

private:
    using Clock = std::chrono::steady_clock;
    struct Acceptance
    {
        Clock::time_point when;
        QString id;
    };
    struct Interval
    {
        Clock::time_point from;
        Clock::time_point to;
    };

    void readRecords();
    void enter(const QString &name);
    QString idOf(const QString &name) const;
    int lossOf(const Acceptance &acceptance) const;
    QVector<QString> waitingIds() const;

    std::mutex m_mutex;
    QString m_folder;
    int m_inotify;
    QHash<QString, int> m_counted; // by id: how many records
    QHash<QString, int> m_accepted;
    QHash<QString, int> m_excuses;
    QVector<Acceptance> m_ofThisRun;
    QVector<Interval> m_lossy;
    int m_unread = 0;
};
