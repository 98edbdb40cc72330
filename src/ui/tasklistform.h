#pragma once

#include "widgets/abstractorvanaform.h"

#include <QHash>
#include <QTimer>

#include <memory>

class MainForm;
class Orvana;
class ScrollText;
class TaskDescriptionForm;
class TaskListModel;

namespace Ui {
class TaskListForm;
}

// Lists the current team's tasks, makes one of them the current task and opens
// their descriptions, one window a task, which it keeps.
class TaskListForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskListForm)

public:
    // The client must outlive the window; the main window is its parent.
    TaskListForm(Orvana *orvana, MainForm *mainForm);
    ~TaskListForm() override;

    // Shows the window next to the main window, or hides it.
    void toggle();
    // Null when the task's description was not opened yet.
    TaskDescriptionForm *description(const QString &taskId) const { return m_descriptions.value(taskId); }

public slots:
    void onCurrentTeamChanged(const QString &teamId);
    void onTasksUpdated(const QString &teamId);
    void onTeamsUpdated();
    void onTaskChanged(const QString &taskId);
    void onTaskClosed(const QString &taskId);
    // Opens the description of a task that has one.
    void openDescription(const QString &taskId);

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void connectSignals();
    void onLogin();
    void selectTask(const QString &taskId);
    void refresh();
    void refreshIfStale();
    void refreshWords();
    void placeOnScreen();

    std::unique_ptr<Ui::TaskListForm> m_ui;
    Orvana *m_orvana;
    MainForm *m_mainForm;
    TaskListModel *m_model;
    ScrollText *m_team;
    QHash<QString, TaskDescriptionForm *> m_descriptions;
    QTimer m_minuteTimer{this};
    QTimer m_refreshTimer{this}; // many signals of one reply make one refresh
    bool m_stale = false;
    QString m_login; // whose tasks are shown
};
