#include "service/activitycache.h"

#include "model/flushfolder.h"
#include "service/crashpoint.h"
#include "service/recordtime.h"

#include <QDir>
#include <QFile>
#include <QTemporaryFile>

#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char kRecordPrefix[] = "json";
constexpr int kTimeLength = 19;
const char kUnfinishedPrefix[] = ".new-";
// Records are a few hundred bytes; pictures lie in files of their own.
constexpr qint64 kMaxRecordSize = 1024 * 1024;

// When the record was made, as its name has it; of a foreign name the epoch.
QDateTime creationTime(const QString &path)
{
    const int start = path.lastIndexOf(QLatin1Char('/')) + 1 + static_cast<int>(qstrlen(kRecordPrefix));
    const QDateTime time = recordTime(path.mid(start, kTimeLength));
    return time.isValid() ? time : QDateTime::fromSecsSinceEpoch(0);
}

bool isRegularFile(const QByteArray &path)
{
    struct stat info = {};
    return lstat(path.constData(), &info) == 0 && S_ISREG(info.st_mode);
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// For its owner alone: the records hold the user's mail address and pictures of
// the desktop.
void makeFolder(const QString &path)
{
    QDir().mkpath(path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
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
// files that were deleted meanwhile may still come up and are passed over.
class ActivityCache::Cursor
{
public:
    explicit Cursor(const QByteArray &path)
        : m_path(path)
        , m_dir(opendir(path.constData()))
    { }
    ~Cursor()
    {
        if (m_dir)
            closedir(m_dir);
    }
    Q_DISABLE_COPY_MOVE(Cursor)

    bool isOpen() const { return m_dir != nullptr; }
    void rewind() { rewinddir(m_dir); }

    QByteArray next()
    {
        while (const dirent *entry = readdir(m_dir)) {
            if (qstrncmp(entry->d_name, kRecordPrefix, sizeof kRecordPrefix - 1) != 0)
                continue;
            QByteArray path = m_path + '/' + entry->d_name;
            if (isRegularFile(path))
                return path;
        }
        return {};
    }

private:
    QByteArray m_path;
    DIR *m_dir;
};

ActivityCache::ActivityCache() = default;
ActivityCache::~ActivityCache() = default;

void ActivityCache::setDirectory(const QString &path)
{
    m_directory = path;
    m_cursor.reset();
    m_spent.clear();
    QDir folder(path);
    const QStringList unfinished = folder.entryList(
        {QString::fromLatin1(kUnfinishedPrefix) + QLatin1Char('*')}, QDir::Files | QDir::Hidden);
    for (const QString &name : unfinished)
        folder.remove(name);
    countRecords();
}

void ActivityCache::countRecords()
{
    m_waiting.clear();
    m_waitingCount = 0;
    Cursor cursor(QFile::encodeName(m_directory));
    while (cursor.isOpen()) {
        const QByteArray path = cursor.next();
        if (path.isEmpty())
            break;
        count(QFile::decodeName(path));
    }
}

void ActivityCache::count(const QString &path)
{
    ++m_waiting[creationTime(path)];
    ++m_waitingCount;
}

void ActivityCache::forget(const QString &path)
{
    const auto found = m_waiting.find(creationTime(path));
    if (found == m_waiting.end())
        return;
    --m_waitingCount;
    if (--found->second == 0)
        m_waiting.erase(found);
}

ActivityCache::Backlog ActivityCache::backlog() const
{
    return {m_waitingCount, m_waiting.empty() ? QDateTime() : m_waiting.begin()->first};
}

QString ActivityCache::create(const QByteArray &record, const QDateTime &now, QString *errorText)
{
    if (m_directory.isEmpty()) {
        if (errorText)
            *errorText = QStringLiteral("no user");
        return {};
    }
    if (!QFileInfo::exists(m_directory)) {
        makeFolder(m_directory);
        m_cursor.reset();
    }
    const QString name = QLatin1String(kRecordPrefix) + recordTimeText(now) + QLatin1String(".XXXXXX");
    const QString prefix = m_directory + QLatin1Char('/') + QLatin1String(kUnfinishedPrefix);
    // Twice: a second copy of the program that is just being started clears away
    // what is half-written.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const QString unfinished = writeUnfinished(prefix + name, record, errorText);
        if (unfinished.isEmpty())
            return {};
        const QString path = m_directory + QLatin1Char('/') + unfinished.mid(prefix.size());
        if (moveIntoPlace(unfinished, path, errorText)) {
            count(path);
            return path;
        }
    }
    return {};
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
        return errno == EACCES || errno == ELOOP || errno == ENXIO ? Read::Unreadable : Read::Busy;
    }
    QFile file;
    if (!file.open(handle, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        close(handle);
        return Read::Busy;
    }
    if (file.size() > kMaxRecordSize)
        return Read::Unreadable;
    *bytes = file.readAll();
    return file.error() == QFileDevice::NoError ? Read::Ok : Read::Busy;
}

bool ActivityCache::remove(const QString &path)
{
    if (!m_spent.contains(path))
        forget(path);
    if (QFile::remove(path) || !QFile::exists(path))
        return true;
    m_spent.insert(path);
    return false;
}

QString ActivityCache::next()
{
    if (m_directory.isEmpty())
        return {};
    if (!m_cursor)
        m_cursor = std::make_unique<Cursor>(QFile::encodeName(m_directory));
    if (!m_cursor->isOpen()) {
        m_cursor.reset();
        return {};
    }
    for (int pass = 0; pass < 2; ++pass) {
        for (QByteArray path = m_cursor->next(); !path.isEmpty(); path = m_cursor->next()) {
            const QString name = QFile::decodeName(path);
            if (!m_spent.contains(name))
                return name;
        }
        m_cursor->rewind();
    }
    // Deleted by somebody else, or never to be sent.
    m_waiting.clear();
    m_waitingCount = 0;
    // The folder may have been replaced meanwhile.
    m_cursor.reset();
    return {};
}
