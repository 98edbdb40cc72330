#include "notifications/notificationform.h"

#include "base/shortened.h"
#include "notifications/notificationhost.h"
#include "ui_notificationform.h"
#include "widgets/activation.h"
#include "widgets/artwork.h"
#include "widgets/autoscrolllineedit.h"
#include "widgets/placement.h"
#include "x11/windowmanager.h"

#include <QGraphicsOpacityEffect>
#include <QImage>
#include <QPainter>
#include <QPropertyAnimation>

#include <chrono>

namespace {

using namespace std::chrono_literals;

constexpr auto kShownFor = 5s;
constexpr auto kFade = 300ms;
const QRect kBackground(0, 0, 179, 107);
const QString kPane = QStringLiteral(":/images/bg_notifications_withLogo.png");
const QRect kMessage(10, 20, 161, 70);
constexpr int kMessageHeightAboveButtons = 40;
// Nobody reads more in a box this small, and laying out megabytes takes minutes.
constexpr int kLongestMessage = 2000;
constexpr int kMovesBack = 5;

QRect availableArea(const NotificationHost *host)
{
    return host ? host->notificationArea() : Placement::freeArea(nullptr);
}

QPoint placeOf(int position, const NotificationHost *host)
{
    const QRect area = availableArea(host);
    const int offset = host ? host->notificationOffset() : 0;
    return {area.x() + area.width() - kBackground.width(),
            area.y() + position * kBackground.height() + offset};
}

} // namespace

NotificationForm::NotificationForm(const QString &text, NotificationType type, const QString &taskId,
                                   NotificationHost *host, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::NotificationForm>())
    , m_type(type)
    , m_host(host)
    , m_taskId(taskId)
{
    setObjectName(QStringLiteral("NotificationForm"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowFlags((windowFlags() & Qt::Dialog) | Qt::Popup | Qt::FramelessWindowHint
                   | Qt::WindowStaysOnTopHint);
    // Of the kind that the flags make of it, a window is hidden on some desktops while
    // the user works in another program.
    setAttribute(Qt::WA_X11NetWmWindowTypeNotification);
    showOnAllDesktops(this);
    keepOutOfTaskbar(this);
    setFixedSize(kBackground.size());
    m_closeTimer.setInterval(kShownFor);
    connect(&m_closeTimer, &QTimer::timeout, this, &NotificationForm::onPbLateClicked);

    setWindowTitle(QStringLiteral("Dialog"));
    const QString words = shortened(getMessage(text, type), kLongestMessage);
    setAccessibleName(words);

    auto *message = new AutoScrollLineEdit(this);
    message->setObjectName(QStringLiteral("leMessage"));
    message->setText(words);
    message->setAlignment(Qt::AlignCenter);
    message->setGeometry(kMessage);
    if (m_type == UpdateAvailable) {
        m_ui->setupUi(this);
        message->resize(message->width(), kMessageHeightAboveButtons);
        connect(m_ui->pbLate, &QPushButton::clicked, this, &NotificationForm::onPbLateClicked);
        connect(m_ui->pbUpdate, &QPushButton::clicked, this, &NotificationForm::onPbUpdateClicked);
        for (QPushButton *button : {m_ui->pbUpdate, m_ui->pbLate}) {
            button->setObjectName(QStringLiteral("pbOrvana"));
            button->installEventFilter(this);
        }
    } else {
        // Clicks on the text are clicks on the popup.
        message->setAttribute(Qt::WA_TransparentForMouseEvents);
        installEventFilter(this);
    }
    if (!isPermanentNotification())
        message->setTimeToRead(kShownFor);
}

NotificationForm::~NotificationForm() = default;

QString NotificationForm::getMessage(const QString &text, NotificationType type)
{
    return notificationMessage(text, type);
}

bool NotificationForm::isPermanentNotification() const
{
    return staysUntilClicked(m_type);
}

bool NotificationForm::isTaskNotify() const
{
    return opensTask(m_type);
}

void NotificationForm::updatePosition(int position)
{
    m_position = position;
    const QPoint place = placeOf(position, m_host);
    if (pos() != place)
        move(place);
}

bool NotificationForm::fitsOnScreen(int position, const NotificationHost *host)
{
    const QRect area = availableArea(host);
    const int top = placeOf(position, host).y();
    return top >= 0 && top + kBackground.height() <= area.y() + area.height();
}

// One more character than is shown, so that what was cut still ends in an ellipsis.
QString NotificationForm::textToKeep(const QString &text)
{
    return text.left(kLongestMessage + 1);
}

void NotificationForm::closeNotification()
{
    if (m_closing)
        return;
    m_closing = true;
    m_closeTimer.stop();
    auto *effect = new QGraphicsOpacityEffect(this);
    effect->setOpacity(1.0);
    setGraphicsEffect(effect);
    auto *fade = new QPropertyAnimation(effect, "opacity", this);
    fade->setDuration(static_cast<int>(std::chrono::milliseconds(kFade).count()));
    fade->setStartValue(effect->opacity());
    fade->setEndValue(0.0);
    fade->setEasingCurve(QEasingCurve::OutQuad);
    connect(fade, &QPropertyAnimation::finished, this, &NotificationForm::notificationClosed);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

void NotificationForm::onPbLateClicked()
{
    closeNotification();
}

void NotificationForm::onPbUpdateClicked()
{
    if (!m_closing && m_host && m_host->installUpdate())
        closeNotification();
}

void NotificationForm::openTaskIfAny()
{
    if (!m_closing && isTaskNotify() && !m_taskId.isEmpty() && m_host)
        m_host->openTask(m_taskId);
}

bool NotificationForm::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == this && event->type() == QEvent::MouseButtonPress) {
        if (static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton)
            openTaskIfAny();
        closeNotification();
    }
    return (watched != this && isStrayKey(event)) || QDialog::eventFilter(watched, event);
}

// The window manager may give the focus to a popup while something is typed elsewhere:
// a key that would act is the user's only after a click or Tab in here.
bool NotificationForm::isStrayKey(const QEvent *event) const
{
    return !m_isAttended && event->type() == QEvent::KeyPress && isActivation(event);
}

bool NotificationForm::event(QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress)
        m_isAttended = true;
    else if (event->type() == QEvent::WindowDeactivate)
        m_isAttended = false;
    return isStrayKey(event) || QDialog::event(event);
}

