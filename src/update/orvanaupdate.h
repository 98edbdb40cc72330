#pragma once

#include <QByteArray>
#include <QPointer>
#include <QString>
#include <QVariantList>

#include <memory>

class Orvana;
class QSettings;

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
    // Looks at the file again only when another process has changed it.
    bool isForceUpdate();
    void setForceUpdate(bool force);

    // Puts the updater that the previous update left in the storage directory
    // into the working directory.
    void updateOrvanaUpdateModule();

private:
    struct FileStamp
    {
        qint64 seconds = -1;
        qint64 nanoseconds = 0;
        quint64 inode = 0;
        qint64 size = 0;
        bool operator==(const FileStamp &other) const;
    };

    OrvanaUpdate();
    ~OrvanaUpdate() = default;
    Q_DISABLE_COPY_MOVE(OrvanaUpdate)

    bool isUsable() const;
    FileStamp stamp() const;
    bool flag(const QString &key) const;
    void setFlag(const QString &key, bool value);

    QPointer<Orvana> m_client;
    std::unique_ptr<QSettings> m_settings;
    FileStamp m_seen;
    bool m_forceUpdate = false; // as the file said then
};
