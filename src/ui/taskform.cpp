#include "ui/taskform.h"

#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/artwork.h"
#include "ui/mainform.h"
#include "ui/offeredtasks.h"
#include "ui/simplemarkup.h"
#include "ui/tooltips.h"
#include "ui_taskform.h"

#include <QSignalBlocker>

#include <algorithm>

namespace {

int indexOfId(const QComboBox *box, const QString &id)
{
    for (int i = 0; i < box->count(); ++i) {
        if (box->itemData(i).toString() == id)
            return i;
    }
    return -1;
}

} // namespace

TaskForm::TaskForm(MainForm *mainForm, QWidget *parent)
    : AbstractOrvanaForm(parent)
    , m_ui(std::make_unique<Ui::TaskForm>())
    , m_mainForm(mainForm)
{
    m_ui->setupUi(this);
    m_ui->pbOk->setObjectName(QStringLiteral("pbOrvana"));
    m_ui->pbCancel->setObjectName(QStringLiteral("pbOrvana"));
    m_ui->cbTeam->setPlaceholderText(QStringLiteral("Команд пока нет"));
    m_ui->cbTask->setPlaceholderText(QStringLiteral("Задач пока нет"));
    m_tasks = new OfferedTasks([mainForm](const Task &task) { return mainForm->getTaskIcon(task); }, this);
    m_ui->cbTask->setModel(m_tasks);
    setBackground(QStringLiteral(":/images/main.png"));
    setWindowModality(Qt::WindowModal);
    ensurePolished();
    setFixedSize(sizeHint());
    Artwork::centre(this);

    const Orvana *orvana = m_mainForm->orvana();
    const Orvana::Session *session = orvana->session();
    connect(orvana, &Orvana::error, this, &TaskForm::error);
    connect(session, &Orvana::Session::teamsUpdated, this, &TaskForm::refreshed);
    connect(session, &Orvana::Session::tasksUpdated, this, &TaskForm::refreshed);
    connect(session, &Orvana::Session::taskClosed, this, &TaskForm::closeTask);
    update();
    m_ui->cbTeam->setFocus();
}

TaskForm::~TaskForm() = default;

void TaskForm::update()
{
    Orvana *orvana = m_mainForm->orvana();
    m_selectedTeamId = orvana->session()->currentTeamID();
    m_selectedTaskId = orvana->session()->currentTaskID();
    if (!orvana->session()->isOnline()) {
        refreshed();
        return;
    }
    m_ui->lbLoading->setText(QStringLiteral("Загрузка..."));
    m_ui->cbTask->setEnabled(false);
    m_ui->cbTeam->setEnabled(false);
    orvana->requestTeamsAndTasks();
}

QString TaskForm::currentTeamId() const
{
    return m_ui->cbTeam->currentData().toString();
}

QString TaskForm::currentTaskId() const
{
    return m_ui->cbTask->currentData().toString();
}

bool TaskForm::showsTeams(const QList<Team> &teams) const
{
    return teams.size() == m_shownTeams.size()
        && std::equal(teams.cbegin(), teams.cend(), m_shownTeams.cbegin(),
                      [](const Team &a, const Team &b) { return a.id == b.id && a.name == b.name; });
}

void TaskForm::fillTeams(const QList<Team> &teams)
{
    m_ui->cbTeam->clear();
    for (const Team &team : teams) {
        m_ui->cbTeam->addItem(titleLine(team.name), team.id);
        m_ui->cbTeam->setItemData(m_ui->cbTeam->count() - 1, literalToolTip(team.name), Qt::ToolTipRole);
    }
    m_shownTeams = teams;
}

void TaskForm::refreshed()
{
    const QSignalBlocker blocker(m_ui->cbTeam);
    m_ui->lbLoading->clear();
    const QList<Team> teams = m_mainForm->orvana()->session()->teams();
    if (!showsTeams(teams))
        fillTeams(teams);
    m_ui->cbTask->setEnabled(true);
    m_ui->cbTeam->setEnabled(true);
    int index = indexOfId(m_ui->cbTeam, m_selectedTeamId);
    if (index < 0)
        index = 0;
    m_ui->cbTeam->setCurrentIndex(index);
    m_ui->cbTeam->setToolTip(m_ui->cbTeam->itemData(index, Qt::ToolTipRole).toString());
    m_ui->cbTeam->setFocus();
    on_cbTeam_currentIndexChanged(index);
}

void TaskForm::on_cbTeam_currentIndexChanged(int index)
{
    const QSignalBlocker blocker(m_ui->cbTask);
    m_selectedTeamId = m_ui->cbTeam->itemData(index).toString();
    m_tasks->setTasks(filterBlockTasks(m_mainForm->orvana()->session()->tasks(m_selectedTeamId)));
    const int selected = m_tasks->rowOf(m_selectedTaskId);
    m_ui->cbTask->setCurrentIndex(selected >= 0 ? selected : 0);
    if (selected >= 0)
        m_ui->cbTask->setToolTip(m_ui->cbTask->itemData(selected, Qt::ToolTipRole).toString());
}

void TaskForm::on_cbTask_currentIndexChanged(int index)
{
    m_selectedTaskId = m_ui->cbTask->itemData(index).toString();
}

QList<Task> TaskForm::filterBlockTasks(const QList<Task> &tasks)
{
    QList<Task> blocking;
    for (const Task &task : tasks) {
        if (task.isBlocking())
            blocking.append(task);
    }
    return blocking.isEmpty() ? tasks : blocking;
}

void TaskForm::error(int code)
{
    Q_UNUSED(code)
    // The refresh clears the words at once; what counts is that the lists can be
    // used again.
    m_ui->lbLoading->setText(QStringLiteral("Нет соединения"));
    refreshed();
}

void TaskForm::closeTask(const QString &id)
{
    Q_UNUSED(id)
    refreshed();
}
