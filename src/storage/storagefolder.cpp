#include "storage/storagefolder.h"

#include "base/log.h"

#include <QCryptographicHash>
#include <QFile>
#include <QUrl>

#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kLockName = QStringLiteral("lock");
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

// Names in the storage folder that mean something else there.
bool isReserved(const QString &name)
{
    for (const char *reserved :
         {".", "..", "cached", "update", "lock", "control", "log.log", "config.ini", ".new-config.ini",
          ".new-config.ini.lock", "update.json", "update.json.lock", ".new-update.json",
          ".new-update.json.lock", ".orvana.db", "comments.data", "session.json", "screenshots-allowed"}) {
        if (name == QLatin1String(reserved))
            return true;
    }
    return false;
}

} // namespace

StorageFolder::StorageFolder(const QString &path)
    : m_path(path)
{ }

StorageFolder::~StorageFolder()
{
    if (m_lock >= 0)
        close(m_lock);
}

// A folder, no link, made or owned by this user.
bool StorageFolder::isOurs(mode_t *permissions) const
{
    struct stat info = {};
    if (lstat(QFile::encodeName(m_path).constData(), &info) != 0)
        return false;
    *permissions = info.st_mode & ALLPERMS;
    return S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

bool StorageFolder::isUsable() const
{
    mode_t permissions = 0;
    return !m_isTaken && isOurs(&permissions);
}

bool StorageFolder::prepare()
{
    mode_t permissions = 0;
    if (!isOurs(&permissions)) {
        mkdir(QFile::encodeName(m_path).constData(), S_IRWXU);
        if (!isOurs(&permissions))
            return false;
    }
    // Everything below it is then out of reach for others, whatever its mode.
    if (permissions != S_IRWXU)
        chmod(QFile::encodeName(m_path).constData(), S_IRWXU);
    if (!holdsLock())
        lock();
    return !m_isTaken;
}

bool StorageFolder::holdsLock() const
{
    struct stat held = {};
    struct stat onDisk = {};
    const QByteArray path = QFile::encodeName(dir().filePath(kLockName));
    return m_lock >= 0 && fstat(m_lock, &held) == 0 && lstat(path.constData(), &onDisk) == 0
        && held.st_ino == onDisk.st_ino && held.st_dev == onDisk.st_dev;
}

void StorageFolder::lock()
{
    if (m_lock >= 0)
        close(m_lock);
    const QByteArray path = QFile::encodeName(dir().filePath(kLockName));
    m_isTaken = false;
    // Only a network file system wants a file to be writable for that.
    for (const int access : {O_RDONLY, O_RDWR}) {
        m_lock = open(path.constData(), access | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kOwnerOnly);
        if (m_lock >= 0 && flock(m_lock, LOCK_EX | LOCK_NB) == 0)
            return;
        if (m_lock < 0 || errno != EBADF)
            break;
        close(m_lock);
    }
    m_isTaken = m_lock >= 0 && errno == EWOULDBLOCK;
    // A full disk or a file system without locks must not stop the work.
    if (!m_hasWarned)
        qCWarning(lcStorage) << "Storage directory can't be locked:" << std::strerror(errno);
    m_hasWarned = true;
    if (m_lock >= 0)
        close(m_lock);
    m_lock = -1;
}

QString StorageFolder::unusableText() const
{
    return QStringLiteral("Папка программы \"") + m_path
        + QStringLiteral("\" недоступна или принадлежит другому пользователю. "
                         "Обратитесь к системному администратору.");
}

QString StorageFolder::ofUser(const QDir &storage, const QString &login)
{
    // The login is the folder's name as typed, unless that would lead elsewhere.
    QString name = login;
    name.remove(QChar(0));
    if (name.contains(QLatin1Char('/')))
        name = QString::fromLatin1(QUrl::toPercentEncoding(name, QByteArray(), QByteArrayLiteral(".")));
    else if (isReserved(name))
        name = QString::fromLatin1(QUrl::toPercentEncoding(name, QByteArray(), name.left(1).toLatin1()));
    const QByteArray encoded = QFile::encodeName(name);
    if (encoded.size() > NAME_MAX)
        name = QLatin1Char('%')
            + QString::fromLatin1(QCryptographicHash::hash(encoded, QCryptographicHash::Sha1).toHex());
    return storage.absoluteFilePath(name);
}

void StorageFolder::makeFolder(const QString &path)
{
    QDir().mkpath(path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void StorageFolder::removeDeprecatedFiles(const QString &login, const QStringList &teamIds) const
{
    if (!isUsable())
        return;
    QDir folder = dir();
    const QStringList records = folder.entryList({QStringLiteral("json*")}, QDir::Files, QDir::Unsorted);
    for (const QString &name : records)
        folder.remove(name);
    for (const char *name : {".orvana.db", "comments.data", "session.json"})
        folder.remove(QString::fromLatin1(name));

    if (login.isEmpty())
        return;
    const QDir user(ofUser(login));
    for (const char *name : {"session.json", "tasks.json", "teams.json"})
        QFile::remove(user.filePath(QString::fromLatin1(name)));
    for (const QString &id : teamIds) {
        // An id with a slash is no folder name.
        if (!id.contains(QLatin1Char('/')))
            removeDir(user.filePath(QStringLiteral("team_") + id));
    }
}

void StorageFolder::removeDir(const QString &path)
{
    QDir folder(path);
    if (!folder.exists())
        return;
    // What it points to is not ours.
    if (QFileInfo(path).isSymLink()) {
        QFile::remove(path);
        return;
    }
    const QFileInfoList entries = folder.entryInfoList(
        QDir::NoDotAndDotDot | QDir::System | QDir::Hidden | QDir::AllDirs | QDir::Files, QDir::DirsFirst);
    for (const QFileInfo &entry : entries) {
        if (entry.isDir())
            removeDir(entry.absoluteFilePath());
        else
            QFile::remove(entry.absoluteFilePath());
    }
    folder.rmdir(folder.absolutePath());
}
