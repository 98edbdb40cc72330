#pragma once

#include "model/records.h"

#include <QAbstractListModel>

// The teams that the chooser offers. Like those of the tasks, its items are put
// together only when they are seen.
class OfferedTeams final : public QAbstractListModel
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OfferedTeams)

public:
    using QAbstractListModel::QAbstractListModel;

    // The same teams again leave the items as they are, and an open list open.
    void setTeams(const QList<Team> &teams);
    // The row of the team, -1 when it is not offered.
    int rowOf(const QString &teamId) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    // Qt::UserRole is the team's id.
    QVariant data(const QModelIndex &index, int role) const override;

private:
    QList<Team> m_teams;
};
