#include "ui/trayicon.h"

#include "base/timetexts.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "widgets/simplemarkup.h"

#include <QGuiApplication>
#include <QLocale>
#include <QMenu>
#include <QStyleHints>

namespace {

constexpr int kMinute = 60 * 1000; // ms

// With the drawings for the sizes of small panels.
QIcon iconNamed(const QString &name)
{
    QIcon icon;
    for (const char *size : {"_16", "_22", ""})
        icon.addFile(QStringLiteral(":/icons/") + name + QLatin1String(size) + QStringLiteral(".png"));
    return icon;
}

} // namespace

TrayIcon::TrayIcon(Orvana *orvana, QAction *startStop, QAction *exit, QObject *parent)
    : QSystemTrayIcon(parent)
    , m_orvana(orvana)
    , m_menu(std::make_unique<QMenu>())
{
    m_menu->addAction(QStringLiteral("Спрятать/показать окно"), this, &TrayIcon::toggleRequested);
    m_menu->addAction(startStop);
    m_menu->addSeparator();
    m_menu->addAction(exit);
    setContextMenu(m_menu.get());
    connect(orvana->session(), &Orvana::Session::activeChanged, this, &TrayIcon::update);
    connect(orvana->session(), &Orvana::Session::timeUpdated, this, [this] {
        if (m_orvana->session()->todayTime().msecsSinceStartOfDay() / kMinute != m_minute)
            updateToolTip();
    });
    update();
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::setTaskTitle(const QString &title)
{
    m_taskTitle = titleLine(title);
    updateToolTip();
}

void TrayIcon::update()
{
    const bool active = m_orvana->session()->isActive();
    QString name = active ? QStringLiteral("trayActive") : QStringLiteral("trayNotActive");
    if (NotificationManager::instance()->hasVisibleNotifications())
        name = active ? QStringLiteral("trayActive_attention") : QStringLiteral("trayNotactive_attention");
    if (name != m_iconName) {
        m_iconName = name;
        setIcon(iconNamed(name));
    }
    updateToolTip();
}

void TrayIcon::updateToolTip()
{
    const Orvana::Session *session = m_orvana->session();
    m_minute = session->todayTime().msecsSinceStartOfDay() / kMinute;
    const QString state =
        session->isActive() ? QStringLiteral("Идёт запись") : QStringLiteral("Запись остановлена");
    QString text = state + QLatin1Char('\n') + m_taskTitle + QStringLiteral("\nСегодня: ")
        + QLocale::c().toString(session->todayTime(), QStringLiteral("hh:mm"));
    const ActivityCache::Backlog backlog = m_orvana->backlog();
    const QString waiting = backlogText(backlog.count, backlog.oldest, QDateTime::currentDateTime());
    if (!waiting.isEmpty())
        text += QLatin1Char('\n') + waiting;
    // Every setting is sent to the panel.
    if (toolTip() != text)
        setToolTip(text);
}

void TrayIcon::handleActivation(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != Trigger && reason != DoubleClick)
        return;
    // Panels report a double click as two clicks, or as a click and a double click:
    // what the first has shown, the second must not hide.
    const bool isSecond = reason == DoubleClick
        || (m_sinceClick.isValid()
            && !m_sinceClick.hasExpired(QGuiApplication::styleHints()->mouseDoubleClickInterval()));
    m_sinceClick.start();
    if (isSecond)
        emit showRequested();
    else
        emit toggleRequested();
}
