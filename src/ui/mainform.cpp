#include "ui/mainform.h"

#include "base/timetexts.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "tracking/x11_useractivitywatcher.h"
#include "ui/aboutform.h"
#include "ui/taskform.h"
#include "ui/tasklistform.h"
#include "ui_mainform.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "widgets/simplemarkup.h"
#include "widgets/tooltips.h"
#include "x11/windowmanager.h"

#include <QDebug>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLocale>
#include <QMenu>
#include <QScreen>
#include <QShortcut>
#include <QStyle>

namespace {

using namespace std::chrono_literals;

constexpr auto kAfterPaint = 10ms; // what is painted goes out when the event loop rests
constexpr auto kLongestWaitForPaint = 1s; // on a desktop that does not show the window

const QMargins kTaskTextMargins(4, 2, 4, 2); // room for the focus ring
const QString kPickTask = QStringLiteral("Выбрать задачу");
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

// The same picture in a chosen row: it would be tinted there.
QIcon taskIcon(const QString &path)
{
    QIcon icon(path);
    icon.addFile(path, QSize(), QIcon::Selected);
    return icon;
}

// With the drawings for the sizes of small panels.
QIcon trayIcon(const QString &name)
{
    QIcon icon;
    for (const char *size : {"_16", "_22", ""})
        icon.addFile(QStringLiteral(":/icons/") + name + QLatin1String(size) + QStringLiteral(".png"));
    return icon;
}

void notify(const QString &text)
{
    NotificationManager::instance()->addNotification(text, Plain, QString());
}

} // namespace

MainForm::MainForm(Orvana *orvana, QWidget *parent)
    : AbstractOrvanaForm(parent)
    , m_ui(std::make_unique<Ui::MainForm>())
    , m_orvana(orvana)
{
    m_ui->setupUi(this);
    setBackground(QStringLiteral(":/images/main.png"));
    showOnAllDesktops(this);
    placeOnScreen();

    m_taskText = new ScrollText(true, this);
    m_taskText->setObjectName(QStringLiteral("lbTask"));
    m_taskText->setAccessibleDescription(kPickTask);
    m_taskText->setFocusPolicy(Qt::TabFocus);
    m_taskText->setCursor(Qt::PointingHandCursor);
    m_taskText->setContentsMargins(kTaskTextMargins);
    m_ui->taskLayout->addWidget(m_taskText);
    m_ui->pbTimeExtend->setStyleSheet(kTimeExtendStyle);
    m_taskText->installEventFilter(this);
    setTabOrder(m_ui->pbTask, m_taskText);
    setTabOrder(m_taskText, m_ui->pbMenu);
    initTimers();

    connectSignals();
    initMenu();
    initTrayIcon();
    connect(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity, this,
            &MainForm::setHasActivity);

    updateNoticeBtn();
    updatePlayBtn();
    updateTimerLbl();
    updateOverdueTime();

    NotificationManager::instance()->setMainForm(this);
    onTaskChange();
    if (m_orvana->session()->currentTaskID().isEmpty())
        notify(QStringLiteral("Выберите задачу для начала работы."));

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
    connect(session, &Orvana::Session::taskClosed, this, &MainForm::closeTask);
    connect(session, &Orvana::Session::overdueTimeChanged, this, &MainForm::updateOverdueTime);
    connect(session, &Orvana::Session::tasksUpdated, this, &MainForm::onTaskUpdated);
    connect(this, &MainForm::hideAll, this, &MainForm::hideAllHandler);
    connect(this, &MainForm::showAll, this, &MainForm::showAllHandler);
    connect(m_ui->pbComment, &QPushButton::clicked, m_orvana, qOverload<>(&Orvana::openTaskUrl));
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &MainForm::followScreen);
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens)
        followScreen(screen);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &MainForm::stayReachable);
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, &MainForm::stayReachable);
}

void MainForm::initMenu()
{
    m_menu = new QMenu(this);
    m_menu->addAction(m_ui->actionToggleVisible);
    m_menu->addSeparator();
    m_menu->addAction(m_ui->actionChangeAccount);
    m_menu->addAction(m_ui->actionAutostart);
    m_menu->addAction(m_ui->actionAbout);
    m_menu->addSeparator();
    m_menu->addAction(m_ui->actExit);
    m_ui->pbMenu->setMenu(m_menu);
}

void MainForm::initTrayIcon()
{
    m_trayMenu = std::make_unique<QMenu>();
    m_trayMenu->addAction(QStringLiteral("Спрятать/показать окно"), this,
                          &MainForm::toggleSeen);
    m_trayMenu->addAction(m_ui->actionStartStop);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_ui->actExit);
    m_trayIcon = new QSystemTrayIcon(this);
    m_trayIcon->setContextMenu(m_trayMenu.get());
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, &MainForm::trayActivated);
    updateTrayIcon();
}

// The window comes first: the tray icon, the library for encrypted requests and the
// windows that are opened from this one take longer than it does.
void MainForm::finishStart()
{
    if (m_taskForm)
        return;
    // An icon shown without a tray docks by itself as soon as one comes.
    m_trayIcon->show();
    syncTime();
    m_orvana->requestCheckUpdate();
    m_taskListForm = new TaskListForm(m_orvana, this);
    m_taskForm = new TaskForm(this, this);
    connect(m_taskForm, &TaskForm::accepted, this, &MainForm::onTaskFormAccepted);
}

