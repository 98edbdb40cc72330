#include "ui/mainform.h"

#include "base/log.h"
#include "base/timetexts.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/aboutform.h"
#include "ui/taskform.h"
#include "ui/tasklistform.h"
#include "ui/trayicon.h"
#include "ui/windowplace.h"
#include "ui_mainform.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "widgets/tooltips.h"
#include "x11/windowmanager.h"

#include <QCoreApplication>
#include <QLocale>
#include <QMenu>
#include <QScreen>
#include <QShortcut>
#include <QSignalBlocker>
#include <QStyle>

#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr auto kAfterPaint = 10ms; // what is painted goes out when the event loop rests
constexpr auto kLongestWaitForPaint = 1s; // on a desktop that does not show the window

const QMargins kTaskTextMargins(4, 2, 4, 2); // room for the focus ring
const QString kPickTask = QStringLiteral("Выбрать задачу");
const QString kStart = QStringLiteral("Старт");
const QString kStop = QStringLiteral("Стоп");
const QString kTimeExtendStyle = QStringLiteral(
    "QPushButton{background-image: url(:/icons/res/icons/pbTimeExtend_NoActive_normal.png);}"
    "QPushButton:hover{background-image: url(:/icons/res/icons/pbTimeExtend_NoActive_Hovered.png);}"
    "QPushButton:pressed{background-image: url(:/icons/res/icons/pbTimeExtend_NoActive_Pressed.png);}"
    "QPushButton:disabled{background-image: url(:/icons/res/icons/pbTimeExtend_NoActive_disabled.png);}");

QString playStyle(bool hasTask, bool online, bool active)
{
    if (!hasTask)
        return QStringLiteral("background-image: url(:/images/pbPlay_Disabled.png);");
    const QString image = QStringLiteral(":/images/")
        + (active ? QLatin1String("pbPause") : QLatin1String("pbPlay"))
        + (online ? QLatin1String("_Online") : QLatin1String("_Offline"));
    return QStringLiteral("QPushButton{background-image: url(") + image
        + QStringLiteral(".png);}QPushButton:hover:!pressed{background-image: url(") + image
        + QStringLiteral("_hovered.png);}QPushButton:pressed{background-image: url(") + image
        + QStringLiteral("_hovered_clicked.png);}");
}

// The same image in a selected row, where it would be tinted.
QIcon taskIcon(const QString &path)
{
    QIcon icon(path);
    icon.addFile(path, QSize(), QIcon::Selected);
    return icon;
}

ScrollText *makeTaskText(QWidget *parent)
{
    auto *text = new ScrollText(true, parent);
    text->setObjectName(QStringLiteral("lbTask"));
    text->setAccessibleDescription(kPickTask);
    text->setFocusPolicy(Qt::TabFocus);
    text->setCursor(Qt::PointingHandCursor);
    text->setContentsMargins(kTaskTextMargins);
    return text;
}

} // namespace

MainForm::MainForm(Orvana *orvana, QWidget *parent)
    : TrackingForm(orvana, parent)
    , m_ui(std::make_unique<Ui::MainForm>())
    , m_taskText(makeTaskText(this))
{
    m_ui->setupUi(this);
    setBackground(QStringLiteral(":/images/main.png"));
    showOnAllDesktops(this);
    m_place = new WindowPlace(this);
    m_taskText->installEventFilter(this);
    m_ui->taskLayout->addWidget(m_taskText);
    setTabOrder(m_ui->pbTask, m_taskText);
    setTabOrder(m_taskText, m_ui->pbMenu);
    m_ui->pbTimeExtend->setStyleSheet(kTimeExtendStyle);
    initTimers();

    connectSignals();
    initMenu();
    initTrayIcon();

    updateNoticeBtn();
    updatePlayBtn();
    updateOverdueTime();

    NotificationManager::instance()->setMainForm(this);
    onTaskChange();
    if (m_orvana->session()->currentTaskID().isEmpty())
        m_orvana->notify(QStringLiteral("Выберите задачу для начала работы."));

    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, &MainForm::hideAll);
    QTimer::singleShot(kLongestWaitForPaint, this, &MainForm::finishStart);
}

