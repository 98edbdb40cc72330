#include "storage/journalfile.h"

#include "base/crashpoint.h"
#include "base/log.h"
#include "storage/flushfolder.h"
#include "storage/settingsfile.h"
#include "storage/storagefolder.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kMaxLine = 4 * 1024 * 1024;
constexpr qint64 kMaxWaiting = 4 * 1024 * 1024;
constexpr int kAccess = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr qint64 kEnd = 4 * 1024; // some lines
constexpr qint64 kTail = 64 * 1024; // an hour and a half of minutes
constexpr qint64 kLongTail = 2 * kMaxLine;

bool isPlain(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        return c >= QLatin1Char(' ') && c <= QLatin1Char('~') && c != QLatin1Char('"')
            && c != QLatin1Char('\\');
    });
}

QByteArray json(const QJsonValue &value)
{
    // Nearly all, and a document for each is most of what a line costs.
    if (const QString text = value.toString(); value.isString() && isPlain(text))
        return '"' + text.toLatin1() + '"';
    const QByteArray list = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return list.mid(1, list.size() - 2);
}

using Lines = QVector<JournalReader::Line>;

// None when the file cannot be read.
std::optional<Lines> linesAfter(const QString &path, qint64 from)
{
    Lines lines;
    JournalReader reader(path, from);
    for (JournalReader::Line line; reader.next(&line);)
        lines.append(line);
    return reader.hasFailed() ? std::nullopt : std::make_optional(lines);
}

// What a signal has interrupted is tried again.
template <typename Call>
int uninterrupted(Call call)
{
    int result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

bool hasWhole(const Lines &lines)
{
    return std::any_of(lines.cbegin(), lines.cend(), [](const auto &line) { return line.isWhole(); });
}

// At least that many bytes, and a whole line where there is one.
std::optional<Lines> tailOf(const QString &path, qint64 bytes)
{
    const qint64 size = QFileInfo(path).size();
    const std::optional<Lines> lines = linesAfter(path, std::max<qint64>(0, size - bytes));
    return size <= bytes || !lines || hasWhole(*lines)
        ? lines
        : linesAfter(path, std::max<qint64>(0, size - kLongTail));
}

// A regular file, or a folder, of this user.
bool isOurs(const QString &path, mode_t type)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 && (info.st_mode & S_IFMT) == type
        && info.st_uid == geteuid();
}

bool isThere(const QString &path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0;
}

} // namespace

JournalEntry::JournalEntry(const QDateTime &at, const QString &event)
    : m_date(at.date())
    , m_members("\"at\":" + json(momentText(at)) + ",\"event\":" + json(event))
{ }

QString JournalEntry::momentText(const QDateTime &time)
{
    const int offset = time.offsetFromUtc() / 60;
    const int distance = std::abs(offset);
    const QDate day = time.date();
    const QTime hour = time.time();
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", day.year(), day.month(),
                  day.day(), hour.hour(), hour.minute(), hour.second(), offset < 0 ? '-' : '+', distance / 60,
                  distance % 60);
    return QString::fromLatin1(text);
}

JournalEntry &JournalEntry::add(const QString &key, const QJsonValue &value)
{
    m_members += ',' + json(key) + ':' + json(value);
    return *this;
}

JournalFile::JournalFile(StorageFolder *storage, const QString &userFolder)
    : m_storage(storage)
    , m_userFolder(userFolder)
{ }

void JournalFile::close()
{
    if (m_handle >= 0)
        ::close(m_handle);
    m_handle = -1;
}

bool JournalFile::append(const JournalEntry &entry, Flush flush)
{
    if (entry.members().size() > kMaxLine / 2) {
        qCWarning(lcStorage) << "Error! Too long for the journal:" << entry.members().left(200);
        return true;
    }
    m_waiting.push_back(entry);
    m_waitingBytes += entry.members().size();
    return writeOut(flush);
}

void JournalFile::retry()
{
    if (!m_waiting.empty())
        writeOut(Flush::Now);
}

bool JournalFile::writeOut(Flush flush)
{
    const bool isDone = writeWaiting();
    if (!isDone)
        loseWaiting();
    // The line is in the file; to write it once more would make two minutes of it.
    else if (flush == Flush::Now && m_handle >= 0
             && uninterrupted([this] { return fdatasync(m_handle); }) != 0)
        qCWarning(lcStorage) << "Error! Journal can't be flushed:" << std::strerror(errno);
    close();
    return isDone;
}

void JournalFile::loseWaiting()
{
    if (m_waitingBytes <= kMaxWaiting)
        return;
    qCWarning(lcStorage) << "Error! Too many lines wait for the journal, dropped:" << m_waiting.size();
    m_lost += static_cast<int>(m_waiting.size());
    m_waiting.clear();
    m_waitingBytes = 0;
    m_waiting.push_back(JournalEntry(QDateTime::currentDateTime(), QStringLiteral("gap"))
                            .add(QStringLiteral("lines"), m_lost));
}

bool JournalFile::writeWaiting()
{
    for (; !m_waiting.empty(); m_waiting.pop_front()) {
        if (!write(m_waiting.front())) {
            if (!m_isRefused)
                qCWarning(lcStorage) << "Error! Journal can't be written:" << m_path << std::strerror(errno);
            m_isRefused = m_storage->isUsable();
            return false;
        }
        m_waitingBytes -= m_waiting.front().members().size();
    }
    m_waitingBytes = 0;
    m_lost = 0;
    m_isRefused = false;
    return true;
}

