#include "app/application.h"

#include "ui/accessiblecontrols.h"
#include "ui/mainform.h"

// Resources in a static library are linked in only when they are asked for.
void registerResources()
{
    Q_INIT_RESOURCE(orvana);
}

Application::Application(int &argc, char **argv)
    : QApplication(argc, argv)
{
    registerResources();
    installAccessibleControls();
}

void Application::onClickOnDock()
{
    if (!m_mainForm)
        return;
    m_mainForm->show();
    m_mainForm->raise();
}
