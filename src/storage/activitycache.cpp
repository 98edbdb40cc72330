#include "storage/activitycache.h"

#include "base/crashpoint.h"
#include "storage/cacherecord.h"
#include "storage/flushfolder.h"
#include "storage/recordtime.h"
#include "storage/storagefolder.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTemporaryFile>

#include <cerrno>
#include <cstring>
#include <iterator>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char kRecordPrefix[] = "json";
const char kUnfinishedPrefix[] = ".new-";
const char kPicturePrefix[] = "screenshot";
// Far beyond the longest ids that a reply can bring.
constexpr qint64 kMaxRecordSize = 256 * 1024 * 1024;
constexpr qint64 kMaxBytesPerSweep = 1024 * 1024;

bool startsWith(const char *name, const char *prefix)
{
    return qstrncmp(name, prefix, qstrlen(prefix)) == 0;
}

// When the record was made, according to its name.
qint64 creationMoment(const char *name)
{
    return startsWith(name, kRecordPrefix) ? recordMoment(name + qstrlen(kRecordPrefix)) : 0;
}

qint64 creationMoment(const QString &path)
{
    return creationMoment(QFile::encodeName(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1)).constData());
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Leaves a complete file under a temporary name, or nothing.
QString writeUnfinished(const QString &pathTemplate, const QByteArray &bytes, QString *errorText)
{
    QTemporaryFile file(pathTemplate);
    file.setAutoRemove(true);
    const auto fail = [&](const QString &text) {
        if (errorText)
            *errorText = text;
        return QString();
    };
    if (!file.open())
        return fail(file.errorString());
    crashPoint("record-opened");
    if (file.write(bytes) != bytes.size() || !file.flush())
        return fail(file.errorString());
    if (fsync(file.handle()) != 0)
        return fail(systemError());
    file.close();
    file.setAutoRemove(false);
    crashPoint("record-written");
    return file.fileName();
}

// A record is whole when it gets its name.
ActivityCache::Read readAll(int handle, QByteArray *bytes)
{
    struct stat info = {};
    if (fstat(handle, &info) != 0)
        return ActivityCache::Read::Busy;
    if (info.st_size > kMaxRecordSize)
        return ActivityCache::Read::Denied;
    bytes->resize(static_cast<int>(info.st_size));
    int size = 0;
    for (ssize_t count = 1; count != 0 && size < bytes->size(); size += static_cast<int>(count)) {
        do
            count = ::read(handle, bytes->data() + size, static_cast<size_t>(bytes->size() - size));
        while (count < 0 && errno == EINTR);
        if (count < 0)
            return ActivityCache::Read::Busy;
    }
    bytes->truncate(size);
    return ActivityCache::Read::Ok;
}

bool moveIntoPlace(const QString &from, const QString &to, QString *errorText)
{
    if (::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0) {
        if (errorText)
            *errorText = systemError();
        QFile::remove(from);
        return false;
    }
    crashPoint("record-renamed");
    flushFolder(QFileInfo(to).path());
    return true;
}

} // namespace

// Keeps the folder open, so that the next name costs no new listing. Names of
// files that were deleted meanwhile may still come up and are skipped.
class ActivityCache::Cursor
{
public:
    explicit Cursor(const QString &path)
        : m_path(QFile::encodeName(path))
        , m_dir(opendir(m_path.constData()))
    { }
    ~Cursor()
    {
        if (m_dir)
            closedir(m_dir);
    }
    Q_DISABLE_COPY_MOVE(Cursor)

    bool isOpen() const { return m_dir != nullptr; }
    void rewind() { rewinddir(m_dir); }

    // Something could not be listed.
    bool hasFailed() const { return m_hasFailed; }

    // The name of the next file that starts with the prefix, until the next call; null at the
    // end. Where the folder says what is a file, of one that was deleted meanwhile too.
    const char *nextName(const char *prefix)
    {
        const dirent *entry = nextEntry(prefix);
        while (entry && entry->d_type != DT_REG && !isFile(entry->d_name))
            entry = nextEntry(prefix);
        return entry ? entry->d_name : nullptr;
    }