bool JournalFile::write(const JournalEntry &entry)
{
    if (!isReady(entry.date()))
        return false;
    QByteArray hash;
    if (!m_isEnded || m_tornBytes > 0) {
        // What a kill has left of a line stays. A line that lacks but its break is whole.
        QByteArray end = m_isEnded ? QByteArray() : QByteArrayLiteral("\n");
        const bool isTorn = m_tornBytes > 0;
        if (isTorn)
            end += Journal::line(m_n + 1,
                                 JournalEntry(QDateTime::currentDateTime(), QStringLiteral("torn"))
                                     .add(QStringLiteral("bytes"), m_tornBytes)
                                     .members(),
                                 m_hash, &hash)
                + '\n';
        if (!put(end))
            return false;
        m_isEnded = true;
        m_tornBytes = 0;
        if (isTorn) {
            ++m_n;
            m_hash = hash;
        }
    }
    if (!put(Journal::line(m_n + 1, entry.members(), m_hash, &hash) + '\n'))
        return false;
    ++m_n;
    m_hash = hash;
    if (m_firstLine == 0)
        m_firstLine = m_n;
    crashPoint("line-written");
    return true;
}

// All of it, or nothing; or else the file is read again before the next line.
bool JournalFile::put(const QByteArray &bytes)
{
    qint64 written = 0;
    while (written < bytes.size()) {
        const ssize_t count =
            ::write(m_handle, bytes.constData() + written, static_cast<size_t>(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        written += count;
    }
    if (written == bytes.size()) {
        m_size += written;
        return true;
    }
    const int reason = errno;
    const bool isTakenBack =
        written == 0 || uninterrupted([this] { return ftruncate(m_handle, m_size); }) == 0;
    if (!isTakenBack)
        close();
    errno = reason;
    // All but the line break is a line.
    return !isTakenBack && written == bytes.size() - 1;
}

bool JournalFile::isReady(const QDate &month)
{
    const bool isMonthOver = QFileInfo(m_path).fileName() < Journal::fileName(month);
    if (m_handle >= 0 && !isMonthOver)
        return true;
    close();
    if (!m_storage->isUsable() && !m_storage->prepare())
        return false;
    return (!isMonthOver && openAgain()) || openNewest(month);
}

// As it was left: another file may lie there by now, or another hand have written to it.
bool JournalFile::openAgain()
{
    const QByteArray path = QFile::encodeName(m_path);
    m_handle = uninterrupted([&path] { return ::open(path.constData(), kAccess); });
    struct stat info = {};
    if (m_handle >= 0 && fstat(m_handle, &info) == 0 && info.st_ino == m_inode && info.st_dev == m_device
        && info.st_size == m_size)
        return true;
    close();
    return false;
}

// The month's file, but none that is older than the newest: the chain follows the names.
bool JournalFile::openNewest(const QDate &month)
{
    const QString folder = Journal::folderOf(m_userFolder);
    if (isThere(folder) && !isOurs(folder, S_IFDIR) && !moveAside(folder))
        return false;
    if (!isThere(folder)) {
        StorageFolder::makeFolder(folder);
        flushFolder(m_userFolder);
    }
    const QStringList files = Journal::files(m_userFolder);
    m_path = folder + QLatin1Char('/') + Journal::fileName(month);
    if (!files.isEmpty())
        m_path = std::max(m_path, files.constLast());
    const QByteArray path = QFile::encodeName(m_path);
    bool isNew = !isThere(m_path);
    for (int attempt = 0; attempt < 2 && m_handle < 0; ++attempt) {
        if (!isNew && (attempt > 0 || !isOurs(m_path, S_IFREG))) {
            if (!moveAside(m_path))
                return false;
            isNew = true;
        }
        m_handle =
            uninterrupted([&path] { return ::open(path.constData(), kAccess | O_CREAT, S_IRUSR | S_IWUSR); });
        if (m_handle < 0 && errno != EACCES && errno != EPERM)
            return false;
    }
    struct stat info = {};
    if (m_handle < 0 || fstat(m_handle, &info) != 0) {
        close();
        return false;
    }
    m_size = info.st_size;
    m_inode = info.st_ino;
    m_device = info.st_dev;
    if (isNew)
        flushFolder(folder);
    if (readEnd(Journal::files(m_userFolder)))
        return true;
    close();
    return false;
}

bool JournalFile::readEnd(const QStringList &files)
{
    m_isEnded = true;
    m_tornBytes = 0;
    if (m_hash.isEmpty())
        m_hash = Journal::noHash();
    bool isLast = true;
    for (int i = files.size() - 1; i >= 0 && i >= files.size() - 3; --i) {
        const std::optional<Lines> lines = tailOf(files.at(i), kEnd);
        if (!lines && files.at(i) == m_path)
            return false;
        if (!lines)
            continue;
        for (auto line = lines->crbegin(); line != lines->crend(); ++line) {
            if (isLast) {
                m_isEnded = line->isEnded || files.at(i) != m_path;
                const bool isTorn = line->state == JournalReader::State::Broken
                    || line->state == JournalReader::State::TooLong;
                m_tornBytes = isTorn ? line->bytes : 0;
            }
            isLast = false;
            // When lines of this run are missing, the chain has to show it.
            if (line->isWhole() && line->n >= m_n) {
                m_n = line->n;
                m_hash = line->hash;
            }
            if (line->isWhole())
                return true;
        }
    }
    return true;
}

QVector<JournalReader::Line> JournalFile::tail(const QString &userFolder)
{
    Lines lines;
    const QStringList files = Journal::files(userFolder);
    for (const QString &path : files.mid(std::max(0, files.size() - 2)))
        lines += tailOf(path, kTail).value_or(Lines());
    return lines;
}
