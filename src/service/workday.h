#pragma once

#include <QDate>
#include <QTime>
#include <QVariantMap>

// The working and the active time of one day. They are times of day and wrap at 24 hours.
struct WorkDay
{
    struct Counter
    {
        QTime counted{0, 0}; // grows by whole minutes
        QTime displayed{0, 0}; // runs on by seconds in between

        void set(const QTime &time) { counted = displayed = time; }
        void addMinute() { counted = counted.addSecs(60); }
    };

    // One second of the displayed clocks, or a new day when the present one is over.
    void addSecond(const QDate &today);
    void addActiveMinute(const QString &taskId);
    // True when the displayed time has changed too.
    bool setActiveTime(const QTime &time);
    QTime activeTimeOf(const QString &taskId) const;

    QDate date;
    Counter work;
    Counter active;
    QVariantMap activeTimes; // a QTime by task id
};
