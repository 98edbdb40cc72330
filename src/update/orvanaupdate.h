#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantList>

#include <memory>

class Orvana;
class SettingsFile;

// What is known of newer versions, and the notes that the client and the updater
// program leave each other in the file "update.json" (INI) of the storage
// directory. Before init() everything reads as its default.
class OrvanaUpdate final
{
public:
    // Created on first use, never deleted.
    static OrvanaUpdate *instance();

    void init(Orvana *client);

    // Stores the version description; what is no JSON array is stored as an
    // empty list.
    void addUpdateInfo(const QByteArray &body);
    QVariantList updateList() const;
    // Empty when no entry names a version.
    QString availableUpdateVersion() const;

    bool isUpdateAtStartup() const;
    bool wasUpdated() const;
    void setWasUpdated(bool updated);
    // Reads the file again only when another process may have changed it.
    bool isForceUpdate();
    // When it cannot be written it holds until the file changes.
    void setForceUpdate(bool force);

    // Puts the updater that the previous update left in the storage directory
    // into the working directory.
    void updateOrvanaUpdateModule();

private:
    struct FileStamp
    {
        qint64 modified = -1; // ns since the epoch; -1 when there is no file
        qint64 changed = 0; // ns since the epoch; unlike the former it can't be set
        quint64 inode = 0;
        qint64 size = 0;
        bool isVersionOf(const FileStamp &other) const;
    };

    OrvanaUpdate();
    ~OrvanaUpdate() = default;
    Q_DISABLE_COPY_MOVE(OrvanaUpdate)

    void offerUpdate(const QByteArray &body);
    bool isUsable() const;
    FileStamp stamp() const;
    bool flag(const QString &key) const;
    bool store(const QString &key, const QVariant &value);
    bool readRequest();

    QPointer<Orvana> m_client;
    QMetaObject::Connection m_connection;
    std::unique_ptr<SettingsFile> m_settings;
    FileStamp m_read; // when the request was read last
    bool m_isCurrent = false; // nothing has changed since, nor can have unseen
    FileStamp m_refused; // the file whose request could not be cleared
    bool m_forceUpdate = false;
};