bool NotificationForm::focusNextPrevChild(bool next)
{
    m_isAttended = true;
    return QDialog::focusNextPrevChild(next);
}

// Enter is the left click, Esc (by way of reject()) the other one.
void NotificationForm::keyPressEvent(QKeyEvent *event)
{
    const bool isEnter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (isEnter && m_type != UpdateAvailable)
        press();
    else
        QDialog::keyPressEvent(event);
}

void NotificationForm::press()
{
    openTaskIfAny();
    closeNotification();
}

// Also what the window manager asks for: a dialog that only hid itself would keep
// its slot in the stack.
void NotificationForm::reject()
{
    closeNotification();
}

void NotificationForm::setVisible(bool visible)
{
    // Some window managers keep every window that they manage below a full-screen one in use, and
    // some, of Wayland compositors above all, place them as they like: over the clock.
    if (visible && isHidden())
        setWindowFlag(Qt::X11BypassWindowManagerHint, isFullScreenWindowActive() || !canMoveWindows());
    QDialog::setVisible(visible);
}

void NotificationForm::showEvent(QShowEvent *event)
{
    Artwork::trimToPane(this, Artwork::load(kPane));
    QDialog::showEvent(event);
    m_movesBack = kMovesBack;
    if (!isPermanentNotification())
        m_closeTimer.start();
}

// A window manager that is still letting go of a window just hidden puts it back where it was,
// over the place that it was given meanwhile. Not without end: one may insist.
void NotificationForm::moveEvent(QMoveEvent *event)
{
    QDialog::moveEvent(event);
    if (!isVisible() || m_movesBack == 0 || pos() == placeOf(m_position, m_host))
        return;
    --m_movesBack;
    QMetaObject::invokeMethod(
        this, [this] { updatePosition(m_position); }, Qt::QueuedConnection);
}

void NotificationForm::hideEvent(QHideEvent *event)
{
    QDialog::hideEvent(event);
    m_closeTimer.stop();
}

void NotificationForm::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    // The main window may have come or gone meanwhile.
    updatePosition(m_position);
    QPainter painter(this);
    Artwork::drawPane(painter, kBackground, Artwork::load(kPane));
}
