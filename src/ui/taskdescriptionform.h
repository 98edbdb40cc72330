#pragma once

#include "widgets/abstractorvanaform.h"
#include "widgets/listmodel.h"

#include <memory>

class Orvana;
class ScrollText;
class TaskListForm;

namespace Ui {
class TaskDescriptionForm;
}

// One task's details on two pages: the task itself, and its text assignments.
// Follows what the client announces about this task.
class TaskDescriptionForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskDescriptionForm)

public:
    // Client and list (which may be null) must outlive the window.
    TaskDescriptionForm(const QString &taskId, Orvana *orvana, const TaskListForm *list,
                        QWidget *parent = nullptr);
    ~TaskDescriptionForm() override;

    QString taskId() const { return m_taskId; }

    void updateTextTasksCombobox(const TaskInfo &info);
    void updateTaskText(const TextTask &textTask);
    // "1.50 KB"; units up to TB.
    static QString size_human(float bytes);

public slots:
    // Records of other tasks are ignored.
    void updateTask(const TaskInfo &info);
    // Asks the service again; offline, shows what the session has.
    void requestUpdateTask(const QString &taskId);
    void on_cbTexts_currentIndexChanged(int index);
    void on_pbHide_clicked();
    void on_pbCopyrightTasks_clicked();
    void on_pbMainInfo_clicked();
    // With the main window: showAll() shows what hideAll() has hidden.
    void showAll();
    void hideAll();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void applyStyles();
    void fillLists();
    void showInfo(const TaskInfo &info);
    void openLink(const QString &link);

    std::unique_ptr<Ui::TaskDescriptionForm> m_ui;
    QString m_taskId;
    Orvana *m_orvana;
    const TaskListForm *m_list;
    ScrollText *m_title = nullptr;
    // Children.
    ListModel<Attachment> *m_files = nullptr;
    ListModel<Keyword> *m_phrases = nullptr;
    ListModel<TextTask> *m_texts = nullptr;
};
