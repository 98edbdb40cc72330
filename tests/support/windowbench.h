#pragma once

#include "app/application.h"
#include "popups.h"
#include "testclient.h"
#include "texts.h"
#include "ui/accessiblecontrols.h"
#include "ui/mainform.h"
#include "ui/taskform.h"

#include <QAccessible>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QtWidgets>

#include <functional>
#include <memory>

/// One of several ways to do the same, for a table of tests.
using UserAction = std::function<void()>;
Q_DECLARE_METATYPE(UserAction)

inline void addUserAction(const char *name, const UserAction &action)
{
    QTest::newRow(name) << action;
}

/// The client's windows over a client of their own, styled as the program styles them; nobody has
/// worked yet today.
class WindowBench final
{
public:
    WindowBench()
    {
        applyStyle();
        server().edit([](localservice::World &world) {
            for (localservice::User &user : world.users)
                user.worked = {};
        });
    }
    ~WindowBench()
    {
        form.reset();
        NotificationManager::instance()->destroy();
    }
    Q_DISABLE_COPY_MOVE(WindowBench)

    static void applyStyle()
    {
        registerResources();
        installAccessibleControls();
        QFile style(s(":/qss/main.qss"));
        if (qApp->styleSheet().isEmpty() && style.open(QIODevice::ReadOnly))
            qApp->setStyleSheet(QString::fromUtf8(style.readAll().constData()));
    }

    localservice::Server &server() { return m_client.server; }
    Orvana *orvana() const { return m_client.orvana.get(); }
    Orvana::Session *session() const { return m_client.session(); }

    bool signIn(const QString &login = TestClient::anna(), const QString &password = s("orvana"))
    {
        return m_client.logIn(login, password) && refresh();
    }

    bool refresh()
    {
        QSignalSpy updated(session(), &Orvana::Session::teamsUpdated);
        orvana()->requestTeamsAndTasks();
        return (updated.count() > 0 || updated.wait()) && settle();
    }

    /// All replies are in.
    bool settle() const
    {
        return QTest::qWaitFor([this] { return orvana()->findChildren<QNetworkReply *>().isEmpty(); },
                               TestClient::waitLimit);
    }

    /// With everything that it asks at its start answered and its popups gone.
    bool openWindow()
    {
        form = std::make_unique<MainForm>(orvana());
        form->show();
        // The chooser comes with the first requests, once the window was painted.
        const auto isComplete = [this] { return form->findChild<TaskForm *>() != nullptr; };
        const bool ready = QTest::qWaitForWindowExposed(form.get())
            && QTest::qWaitFor(isComplete, TestClient::waitLimit) && settle();
        dropPopups();
        server().clearRequests();
        return ready;
    }

    /// Anna's window, with a task of her first team chosen.
    bool openFor(const QString &taskId)
    {
        if (!signIn())
            return false;
        orvana()->changeTask(s("17"), taskId);
        return openWindow();
    }

    void restartWithoutWindow()
    {
        form.reset();
        m_client.restart();
    }

    // As a screen reader does.
    static void press(QWidget *widget)
    {
        if (auto *actions = QAccessible::queryAccessibleInterface(widget)->actionInterface())
            actions->doAction(QAccessibleActionInterface::pressAction());
    }

    static void notify() { NotificationManager::instance()->addNotification(s("x"), TaskAdded, s("1704")); }

    static void dropPopups() { NotificationManager::instance()->destroy(); }

    static QStringList popupTexts() { return textsOf(shownPopups()); }

    template <typename T>
    T *child(const char *name) const
    {
        return form->findChild<T *>(QString::fromLatin1(name));
    }

private:
    TestClient m_client{true, NotificationManager::instance()};

public:
    std::unique_ptr<MainForm> form; // goes before the client
};
