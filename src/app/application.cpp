#include "app/application.h"

#include "ui/accessiblecontrols.h"
#include "ui/mainform.h"

#include <QEvent>
#include <QIcon>
#include <QSessionManager>
#include <QtPlugin>

Q_IMPORT_PLUGIN(PngPlugin)

namespace {

// Starting with the session is the business of the desktop's own autostart entry; a
// second copy would only be refused.
void stayOutOfSavedSessions(QSessionManager &manager)
{
    manager.setRestartHint(QSessionManager::RestartNever);
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
