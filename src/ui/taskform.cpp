#include "ui/taskform.h"

#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/mainform.h"
#include "ui_taskform.h"
#include "widgets/placement.h"
#include "widgets/simplemarkup.h"
#include "widgets/tooltips.h"

#include <QSignalBlocker>

#include <algorithm>

namespace {

QVariant teamItem(const Team &team, int role)
{
    return role == Qt::UserRole ? QVariant(team.id) : titleData(team.name, role);
}

QString itemText(const Task &task)
{
    QString title = titleLine(task.title);
    if (!task.deadline.isValid())
        return title;
    return title + QStringLiteral(" | Истекает: ") + serviceDateTimeText(task.deadline);
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
    m_teams = new ListModel<Team>(teamItem, this);
    m_ui->cbTeam->setModel(m_teams);
    const auto taskItem = [mainForm](const Task &task, int role) -> QVariant {
        switch (role) {
        case Qt::DisplayRole:
            return itemText(task);
        case Qt::DecorationRole:
            return mainForm->getTaskIcon(task);
        case Qt::ToolTipRole:
            return literalToolTip(itemText(task));
        case Qt::UserRole:
            return task.id;
        default:
            return {};
        }
    };
    m_tasks = new ListModel<Task>(taskItem, this);
    m_ui->cbTask->setModel(m_tasks);
    setBackground(QStringLiteral(":/images/main.png"));
    setWindowModality(Qt::WindowModal);
    ensurePolished();
    setFixedSize(sizeHint());
    Placement::centre(this);

    const Orvana *orvana = m_mainForm->orvana();
    const Orvana::Session *session = orvana->session();
    connect(orvana, &Orvana::error, this, &TaskForm::error);
    connect(orvana, &Orvana::loginOk, this, &TaskForm::onLogin);
    connect(session, &Orvana::Session::teamsUpdated, this, &TaskForm::onTeamsUpdated);
    connect(session, &Orvana::Session::tasksUpdated, this, &TaskForm::refreshSoon);
    connect(session, &Orvana::Session::taskClosed, this, &TaskForm::closeTask);
    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &TaskForm::refreshed);
    update();
    m_ui->cbTeam->setFocus();
}

TaskForm::~TaskForm() = default;

void TaskForm::update()
{
    Orvana *orvana = m_mainForm->orvana();
    showSession();
    if (!orvana->session()->isOnline())
        return;
    // The lists that have been requested may hold the session's choice, also when
    // those shown now do not.
    takeSessionsChoice();
    m_ui->lbLoading->setText(QStringLiteral("Загрузка..."));
    m_ui->cbTask->setEnabled(false);
    m_ui->cbTeam->setEnabled(false);
    orvana->requestTeamsAndTasks();
}

void TaskForm::takeSessionsChoice()
{
    const Orvana::Session *session = m_mainForm->orvana()->session();
    m_selectedTeamId = session->currentTeamID();
    m_selectedTaskId = session->currentTaskID();
}

void TaskForm::showSession()
{
    takeSessionsChoice();
    refreshed();
}

// The next user must not choose from this one's teams and tasks.
void TaskForm::onLogin()
{
    showSession();
    // The session is online only after this signal.
    if (isVisible())
        QMetaObject::invokeMethod(this, &TaskForm::update, Qt::QueuedConnection);
}

// This ends a reply; the signals for each team and task come before it.
void TaskForm::onTeamsUpdated()
{
    if (isVisible())
        refreshed();
}

// A hidden chooser has nothing to keep up to date: each showing starts from the
// session.
void TaskForm::refreshSoon()
{
    if (isVisible() && !m_refreshTimer.isActive())
        m_refreshTimer.start();
}

QString TaskForm::currentTeamId() const
{
    return m_ui->cbTeam->currentData().toString();
}

QString TaskForm::currentTaskId() const
{
    return m_ui->cbTask->currentData().toString();
}

void TaskForm::refreshed()
{
    const QSignalBlocker blocker(m_ui->cbTeam);
    m_refreshTimer.stop();
    m_ui->lbLoading->clear();
    m_teams->setRecords(m_mainForm->orvana()->session()->teams());
    m_ui->cbTask->setEnabled(true);
    m_ui->cbTeam->setEnabled(true);
    const int index = std::max(0, m_teams->rowOf(m_selectedTeamId));
    m_ui->cbTeam->setCurrentIndex(index);
    m_ui->cbTeam->setToolTip(m_ui->cbTeam->itemData(index, Qt::ToolTipRole).toString());
    m_ui->cbTeam->setFocus();
    on_cbTeam_currentIndexChanged(index);
}

void TaskForm::on_cbTeam_currentIndexChanged(int index)
{
    const QSignalBlocker blocker(m_ui->cbTask);
    m_selectedTeamId = m_ui->cbTeam->itemData(index).toString();
    m_tasks->setRecords(filterBlockTasks(m_mainForm->orvana()->session()->tasks(m_selectedTeamId)));
    const int selected = m_tasks->rowOf(m_selectedTaskId);
    m_ui->cbTask->setCurrentIndex(selected >= 0 ? selected : 0);
    if (selected >= 0)
        m_ui->cbTask->setToolTip(m_ui->cbTask->itemData(selected, Qt::ToolTipRole).toString());
    allowOk();
}

void TaskForm::on_cbTask_currentIndexChanged(int index)
{
    m_selectedTaskId = m_ui->cbTask->itemData(index).toString();
    allowOk();
}

void TaskForm::allowOk()
{
    m_ui->pbOk->setEnabled(!currentTeamId().isEmpty() && !currentTaskId().isEmpty());
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
    refreshSoon();
}