MainForm::~MainForm()
{
    NotificationManager::instance()->setMainForm(nullptr);
}

void MainForm::connectSignals()
{
    const Orvana::Session *session = m_orvana->session();
    connect(m_orvana, &Orvana::loginOk, this, &MainForm::updateForNewLogin);
    connect(m_orvana, &Orvana::onlineChanged, this, &MainForm::updateOnlineState);
    connect(m_orvana, &Orvana::teamChanged, this, &MainForm::teamChanged);
    connect(session, &Orvana::Session::taskChanged, this, &MainForm::onTaskChange);
    connect(session, &Orvana::Session::timeUpdated, this, &MainForm::updateTimerLbl);
    connect(session, &Orvana::Session::activeChanged, this, [this](bool active) {
        m_ui->actionStartStop->setText(active ? kStop : kStart);
        updatePlayBtn();
        const QSignalBlocker blocker(m_ui->pbPlay);
        m_ui->pbPlay->setChecked(active);
    });
    connect(session, &Orvana::Session::overdueTimeChanged, this, &MainForm::updateOverdueTime);
    connect(session, &Orvana::Session::tasksUpdated, this, &MainForm::onTaskUpdated);
    connect(session, &Orvana::Session::teamsUpdated, this, &MainForm::onTeamsUpdated);
    connect(this, &MainForm::hideAll, this, &MainForm::hideAllHandler);
    connect(this, &MainForm::showAll, this, &MainForm::showAllHandler);
    connect(m_ui->pbComment, &QPushButton::clicked, m_orvana, qOverload<>(&Orvana::openTaskUrl));
    connect(m_ui->pbTaskList, &QPushButton::clicked, this, [this] {
        if (!m_taskListForm)
            m_taskListForm = new TaskListForm(m_orvana, this);
        m_taskListForm->toggle();
    });
    connect(m_place, &WindowPlace::unreachable, this, &MainForm::showAll);
    connect(m_place, &WindowPlace::cameBack, this, [this] {
        if (m_hidAll)
            emit showAll();
    });
    connect(loop(), &TrackingLoop::polled, m_place, &WindowPlace::stayReachable);
    connect(loop(), &TrackingLoop::secondPassed, this, &MainForm::updateOverdueTime);
    // A deadline passes while the timer is stopped, too, and without a connection.
    connect(loop(), &TrackingLoop::listsRequested, this, &MainForm::updateOverdueTime);
    connect(loop(), &TrackingLoop::closeRequested, this, [this] {
        close();
        QCoreApplication::quit();
    });
}

// scripts/demo.sh counts its entries down to actionAbout.
void MainForm::initMenu()
{
    auto *menu = new QMenu(this);
    menu->addAction(m_ui->actionToggleVisible);
    menu->addSeparator();
    menu->addAction(m_ui->actionChangeAccount);
    menu->addAction(m_ui->actionAutostart);
    menu->addAction(m_ui->actionAbout);
    menu->addSeparator();
    menu->addAction(m_ui->actExit);
    m_ui->pbMenu->setMenu(menu);
}

void MainForm::initTrayIcon()
{
    m_trayIcon = new TrayIcon(m_orvana, m_ui->actionStartStop, m_ui->actExit, this);
    connect(m_trayIcon, &TrayIcon::activated, this, &MainForm::trayActivated);
    connect(m_trayIcon, &TrayIcon::showRequested, this, &MainForm::showAll);
    connect(m_trayIcon, &TrayIcon::toggleRequested, this, [this] {
        if (m_place->isInSight())
            emit hideAll();
        else
            emit showAll();
    });
    connect(loop(), &TrackingLoop::listsRequested, m_trayIcon, &TrayIcon::updateToolTip);
}