    // The path of the next record; empty at the end.
    QString next()
    {
        while (const dirent *entry = nextEntry(kRecordPrefix)) {
            if (isFile(entry->d_name))
                return QFile::decodeName(m_path + '/' + entry->d_name);
        }
        return {};
    }

private:
    const dirent *nextEntry(const char *prefix)
    {
        while (true) {
            errno = 0;
            const dirent *entry = readdir(m_dir);
            m_hasFailed = m_hasFailed || (!entry && errno != 0);
            if (!entry || startsWith(entry->d_name, prefix))
                return entry;
        }
    }

    // By its path: the folder may have been replaced meanwhile.
    bool isFile(const char *name)
    {
        struct stat info = {};
        const QByteArray path = m_path + '/' + name;
        if (lstat(path.constData(), &info) == 0)
            return S_ISREG(info.st_mode);
        m_hasFailed = m_hasFailed || errno != ENOENT;
        return false;
    }

    QByteArray m_path;
    DIR *m_dir;
    bool m_hasFailed = false;
};

ActivityCache::ActivityCache() = default;
ActivityCache::~ActivityCache() = default;

void ActivityCache::setDirectory(const QString &path)
{
    m_directory = path;
    m_cursor.reset();
    m_sweep.reset();
    m_setAside.clear();
    m_waiting.clear();
    m_waitingCount = 0;
    m_unclaimedPictures.clear();
    if (!path.isEmpty())
        readFolder();
}

void ActivityCache::readFolder()
{
    Cursor cursor(m_directory);
    if (!cursor.isOpen())
        return;
    QStringList unfinished;
    const bool hasSkipped = !m_spent.isEmpty() || !m_setAside.isEmpty();
    while (const char *name = cursor.nextName("")) {
        if (startsWith(name, kRecordPrefix)) {
            if (!hasSkipped || !isSkipped(m_directory + QLatin1Char('/') + QFile::decodeName(name)))
                count(creationMoment(name));
        } else if (startsWith(name, kPicturePrefix)) {
            m_unclaimedPictures.insert(QFile::decodeName(name));
        } else if (startsWith(name, kUnfinishedPrefix)) {
            unfinished.append(m_directory + QLatin1Char('/') + QFile::decodeName(name));
        }
    }
    for (const QString &path : qAsConst(unfinished))
        QFile::remove(path);
}

bool ActivityCache::sweepPictures(int recordsToRead)
{
    if (m_unclaimedPictures.isEmpty())
        return false;
    if (!m_sweep)
        m_sweep = std::make_unique<Cursor>(m_directory);
    qint64 bytesRead = 0;
    for (int i = 0; i < recordsToRead && bytesRead < kMaxBytesPerSweep && m_sweep->isOpen()
         && !m_unclaimedPictures.isEmpty();
         ++i) {
        const QString path = m_sweep->next();
        if (path.isEmpty()) {
            for (const QString &name : qAsConst(m_unclaimedPictures)) {
                if (!m_sweep->hasFailed())
                    QFile::remove(m_directory + QLatin1Char('/') + name);
            }
            m_unclaimedPictures.clear();
            break;
        }
        QByteArray bytes;
        const Read result = read(path, &bytes);
        bytesRead += bytes.size();
        if (result == Read::Gone)
            continue;
        // A record that cannot be read may name any of them.
        if (result != Read::Ok)
            m_unclaimedPictures.clear();
        else
            m_unclaimedPictures.remove(
                QFileInfo(CacheRecord::pictureOf(CacheRecord::parse(bytes))).fileName());
    }
    if (m_sweep->isOpen() && !m_unclaimedPictures.isEmpty())
        return true;
    m_sweep.reset();
    m_unclaimedPictures.clear();
    return false;
}

void ActivityCache::count(qint64 moment)
{
    ++m_waiting[moment];
    ++m_waitingCount;
}

void ActivityCache::forget(const QString &path)
{
    // The reply may come after a change of user.
    if (!path.startsWith(m_directory + QLatin1Char('/')) || isSkipped(path))
        return;
    const auto found = m_waiting.find(creationMoment(path));
    if (found == m_waiting.end())
        return;
    --m_waitingCount;
    if (--found->second == 0)
        m_waiting.erase(found);
}

