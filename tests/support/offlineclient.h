#pragma once

#include "cannedreply.h"
#include "notices.h"
#include "tasknotes.h"
#include "texts.h"

#include "service/orvana.h"
#include "service/ovsession.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>

// A client with a storage folder of its own and no service: its requests are taken before
// the event loop can send them, and answered by the test.
class OfflineClient final
{
    Q_DISABLE_COPY_MOVE(OfflineClient)

public:
    OfflineClient() { restart(); }
    explicit OfflineClient(const QString &user, const QString &password = s("pw"))
        : OfflineClient()
    {
        login(user, password);
    }

    Orvana *operator->() const { return m_orvana.get(); }
    Orvana *get() const { return m_orvana.get(); }
    Orvana::Session *session() const { return m_orvana->session(); }
    Notices &notices() { return m_notices; }

    void stop() { m_orvana.reset(); }
    // As after a restart of the whole program.
    void restart(const QByteArray &serviceUrl = QByteArrayLiteral("https://service.invalid"))
    {
        stop();
        qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(m_folder.path()));
        qputenv("ORVANA_SERVICE_URL", serviceUrl);
        m_orvana = std::make_unique<Orvana>(&m_notices);
    }

    QString path(const QString &name) const { return m_folder.path() + QLatin1String("/.orvana/") + name; }

    // Reports and screenshots of a user that wait on the disk.
    int records(const QString &user = s("user")) const
    {
        return QDir(path(user + s("/activity"))).entryList({s("json*")}, QDir::Files).size();
    }

    // A settings file as another program finds it: a copy is read, for Qt shares
    // what it knows of a file within a process.
    QVariantMap stored(const QString &file) const
    {
        const QTemporaryDir elsewhere;
        const QString copy = elsewhere.filePath(s("copy.ini"));
        QFile::copy(path(file), copy);
        const QSettings settings(copy, QSettings::IniFormat);
        QVariantMap values;
        for (const QString &key : settings.allKeys())
            values.insert(key, settings.value(key));
        return values;
    }
    QVariant stored(const QString &file, const QString &key) const { return stored(file).value(key); }
    QStringList storedKeys(const QString &file) const { return stored(file).keys(); }

    void login(const QString &login, const QString &password = s("pw"))
    {
        m_orvana->requestCheckLogin(login, password);
        answer(takeRequests().last(), QByteArrayLiteral("{}"));
    }

    // Lists of teams and tasks come in; requests for details follow.
    void load(const QStringList &lists)
    {
        m_orvana->requestTeamsAndTasks();
        answer(takeRequests().last(), listsReply(lists));
    }

    // Requests under way, in their order. They belong to the caller and are never sent.
    QVector<std::shared_ptr<QNetworkReply>> takeRequests()
    {
        QVector<std::shared_ptr<QNetworkReply>> requests;
        auto *network = m_orvana->findChild<QNetworkAccessManager *>();
        if (!network)
            return requests;
        const auto replies = network->findChildren<QNetworkReply *>(QString(), Qt::FindDirectChildrenOnly);
        for (QNetworkReply *reply : replies) {
            reply->setParent(nullptr);
            reply->disconnect(network);
            requests.append(std::shared_ptr<QNetworkReply>(reply));
        }
        return requests;
    }

    // Lets the client do what it has put off, but for its requests.
    void runQueued() const
    {
        QCoreApplication::sendPostedEvents(m_orvana->findChild<ReportSender *>(), QEvent::MetaCall);
    }

    // True when the client has deleted the reply afterwards, as it must.
    bool answer(const QNetworkReply &request, const QByteArray &body,
                QNetworkReply::NetworkError error = QNetworkReply::NoError)
    {
        const QPointer<CannedReply> reply(new CannedReply(body, error));
        reply->answer(request);
        m_orvana->replyFinished(reply);
        QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
        return reply.isNull();
    }
    bool answer(const std::shared_ptr<QNetworkReply> &request, const QByteArray &body,
                QNetworkReply::NetworkError error = QNetworkReply::NoError)
    {
        return answer(*request, body, error);
    }

private:
    // In memory where there is room for that: settings are flushed at each save,
    // and hundreds of clients would wait for the disk.
    QTemporaryDir m_folder{(QFileInfo(s("/dev/shm")).isWritable() ? s("/dev/shm") : QDir::tempPath())
                           + s("/orvana-test.XXXXXX")};
    Notices m_notices;
    std::unique_ptr<Orvana> m_orvana;
};
