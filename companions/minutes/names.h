#pragma once

#include "minutes/account.h"

#include <QPair>
#include <QVariant>

namespace minutes {

// Of a settings file that another program keeps: an invalid value when the file is missing,
// damaged, no file, or lacks the key.
QVariant storedValue(const QString &path, const QString &key);

// What teams and tasks are called, as far as the user's files still know it.
class Names final
{
public:
    // Of the teams and tasks in these sums.
    Names(const QString &userFolder, const QVector<Sum> &sums);

    QString team(const QString &teamId) const { return m_teams.value(teamId); }
    QString task(const QString &teamId, const QString &taskId) const
    {
        return m_tasks.value({teamId, taskId});
    }

private:
    QHash<QString, QString> m_teams;
    QHash<QPair<QString, QString>, QString> m_tasks;
};

} // namespace minutes
