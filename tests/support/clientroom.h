#pragma once

#include "localservice/server.h"
#include "texts.h"

#include <QDir>
#include <QHostAddress>
#include <QProcess>
#include <QSettings>
#include <QTcpServer>
#include <QTemporaryDir>

// The surroundings of the real client: a folder of its own, a task service, and a port where the
// test is the watcher.
class ClientRoom final
{
public:
    explicit ClientRoom(localservice::Server::Options options = {}, const QString &parent = QDir::tempPath())
        : server(std::move(options))
        , m_folder(parent + s("/orvana-test.XXXXXX"))
    {
        QString error;
        if (!server.start(&error) || !watcher.listen(QHostAddress::LocalHost))
            qFatal("no service: %s", qPrintable(error));
        QSettings(path(s("orvanx.conf")), QSettings::IniFormat)
            .setValue(s("watcher-port"), watcher.serverPort());
    }
    Q_DISABLE_COPY_MOVE(ClientRoom)

    QString path(const QString &name = QString()) const { return m_folder.filePath(name); }
    QString stored(const QString &name) const { return path(s(".orvana/") + name); }
    QString ofUser(const QString &name) const { return stored(s("anna@orvana.example/") + name); }
    // The number of records on the disk.
    int waiting() const { return QDir(ofUser(s("activity"))).entryList({s("json*")}, QDir::Files).size(); }

    // What an earlier run leaves: Anna is logged in and has chosen a task.
    void leaveUser(bool isTracking) const
    {
        QDir().mkpath(ofUser(s("activity")));
        QSettings(stored(s("config.ini")), QSettings::IniFormat)
            .setValue(s("lastLogin"), s("anna@orvana.example"));
        QSettings session(ofUser(s("session.ini")), QSettings::IniFormat);
        session.setValue(s("password"), s("orvana"));
        session.setValue(s("logged"), true);
        session.setValue(s("active"), isTracking);
        session.setValue(s("teamID"), s("17"));
        session.setValue(s("taskID"), s("1702"));
    }

    // For a client in this room; `time` as libfaketime reads it, such as "+0 x20", or the real one.
    QProcessEnvironment environment(const QString &time = QString()) const
    {
        QProcessEnvironment made = QProcessEnvironment::systemEnvironment();
        made.insert(s("ORVANA_SERVICE_URL"), server.baseUrl());
        made.insert(s("ORVANA_STORAGE_ROOT"), path());
        made.insert(s("ORVANA_CONFIG"), path(s("orvanx.conf")));
        made.insert(s("TMPDIR"), path());
        if (!time.isEmpty()) {
            // Not through the wrapper program, so that the child is the client itself.
            made.insert(s("LD_PRELOAD"), s("/usr/$LIB/faketime/libfaketimeMT.so.1"));
            made.insert(s("FAKETIME"), time);
            // The library of a sanitizer has to be the first that is loaded.
            made.insert(s("ASAN_OPTIONS"), s("verify_asan_link_order=0:detect_leaks=0"));
        }
        return made;
    }

    localservice::Server server;
    QTcpServer watcher;

private:
    QTemporaryDir m_folder;
};
