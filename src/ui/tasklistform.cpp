#include "ui/tasklistform.h"

#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/mainform.h"
#include "ui/taskdescriptionform.h"
#include "ui/tasklistmodel.h"
#include "ui_tasklistform.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "widgets/tooltips.h"

#include <QScreen>
#include <QScrollBar>
#include <QShowEvent>

#include <chrono>

namespace {

using namespace std::chrono_literals;

constexpr auto kOverdueStep = 1min;
constexpr int kCascadeStep = 24;
constexpr int kCascadeLength = 6;

} // namespace

TaskListForm::TaskListForm(Orvana *orvana, MainForm *mainForm)
    : AbstractOrvanaForm(mainForm)
    , m_ui(std::make_unique<Ui::TaskListForm>())
    , m_orvana(orvana)
    , m_mainForm(mainForm)
    , m_model(new TaskListModel([mainForm](const Task &task) { return mainForm->getTaskIcon(task); }, this))
    , m_team(new ScrollText(true, this))
    , m_login(orvana->session()->login())
{
    m_ui->setupUi(this);
    setFixedSize(size());
    setBackground(QStringLiteral(":/images/res/images/task_list/background.png"));
    m_team->setObjectName(QStringLiteral("lbTeam"));
    m_ui->titleLayout->insertWidget(0, m_team);
    m_ui->listTasks->setModel(m_model);
    m_minuteTimer.setInterval(kOverdueStep);
    connectSignals();
    refresh();
}

TaskListForm::~TaskListForm() = default;

void TaskListForm::connectSignals()
{
    const Orvana::Session *session = m_orvana->session();
    connect(m_mainForm, &MainForm::teamChanged, this, &TaskListForm::onCurrentTeamChanged);
    connect(m_mainForm, &MainForm::showAll, this, &TaskListForm::comeBack);
    connect(m_mainForm, &MainForm::hideAll, this, &TaskListForm::hideForNow);
    connect(m_orvana, &Orvana::loginOk, this, &TaskListForm::onLogin);
    connect(session, &Orvana::Session::teamsUpdated, this, &TaskListForm::onTeamsUpdated);
    connect(session, &Orvana::Session::tasksUpdated, this, &TaskListForm::onTasksUpdated);
    connect(session, &Orvana::Session::taskChanged, this, &TaskListForm::onTaskChanged);
    connect(session, &Orvana::Session::taskClosed, this, &TaskListForm::onTaskClosed);
    connect(m_ui->listTasks, &TaskListView::descriptionRequested, this, &TaskListForm::openDescription);
    connect(m_ui->listTasks, &TaskListView::selectionRequested, this, &TaskListForm::selectTask);
    connect(m_ui->pbClose, &QPushButton::clicked, this, &TaskListForm::hide);
    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &TaskListForm::refreshIfStale);
    connect(&m_minuteTimer, &QTimer::timeout, this,
            [this] { m_model->setNow(QDateTime::currentDateTime()); });
}

void TaskListForm::toggle()
{
    if (isVisible()) {
        hide();
        return;
    }
    showNormal();
    raise();
    activateWindow();
}

// A window that was dragged to a place of its own keeps it while it stays on the
// main window's screen.
void TaskListForm::placeOnScreen()
{
    const QRect area = Placement::freeArea(m_mainForm);
    if (!area.isNull() && (!wasDragged() || !area.contains(frameGeometry())))
        move(Placement::nextTo(m_mainForm->frameGeometry(), size(), area));
}

void TaskListForm::onCurrentTeamChanged(const QString &teamId)
{
    Q_UNUSED(teamId)
    refresh();
}

void TaskListForm::onTasksUpdated(const QString &teamId)
{
    if (teamId != m_orvana->session()->currentTeamID())
        return;
    m_stale = true;
    if (isVisible())
        m_refreshTimer.start();
}

// This ends a reply; the signals for each team and task come before it.
void TaskListForm::onTeamsUpdated()
{
    if (!isVisible()) {
        m_stale = true;
        return;
    }
    refreshIfStale();
    refreshWords();
}

void TaskListForm::refreshIfStale()
{
    if (m_stale)
        refresh();
}

