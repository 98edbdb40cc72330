#include "sessionmanager.h"

#include "texts.h"

#include <QSocketNotifier>

#include <cstdlib>
#include <cstring>

#include <sys/socket.h>

#include <X11/ICE/ICElib.h>
#include <X11/ICE/ICEutil.h>
#include <X11/SM/SMlib.h>

// What the library calls.
struct SessionManager::Calls
{
    static SessionManager *self(SmPointer data) { return static_cast<SessionManager *>(data); }

    static Bool admit(char *) { return True; }

    static Status enroll(SmsConn client, SmPointer, char *before)
    {
        std::free(before);
        char *id = SmsGenerateClientID(client);
        SmsRegisterClientReply(client, id);
        std::free(id);
        SmsSaveYourself(client, SmSaveLocal, False, SmInteractStyleNone, False);
        return 1;
    }

    static void interact(SmsConn client, SmPointer data, int)
    {
        ++self(data)->questions;
        SmsInteract(client);
    }

    static void done(SmsConn client, SmPointer data, Bool success)
    {
        ++(success ? self(data)->agreed : self(data)->refused);
        SmsSaveComplete(client);
    }

    static void close(SmsConn client, SmPointer data, int count, char **reasons)
    {
        SmFreeReasons(count, reasons);
        self(data)->drop(SmsGetIceConnection(client));
    }

    static void setProperties(SmsConn, SmPointer data, int count, SmProp **properties)
    {
        for (int i = 0; i < count; ++i) {
            if (std::strcmp(properties[i]->name, SmRestartStyleHint) == 0)
                self(data)->isStartedAgain =
                    *static_cast<char *>(properties[i]->vals->value) != SmRestartNever;
            SmFreeProperty(properties[i]);
        }
        std::free(properties);
    }

    static Status meet(SmsConn client, SmPointer data, unsigned long *mask, SmsCallbacks *calls, char **)
    {
        self(data)->m_client = client;
        *mask = SmsRegisterClientProcMask | SmsInteractRequestProcMask | SmsInteractDoneProcMask
            | SmsSaveYourselfRequestProcMask | SmsSaveYourselfP2RequestProcMask | SmsSaveYourselfDoneProcMask
            | SmsCloseConnectionProcMask | SmsSetPropertiesProcMask | SmsDeletePropertiesProcMask
            | SmsGetPropertiesProcMask;
        calls->register_client = {enroll, data};
        calls->interact_request = {interact, data};
        calls->interact_done = {[](SmsConn, SmPointer, Bool) {}, data};
        calls->save_yourself_request = {[](SmsConn, SmPointer, int, Bool, int, Bool, Bool) {}, data};
        calls->save_yourself_phase2_request = {[](SmsConn c, SmPointer) { SmsSaveYourselfPhase2(c); }, data};
        calls->save_yourself_done = {done, data};
        calls->close_connection = {close, data};
        calls->set_properties = {setProperties, data};
        calls->delete_properties = {[](SmsConn, SmPointer, int, char **) {}, data};
        calls->get_properties = {[](SmsConn, SmPointer) {}, data};
        return 1;
    }
};

SessionManager::SessionManager()
{
    char error[256] = "";
    IceSetIOErrorHandler([](IceConn) {});
    if (!SmsInitialize("test", "1", Calls::meet, this, Calls::admit, sizeof error, error)
        || !IceListenForConnections(&m_count, &m_listeners, sizeof error, error))
        qFatal("no session manager: %s", error);
    for (int i = 0; i < m_count; ++i) {
        IceListenObj listener = m_listeners[i];
        IceSetHostBasedAuthProc(listener, Calls::admit);
        auto *notifier =
            new QSocketNotifier(IceGetListenConnectionNumber(listener), QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, listener] { accept(listener); });
    }
}

SessionManager::~SessionManager()
{
    IceFreeListenObjs(m_count, m_listeners);
}

QString SessionManager::address() const
{
    char *list = IceComposeNetworkIdList(m_count, m_listeners);
    const QString text = s(list);
    std::free(list);
    return text;
}

void SessionManager::askToEnd()
{
    SmsSaveYourself(m_client, SmSaveBoth, True, SmInteractStyleAny, False);
}

void SessionManager::end()
{
    SmsDie(m_client);
}

void SessionManager::breakConnection()
{
    ::shutdown(IceConnectionNumber(SmsGetIceConnection(m_client)), SHUT_RDWR);
}

void SessionManager::accept(IceListenObj listener)
{
    IceAcceptStatus status = IceAcceptFailure;
    IceConn connection = IceAcceptConnection(listener, &status);
    if (!connection)
        return;
    auto *notifier = new QSocketNotifier(IceConnectionNumber(connection), QSocketNotifier::Read, this);
    notifier->setObjectName(QString::number(IceConnectionNumber(connection)));
    connect(notifier, &QSocketNotifier::activated, this, [this, connection] {
        if (IceProcessMessages(connection, nullptr, nullptr) == IceProcessMessagesIOError)
            drop(connection);
    });
}

void SessionManager::drop(IceConn connection)
{
    auto *notifier = findChild<QSocketNotifier *>(QString::number(IceConnectionNumber(connection)));
    notifier->setEnabled(false);
    notifier->setObjectName(QString());
    notifier->deleteLater();
    IceCloseConnection(connection);
}