// The corner under which the popups are stacked.
void MainForm::placeOnScreen()
{
    setFixedSize(size());
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        move(area.x() + area.width() - width(), area.y());
    }
}

// A window whose screen went away comes to one that is left, and a hidden one
// whose tray icon went away is shown again.
void MainForm::stayReachable()
{
    if (!QGuiApplication::screenAt(frameGeometry().center()))
        placeOnScreen();
    if (m_trayIcon && isHidden() && m_wasShown && !QSystemTrayIcon::isSystemTrayAvailable())
        emit showAll();
}

void MainForm::followScreen(QScreen *screen)
{
    connect(screen, &QScreen::availableGeometryChanged, this, &MainForm::placePopups);
    placePopups();
}

// They go where this window is, and stay clear of panels that come or go.
void MainForm::placePopups()
{
    NotificationManager::instance()->updatePositions();
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
        // A button that was never down says nothing: the session may have been
        // stored while tracking a task that is not there any more.
        if (session->isActive())
            stopTracking();
        m_ui->pbPlay->setCheckable(false);
        m_taskText->setText(kPickTask);
        m_ui->pbTask->setIcon(getTaskIcon(Task()));
        updateOverdueTime();
    }
    m_taskText->setToolTip(literalToolTip(m_taskText->text()));
    m_ui->pbComment->setProperty("task_id", taskId);
    m_ui->pbComment->setEnabled(hasTask && !task.isCatchAll());
    m_ui->pbTimeExtend->setEnabled(hasTask);
    m_ui->lbComment->setText(QLocale::c().toString(task.lastComment, QStringLiteral("dd.MM hh:mm")));
    updatePlayBtn();
    updateTrayToolTip();
}

// Ticks of the user before must not make up a minute of this one.
void MainForm::updateForNewLogin()
{
    const QString login = m_orvana->session()->login();
    if (m_trackedLogin != login) {
        m_hasActivity = false;
        m_tickCount = 0;
        m_activeTicks = 0;
        m_trackedLogin = login;
    }
    updateTimerLbl();
    onTaskChange();
}

void MainForm::onTaskUpdated(const QString &teamId)
{
    if (teamId == m_orvana->session()->currentTeamID())
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
    const QString action = active ? QStringLiteral("Стоп") : QStringLiteral("Старт");
    m_ui->pbPlay->setToolTip(session->currentTaskID().isEmpty() ? kPickTask : action);
}

void MainForm::updateTimerLbl()
{
    const Orvana::Session *session = m_orvana->session();
    const QTime time = m_showsActiveTime ? session->todayActiveTimeDisplayed() : session->todayTime();
    m_ui->lbClock->setText(QLocale::c().toString(time, QStringLiteral("hh:mm:ss")));
}

void MainForm::updateOverdueTime()
{
    const Orvana::Session *session = m_orvana->session();
    const QString taskId = session->currentTaskID();
    const QDateTime deadline = session->currentDeadline();
    const bool isOverdue = !taskId.isEmpty() && taskId != kCatchAllId && deadline.isValid()
        && session->overdueTime() >= 0;
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
    const bool active = m_orvana->session()->isActive();
    const bool attention = NotificationManager::instance()->hasVisibleNotifications();
    QString name = active ? QStringLiteral("trayActive") : QStringLiteral("trayNotActive");
    if (attention)
        name = active ? QStringLiteral("trayActive_attention") : QStringLiteral("trayNotactive_attention");
    if (name != m_trayIconName) {
        m_trayIconName = name;
        m_trayIcon->setIcon(trayIcon(name));
    }
    updateTrayToolTip();
}

void MainForm::updateTrayToolTip()
{
    const Orvana::Session *session = m_orvana->session();
    const QString state =
        session->isActive() ? QStringLiteral("Идёт запись") : QStringLiteral("Запись остановлена");
    QString text = state + QLatin1Char('\n') + titleLine(m_taskText->text()) + QStringLiteral("\nСегодня: ")
        + QLocale::c().toString(session->todayTime(), QStringLiteral("hh:mm"));
    const ActivityCache::Backlog backlog = m_orvana->backlog();
    const QString waiting = backlogText(backlog.count, backlog.oldest, QDateTime::currentDateTime());
    if (!waiting.isEmpty())
        text += QLatin1Char('\n') + waiting;
    // Every setting is sent to the panel.
    if (m_trayIcon->toolTip() != text)
        m_trayIcon->setToolTip(text);
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
    // Rules that ask for a property are looked up anew only then.
    m_ui->pbNotice->style()->unpolish(m_ui->pbNotice);
    m_ui->pbNotice->style()->polish(m_ui->pbNotice);
}

void MainForm::updateOnlineState(const QString &reason)
{
    const bool online = m_orvana->session()->isOnline();
    qDebug() << "Online state is" << online;
    updatePlayBtn();
    notify(
        reason
        + (online ? QStringLiteral("Переход в онлайн-режим.") : QStringLiteral("Переход в оффлайн-режим.")));
}

int MainForm::notificationOffset() const
{
    return isVisible() && !isMinimized() ? height() : 0;
}

QRect MainForm::notificationArea() const
{
    return Placement::freeArea(this);
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

void MainForm::paintEvent(QPaintEvent *event)
{
    AbstractOrvanaForm::paintEvent(event);
    if (!m_wasPainted)
        QTimer::singleShot(kAfterPaint, this, &MainForm::finishStart);
    m_wasPainted = true;
}
