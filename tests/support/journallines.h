#pragma once

#include "service/minuterecovery.h"
#include "service/orvana.h"
#include "storage/journalreader.h"
#include "texts.h"

#include <QtTest>

// What a user's journal holds.
struct JournalLines
{
    explicit JournalLines(const QString &userFolder)
    {
        JournalChain chain;
        const QStringList files = Journal::files(userFolder);
        for (const QString &file : files) {
            JournalReader reader(file);
            for (JournalReader::Line line; reader.next(&line);) {
                follow = follow && chain.follows(line) && line.isEnded;
                all.append(line);
            }
        }
        follow = follow && !chain.isTorn();
    }

    int count(const char *event) const
    {
        return static_cast<int>(std::count_if(all.cbegin(), all.cend(),
                                              [&](const auto &line) { return line.event == s(event); }));
    }
    JournalReader::Line last(const char *event) const
    {
        const auto found = std::find_if(all.crbegin(), all.crend(),
                                        [&](const auto &line) { return line.event == s(event); });
        return found == all.crend() ? JournalReader::Line() : *found;
    }

    QVector<JournalReader::Line> all;
    bool follow = true;
};

// Waits until minutes that lack a record have got one.
inline bool isRecovered(const Orvana *orvana)
{
    const auto *timer = orvana->findChild<MinuteRecovery *>()->findChild<QTimer *>();
    return QTest::qWaitFor([timer] { return !timer->isActive(); });
}
