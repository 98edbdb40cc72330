#pragma once

#include "app/application.h"
#include "testclient.h"
#include "ui/accessiblecontrols.h"
#include "ui/mainform.h"
#include "ui/taskform.h"
#include "windowparts.h"

#include <QNetworkReply>

#include <functional>
#include <memory>
#include <vector>

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
        others.clear();
        form.reset();
        dropPopups();
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
    bool signInOther() { return signIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я")); }

    bool refresh()
    {
        QSignalSpy updated(session(), &Orvana::Session::teamsUpdated);
        orvana()->requestTeamsAndTasks();
        return (updated.count() > 0 || updated.wait()) && settle();
    }

    /// The client has noticed what was edited.
    bool change(const std::function<void(localservice::World &)> &edit)
    {
        server().edit(edit);
        return refresh();
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
        // The tray icon comes with the first requests, once the window was painted.
        const auto isComplete = [this] { return form->findChild<QSystemTrayIcon *>()->isVisible(); };
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

    static void dropPopups() { NotificationManager::instance()->destroy(); }
    static QStringList popupTexts() { return ::popupTexts(); }

    template <typename T = QPushButton>
    T *child(const char *name) const
    {
        return part<T>(form.get(), name);
    }

private:
    TestClient m_client{true, NotificationManager::instance()};

public:
    std::unique_ptr<MainForm> form; // goes before the client
    std::vector<std::unique_ptr<QWidget>> others; // go before both
};