std::optional<QStringList> ActivityCache::records() const
{
    QStringList paths;
    Cursor cursor(m_directory);
    if (!cursor.isOpen())
        return errno == ENOENT ? std::make_optional(paths) : std::nullopt;
    for (QString path = cursor.next(); !path.isEmpty(); path = cursor.next())
        paths.append(path);
    return cursor.hasFailed() ? std::nullopt : std::make_optional(paths);
}

QString ActivityCache::secondOf(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1 + static_cast<int>(qstrlen(kRecordPrefix)),
                    kRecordTimeLength);
}

ActivityCache::Backlog ActivityCache::backlog() const
{
    return {m_waitingCount, m_waiting.empty() ? QDateTime() : timeOfMoment(m_waiting.begin()->first)};
}

QString ActivityCache::create(const QByteArray &record, const QDateTime &now, QString *errorText)
{
    removeSpent();
    if (m_directory.isEmpty()) {
        if (errorText)
            *errorText = QStringLiteral("no user");
        return {};
    }
    if (!QFileInfo::exists(m_directory))
        m_cursor.reset();
    QString path = write(m_directory, record, now, errorText);
    if (!path.isEmpty())
        count(creationMoment(path));
    return path;
}

QString ActivityCache::write(const QString &directory, const QByteArray &record, const QDateTime &now,
                             QString *errorText)
{
    if (!QFileInfo::exists(directory))
        StorageFolder::makeFolder(directory);
    const QString name = QLatin1String(kRecordPrefix) + recordTimeText(now) + QLatin1String(".XXXXXX");
    const QString prefix = directory + QLatin1Char('/') + QLatin1String(kUnfinishedPrefix);
    const QString unfinished = writeUnfinished(prefix + name, record, errorText);
    if (unfinished.isEmpty())
        return {};
    const QString path = directory + QLatin1Char('/') + unfinished.mid(prefix.size());
    return moveIntoPlace(unfinished, path, errorText) ? path : QString();
}

bool ActivityCache::writeWhole(const QString &path, const QByteArray &bytes, QString *errorText)
{
    const QString folder = QFileInfo(path).path();
    const QString unfinished = writeUnfinished(folder + QLatin1Char('/') + QLatin1String(kUnfinishedPrefix)
                                                   + QLatin1String("XXXXXX"),
                                               bytes, errorText);
    return !unfinished.isEmpty() && moveIntoPlace(unfinished, path, errorText);
}

ActivityCache::Read ActivityCache::read(const QString &path, QByteArray *bytes)
{
    bytes->clear();
    const int handle =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (handle < 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return Read::Gone;
        return errno == EACCES || errno == EPERM || errno == ELOOP || errno == ENXIO ? Read::Denied
                                                                                     : Read::Busy;
    }
    const Read result = readAll(handle, bytes);
    close(handle);
    return result;
}

void ActivityCache::setAccepted(const QString &path)
{
    forget(path);
    m_spent.insert(path);
}

void ActivityCache::remove(const QString &path)
{
    setAccepted(path);
    if (QFile::remove(path) || !QFile::exists(path)) {
        m_spent.remove(path);
        return;
    }
    // Empty it is not sent by the next run either.
    const int handle = open(QFile::encodeName(path).constData(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
    if (handle >= 0)
        close(handle);
}

void ActivityCache::setAside(const QString &path)
{
    forget(path);
    m_setAside.insert(path);
}

bool ActivityCache::isSkipped(const QString &path) const
{
    return m_spent.contains(path) || m_setAside.contains(path);
}

void ActivityCache::removeSpent()
{
    for (auto it = m_spent.begin(); it != m_spent.end();)
        it = QFile::remove(*it) || !QFile::exists(*it) ? m_spent.erase(it) : std::next(it);
}

QString ActivityCache::next()
{
    if (m_directory.isEmpty())
        return {};
    if (!m_cursor)
        m_cursor = std::make_unique<Cursor>(m_directory);
    if (!m_cursor->isOpen()) {
        m_cursor.reset();
        return {};
    }
    for (int pass = 0; pass < 2; ++pass) {
        for (QString path = m_cursor->next(); !path.isEmpty(); path = m_cursor->next()) {
            if (!isSkipped(path))
                return path;
        }
        m_cursor->rewind();
    }
    // None is left to send, whoever deleted the others.
    m_waiting.clear();
    m_waitingCount = 0;
    // The folder may have been replaced meanwhile.
    m_cursor.reset();
    return {};
}
