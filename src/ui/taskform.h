#pragma once

#include "widgets/abstractorvanaform.h"
#include "widgets/listmodel.h"

#include <QTimer>

#include <memory>

class MainForm;

namespace Ui {
class TaskForm;
}

// Picks the team and the task that the timer books on, among those that the session
// holds. Made once and shown again and again; update() before each showing.
class TaskForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskForm)

public:
    explicit TaskForm(MainForm *mainForm, QWidget *parent = nullptr);
    ~TaskForm() override;

    // Shows the session's lists and choice and, online, requests the lists again.
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
    void onLogin();
    void onTeamsUpdated();
    void refreshSoon();
    void on_cbTeam_currentIndexChanged(int index);
    void on_cbTask_currentIndexChanged(int index);

private:
    void takeSessionsChoice();
    void showSession();
    void allowOk();

    std::unique_ptr<Ui::TaskForm> m_ui;
    MainForm *m_mainForm;
    QString m_selectedTeamId;
    QString m_selectedTaskId;
    ListModel<Team> *m_teams; // a child
    ListModel<Task> *m_tasks; // a child
    // Many signals of one reply make one refresh.
    QTimer m_refreshTimer{this};
};
