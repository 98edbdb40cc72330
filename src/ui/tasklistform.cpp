#include "ui/tasklistform.h"

#include "ui/mainform.h"

TaskListForm::TaskListForm(Orvana *orvana, MainForm *mainForm) : AbstractOrvanaForm(mainForm)
{
    Q_UNUSED(orvana)
}

TaskListForm::~TaskListForm() = default;

void TaskListForm::toggle()
{
    setVisible(!isVisible());
}
