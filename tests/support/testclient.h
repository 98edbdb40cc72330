#pragma once

#include "base/buildvalues.h"
#include "localservice/server.h"
#include "notices.h"
#include "rows.h"
#include "service/orvana.h"
#include "service/ovsession.h"

#include <memory>

// A client with a storage root of its own against a task service in this process.
class TestClient final
{
public:
    // Without a sink the client's notices are kept here.
    explicit TestClient(bool startService = true, NotificationSink *sink = nullptr)
        : m_sink(sink ? sink : &notices)
    {
        QCoreApplication::setApplicationName(s(ORVANA_APPLICATION_NAME));
        QCoreApplication::setApplicationVersion(s(ORVANA_VERSION));
        qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(m_root.path()));
        if (startService) {
            QString error;
            if (!server.start(&error))
                qFatal("%s", qPrintable(error));
            qputenv("ORVANA_SERVICE_URL", server.baseUrl().toLatin1());
        }
        restart();
    }
    Q_DISABLE_COPY_MOVE(TestClient)

    // What a new start of the program finds on the disk.
    void restart()
    {
        orvana.reset();
        orvana = std::make_unique<Orvana>(m_sink);
    }

    Orvana::Session *session() const { return orvana->session(); }

    bool logIn(const QString &login = anna(), const QString &password = s("orvana"))
    {
        QSignalSpy accepted(orvana.get(), &Orvana::loginOk);
        orvana->requestCheckLogin(login, password);
        return accepted.count() > 0 || accepted.wait(waitLimit);
    }

    static QString anna() { return s("anna@orvana.example"); }

    QDir cacheFolder() const
    {
        return QDir(StorageFolder::ofUser(orvana->storageDirectory(), session()->login()) + s("/activity"));
    }
    QStringList records() const { return cacheFolder().entryList({s("json*")}, QDir::Files, QDir::Name); }
    QStringList pictures() const { return cacheFolder().entryList({s("*.jpg")}, QDir::Files); }

    static constexpr int waitLimit = 10000; // ms

    Notices notices;
    localservice::Server server;
    std::unique_ptr<Orvana> orvana;

private:
    QTemporaryDir m_root;
    NotificationSink *m_sink;
};
