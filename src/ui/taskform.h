#pragma once

#include "model/records.h"
#include "ui/abstractorvanaform.h"

#include <memory>

class MainForm;
class OfferedTasks;

namespace Ui {
class TaskForm;
}

// Picks the team and the task that the timer books on. Made once and shown again
// and again; update() before each showing.
class TaskForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskForm)

public:
    explicit TaskForm(MainForm *mainForm, QWidget *parent = nullptr);
    ~TaskForm() override;

    // Starts from the session's choice and, online, asks the service for the
    // lists anew.
    void update();
    QString currentTeamId() const;
    QString currentTaskId() const;

    // The blocking tasks; all of them when none blocks.
    static QList<Task> filterBlockTasks(const QList<Task> &tasks);

public slots:
    void refreshed();
    void error(int code);
    void closeTask(const QString &id);

private slots:
    void on_cbTeam_currentIndexChanged(int index);
    void on_cbTask_currentIndexChanged(int index);

private:
    bool showsTeams(const QList<Team> &teams) const;
    void fillTeams(const QList<Team> &teams);

    std::unique_ptr<Ui::TaskForm> m_ui;
    MainForm *m_mainForm;
    QString m_selectedTeamId;
    QString m_selectedTaskId;
    OfferedTasks *m_tasks; // a child
    // What the list shows now: an unchanged one is not filled again, so that it stays
    // open when it is open.
    QList<Team> m_shownTeams;
};