// The window comes first: the tray icon and the library for encrypted requests take longer
// than it does.
void MainForm::finishStart()
{
    if (m_trayIcon->isVisible())
        return;
    // An icon shown without a tray docks by itself as soon as one comes.
    m_trayIcon->show();
    syncTime();
    m_orvana->requestCheckUpdate();
    if (m_orvana->session()->isOnline())
        m_orvana->requestTeamsAndTasks();
}

QIcon MainForm::getTaskIcon(const Task &task) const
{
    static const QIcon blocked = taskIcon(QStringLiteral(":/images/pbTaskBlocked.png"));
    static const QIcon urgent = taskIcon(QStringLiteral(":/images/pbTaskUrgentGrey.png"));
    static const QIcon plain = taskIcon(QStringLiteral(":/images/pbTask.png"));
    if (task.isBlocking())
        return blocked;
    return task.isUrgent() ? urgent : plain;
}

void MainForm::onTaskChange()
{
    Orvana::Session *session = m_orvana->session();
    const QString teamId = session->currentTeamID();
    const QString taskId = session->currentTaskID();
    const Task task = session->task(teamId, taskId);
    const QList<Task> blocking = session->blockedTasks(teamId);
    // A team with blocking tasks lets nothing else be worked on.
    if (!blocking.isEmpty() && !taskId.isEmpty() && !blocking.contains(task)) {
        // The change signal brings us back here without a task.
        session->setCurrentTaskID(QString());
        return;
    }
    const bool hasTask = !taskId.isEmpty();
    if (hasTask) {
        if (m_taskText->text() != task.title)
            m_taskText->setText(task.title);
        m_ui->pbTask->setIcon(getTaskIcon(task));
        updateOverdueTime();
        m_ui->pbPlay->setCheckable(true);
        m_ui->pbPlay->setChecked(session->isActive());
    } else {
        m_ui->pbPlay->setChecked(false);
        // A button that was never checked emits nothing: the session may have been
        // stored while it tracked a task that no longer exists.
        if (session->isActive())
            stopTracking();
        m_ui->pbPlay->setCheckable(false);
        m_taskText->setText(kPickTask);
        m_ui->pbTask->setIcon(getTaskIcon(Task()));
        updateOverdueTime();
    }
    m_taskText->setToolTip(literalToolTip(m_taskText->text()));
    m_trayIcon->setTaskTitle(m_taskText->text());
    m_ui->pbComment->setProperty("task_id", taskId);
    m_ui->pbComment->setEnabled(hasTask && !task.isCatchAll());
    m_ui->pbTimeExtend->setEnabled(hasTask);
    m_ui->lbComment->setText(QLocale::c().toString(task.lastComment, QStringLiteral("dd.MM hh:mm")));
    updatePlayBtn();
}

void MainForm::updateForNewLogin()
{
    updateTimerLbl();
    onTaskChange();
}

void MainForm::onTaskUpdated(const QString &teamId)
{
    m_isTaskOutdated = m_isTaskOutdated || teamId == m_orvana->session()->currentTeamID();
}

// Once for each reply, which may name the team thousands of times.
void MainForm::onTeamsUpdated()
{
    if (std::exchange(m_isTaskOutdated, false))
        onTaskChange();
}

void MainForm::updatePlayBtn()
{
    const Orvana::Session *session = m_orvana->session();
    const bool active = session->isActive();
    const QString style = playStyle(!session->currentTaskID().isEmpty(), session->isOnline(), active);
    if (style != m_playStyle) {
        m_playStyle = style;
        m_ui->pbPlay->setStyleSheet(style);
    }
    m_ui->pbPlay->setToolTip(session->currentTaskID().isEmpty() ? kPickTask : active ? kStop : kStart);
}

// A hidden window shows nobody the time, and to lay out a text each second costs more than to count it.
void MainForm::updateTimerLbl()
{
    if (!isVisible())
        return;
    const Orvana::Session *session = m_orvana->session();
    const QTime time = m_showsActiveTime ? session->todayActiveTimeDisplayed() : session->todayTime();
    m_ui->lbClock->setText(time.toString(Qt::ISODate));
}

