#pragma once

#include <QObject>

typedef struct _SmsConn *SmsConn;
typedef struct _IceConn *IceConn;
typedef struct _IceListenObj *IceListenObj;

// A desktop's session manager, with one client.
class SessionManager final : public QObject
{
public:
    SessionManager();
    ~SessionManager() override;
    Q_DISABLE_COPY_MOVE(SessionManager)

    QString address() const;

    // Asks whether the session may end, as at a logout.
    void askToEnd();
    void end();
    void breakConnection();

    int agreed = 0;
    int refused = 0;
    int questions = 0; // that the client asked to show to the user
    bool isStartedAgain = true; // with the next session

private:
    struct Calls;

    void accept(IceListenObj listener);
    void drop(IceConn connection);

    SmsConn m_client = nullptr;
    IceListenObj *m_listeners = nullptr;
    int m_count = 0;
};
