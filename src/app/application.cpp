#include "app/application.h"

#include "ui/accessiblecontrols.h"
#include "ui/mainform.h"

#include <QBackingStore>
#include <QEvent>
#include <QIcon>
#include <QScreen>
#include <QSessionManager>
#include <QWindow>

#include <algorithm>

namespace {

// Starting with the session is the business of the desktop's own autostart entry; a
// second copy would only be refused.
void stayOutOfSavedSessions(QSessionManager &manager)
{
    manager.setRestartHint(QSessionManager::RestartNever);
}

// Qt scales what is drawn from now on, but leaves windows and their buffers as large as they are.
void rescaleWindows()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (!window->windowHandle())
            continue;
        window->windowHandle()->resize(window->size());
        if (QBackingStore *buffer = window->backingStore())
            buffer->resize(window->size());
        window->update();
    }
}

void followScale(QScreen *screen)
{
    QObject::connect(screen, &QScreen::logicalDotsPerInchChanged, qApp, rescaleWindows, Qt::QueuedConnection);
}

} // namespace

// Resources in a static library are linked in only when they are asked for.
void registerResources()
{
    Q_INIT_RESOURCE(orvana);
}

void prepareApplication()
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
    // It would close the windows first, and cancel the end of the session where one
    // stays open.
    QGuiApplication::setFallbackSessionManagementEnabled(false);
}

Application::Application(int &argc, char **argv)
    : QApplication(argc, argv)
{
    registerResources();
    installAccessibleControls();
    setWindowIcon(QIcon(QStringLiteral(":/icons/trayActive.png")));
    setDesktopFileName(QStringLiteral("org.example.orvana"));
    const QList<QScreen *> present = screens();
    std::for_each(present.begin(), present.end(), followScale);
    connect(this, &QGuiApplication::screenAdded, this, followScale);
    connect(this, &QGuiApplication::commitDataRequest, this, stayOutOfSavedSessions, Qt::DirectConnection);
    connect(this, &QGuiApplication::saveStateRequest, this, stayOutOfSavedSessions, Qt::DirectConnection);
}

bool Application::event(QEvent *event)
{
    if (event->type() != QEvent::Quit)
        return QApplication::event(event);
    // Not as Qt does, which closes the windows first and stays when one does not.
    m_isAskedToQuit = true;
    quit();
    return true;
}

void Application::onClickOnDock()
{
    if (!m_mainForm)
        return;
    m_mainForm->show();
    m_mainForm->raise();
}