void MainForm::updateOverdueTime()
{
    const Orvana::Session *session = m_orvana->session();
    const QString taskId = session->currentTaskID();
    const QDateTime deadline = session->currentDeadline();
    const bool isOverdue =
        !taskId.isEmpty() && taskId != kCatchAllId && deadline.isValid() && session->overdueTime() >= 0;
    m_ui->lbOverdue->setVisible(isOverdue);
    m_ui->lbOverdueTime->setVisible(isOverdue);
    if (!isOverdue)
        return;
    m_ui->lbOverdueTime->setText(overdueText(deadline, QDateTime::currentDateTime()));
    const QString toolTip = serviceDateTimeText(deadline);
    m_ui->lbOverdueTime->setToolTip(toolTip);
    m_ui->lbOverdue->setToolTip(toolTip);
}

void MainForm::updateTrayIcon()
{
    m_trayIcon->update();
}

void MainForm::updateNoticeBtn()
{
    const NotificationManager *manager = NotificationManager::instance();
    QString state = QStringLiteral("none");
    QString toolTip = QStringLiteral("Уведомлений нет");
    if (manager->hasShownNotifications()) {
        state = QStringLiteral("shown");
        toolTip = QStringLiteral("Спрятать уведомления");
    } else if (manager->hasVisibleNotifications()) {
        state = QStringLiteral("hidden");
        toolTip = QStringLiteral("Показать уведомления");
    }
    m_ui->pbNotice->setToolTip(toolTip);
    if (m_ui->pbNotice->property("notices").toString() == state)
        return;
    m_ui->pbNotice->setProperty("notices", state);
    // Only then are rules that ask for a property looked up again.
    m_ui->pbNotice->style()->unpolish(m_ui->pbNotice);
    m_ui->pbNotice->style()->polish(m_ui->pbNotice);
}

void MainForm::updateOnlineState(const QString &reason)
{
    const bool online = m_orvana->session()->isOnline();
    qCDebug(lcUi) << "Online state is" << online;
    updatePlayBtn();
    m_orvana->notify(
        reason
        + (online ? QStringLiteral("Переход в онлайн-режим.") : QStringLiteral("Переход в оффлайн-режим.")));
}

int MainForm::notificationOffset() const
{
    const QRect whole = Placement::freeArea(this);
    const QRect area = notificationArea();
    const bool hasRoom = area == whole || (area.top() == whole.top() && area.height() >= 2 * height());
    return isVisible() && !isMinimized() && hasRoom ? height() : 0;
}

// What a window manager has put anywhere, in the popups' column, say, the popups have to go round.
QRect MainForm::notificationArea() const
{
    const QRect whole = Placement::freeArea(this);
    const QRect column(whole.right() + 1 - width(), whole.top(), width(), whole.height());
    if (!isVisible() || isMinimized() || canMoveWindows() || !column.intersects(geometry()))
        return whole;
    QRect above = whole;
    above.setBottom(geometry().top() - 1);
    QRect below = whole;
    below.setTop(geometry().bottom() + 1);
    return above.height() > below.height() ? above : below;
}

void MainForm::updateNotificationState()
{
    updateTrayIcon();
    updateNoticeBtn();
}

void MainForm::openTask(const QString &taskId)
{
    m_orvana->openTaskUrl(taskId);
}

bool MainForm::installUpdate()
{
    return Updater::install(m_orvana);
}

void MainForm::showEvent(QShowEvent *event)
{
    updateTimerLbl();
    TrackingForm::showEvent(event);
}

void MainForm::paintEvent(QPaintEvent *event)
{
    TrackingForm::paintEvent(event);
    if (!m_wasPainted)
        QTimer::singleShot(kAfterPaint, this, &MainForm::finishStart);
    m_wasPainted = true;
}
