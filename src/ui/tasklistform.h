#pragma once

#include "ui/abstractorvanaform.h"

class MainForm;
class Orvana;

// Lists the current team's tasks and opens their descriptions.
class TaskListForm final : public AbstractOrvanaForm
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskListForm)

public:
    TaskListForm(Orvana *orvana, MainForm *mainForm);
    ~TaskListForm() override;

    // Shows the window beside the main window, or hides it.
    void toggle();
};