void TaskListForm::onTaskChanged(const QString &taskId)
{
    refreshIfStale();
    m_model->setCurrentTask(taskId);
    // Chosen elsewhere: the row comes into sight.
    const QModelIndex row = m_model->indexOf(taskId);
    if (row.isValid() && !m_ui->listTasks->hasFocus())
        m_ui->listTasks->setCurrentIndex(row);
}

void TaskListForm::onTaskClosed(const QString &taskId)
{
    if (TaskDescriptionForm *form = m_descriptions.take(taskId)) {
        form->hide();
        form->deleteLater();
    }
}

// The next user must not see the descriptions of this one.
void TaskListForm::onLogin()
{
    const QString login = m_orvana->session()->login();
    if (login != m_login) {
        m_login = login;
        const QStringList opened = m_descriptions.keys();
        for (const QString &taskId : opened)
            onTaskClosed(taskId);
    }
    refresh();
}

void TaskListForm::refresh()
{
    m_stale = false;
    m_refreshTimer.stop();
    const Orvana::Session *session = m_orvana->session();
    const QString row = m_ui->listTasks->currentIndex().data(TaskListModel::IdRole).toString();
    const int scrolled = m_ui->listTasks->verticalScrollBar()->value();
    m_model->setTasks(session->tasks(session->currentTeamID()));
    m_model->setCurrentTask(session->currentTaskID());
    m_model->setNow(QDateTime::currentDateTime());
    if (!m_ui->listTasks->currentIndex().isValid()) {
        const QModelIndex known = m_model->indexOf(row);
        m_ui->listTasks->setCurrentIndex(known.isValid() ? known
                                                         : m_model->indexOf(session->currentTaskID()));
        if (known.isValid())
            m_ui->listTasks->verticalScrollBar()->setValue(scrolled);
    }
    refreshWords();
}

void TaskListForm::refreshWords()
{
    const Orvana::Session *session = m_orvana->session();
    const QString teamId = session->currentTeamID();
    const QString name = session->team(teamId).name;
    const QString title = name.isEmpty() ? QStringLiteral("Задачи команды") : name;
    m_team->setText(title);
    m_team->setToolTip(literalToolTip(name));
    m_ui->lbEmpty->setVisible(!m_model->hasListedTasks());
    m_ui->lbEmpty->setText(teamId.isEmpty() ? QStringLiteral("Выберите команду и задачу")
                                            : QStringLiteral("В команде нет задач"));
    m_ui->listTasks->setVisible(m_model->rowCount() > 0);
    m_ui->lbHint->setVisible(m_model->rowCount() > 0);
    m_ui->lbHint->setText(m_model->isRestricted()
                              ? QStringLiteral("Время можно учитывать только по блокирующим задачам")
                              : QStringLiteral("Щелчок — описание, двойной щелчок — выбор задачи"));
}

void TaskListForm::selectTask(const QString &taskId)
{
    m_mainForm->selectTask(m_orvana->session()->currentTeamID(), taskId);
}

void TaskListForm::openDescription(const QString &taskId)
{
    if (taskId.isEmpty() || taskId == kCatchAllId)
        return;
    TaskDescriptionForm *form = m_descriptions.value(taskId);
    if (!form) {
        form = new TaskDescriptionForm(taskId, m_orvana, this, this);
        m_descriptions.insert(taskId, form);
        connect(m_mainForm, &MainForm::showAll, form, &TaskDescriptionForm::showAll);
        connect(m_mainForm, &MainForm::hideAll, form, &TaskDescriptionForm::hideAll);
        const int step = (m_descriptions.size() - 1) % kCascadeLength * kCascadeStep;
        form->move(form->pos() + QPoint(step, step));
    }
    form->requestUpdateTask(taskId);
    form->showNormal();
    form->raise();
    form->activateWindow();
}

void TaskListForm::showEvent(QShowEvent *event)
{
    if (!event->spontaneous())
        placeOnScreen();
    AbstractOrvanaForm::showEvent(event);
    if (event->spontaneous())
        return;
    refreshIfStale();
    m_model->setNow(QDateTime::currentDateTime());
    m_minuteTimer.start();
    m_ui->listTasks->setFocus();
    m_ui->listTasks->scrollTo(m_ui->listTasks->currentIndex());
}

void TaskListForm::hideEvent(QHideEvent *event)
{
    AbstractOrvanaForm::hideEvent(event);
    m_minuteTimer.stop();
}
