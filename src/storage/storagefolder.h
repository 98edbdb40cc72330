#pragma once

#include <QDir>
#include <QString>

#include <sys/types.h>

// The folder that holds everything the client keeps on the disk. One running client at a
// time uses it; the lock ends with the process, however that ends.
class StorageFolder final
{
public:
    explicit StorageFolder(const QString &path);
    ~StorageFolder();
    Q_DISABLE_COPY_MOVE(StorageFolder)

    QDir dir() const { return QDir(m_path); }

    // A folder of this user's own that no other client has locked. Nothing may be read
    // from it or written to it otherwise. Checked on the disk each time: where everybody
    // may write, it may be taken away and replaced.
    bool isUsable() const;
    // Makes and locks it when it is missing or was replaced; returns isUsable().
    bool prepare();
    // Another running client has it, as of the last prepare().
    bool isTaken() const { return m_isTaken; }
    // False, too, when the folder was removed and made again since, or its file system has no locks.
    bool holdsLock() const;
    // What the user is to know about a folder that cannot be used.
    QString unusableText() const;

    // Absolute path of the folder with one user's files, which need not exist.
    QString ofUser(const QString &login) const { return ofUser(dir(), login); }
    static QString ofUser(const QDir &storage, const QString &login);

    // Makes a folder, with those above it, for this user alone.
    static void makeFolder(const QString &path);
    // Deletes what older versions left: common files and, with a login, this user's.
    void removeDeprecatedFiles(const QString &login, const QStringList &teamIds) const;
    // Deletes a folder with everything in it; follows no links.
    static void removeDir(const QString &path);

private:
    bool isOurs(mode_t *permissions) const;
    void lock();

    QString m_path;
    int m_lock = -1;
    bool m_isTaken = false;
    bool m_hasWarned = false;
};
