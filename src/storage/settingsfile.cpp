#include "storage/settingsfile.h"

#include "storage/flushfolder.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QSaveFile>
#include <QSettings>
#include <QtEndian>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// As deep as the JSON reader goes, which is where stored values come from.
constexpr int kMaxNesting = 1000;
constexpr quint32 kNullString = 0xFFFFFFFF;
constexpr int kMaxHexDigits = 4;
constexpr int kMaxAside = 10; // files kept of each name
constexpr time_t kTimeStep = 2; // s, of the coarsest file system

// Walks over a value in its stream form (of the version that settings files are
// written in) without building anything.
class ValueWalker
{
public:
    ValueWalker(const char *data, qint64 size)
        : m_data(data)
        , m_left(size)
    { }

    bool skipValue(int depth = 0)
    {
        quint32 type = 0;
        if (depth > kMaxNesting || !readCount(&type))
            return false;
        switch (type) {
        case QMetaType::UnknownType: // an empty text stands for it
        case QMetaType::QString:
        case QMetaType::QByteArray:
            return skipText();
        case QMetaType::Bool:
            return skip(1);
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::QDate:
        case QMetaType::QTime:
            return skip(4);
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
            return skip(8);
        case QMetaType::QDateTime:
            return skip(9);
        case QMetaType::QStringList:
            return skipAll([this] { return skipText(); });
        case QMetaType::QVariantList:
            return skipAll([this, depth] { return skipValue(depth + 1); });
        case QMetaType::QVariantMap:
            return skipAll([this, depth] { return skipText() && skipValue(depth + 1); });
        case kUserType:
            // Our own readers take damage calmly; within other values there are none.
            return depth == 0 && isOwnRecord();
        default:
            return false;
        }
    }

private:
    static constexpr quint32 kUserType = 127;

    bool skip(qint64 count)
    {
        if (count > m_left)
            return false;
        m_data += count;
        m_left -= count;
        return true;
    }

    bool readCount(quint32 *count)
    {
        const char *at = m_data;
        if (!skip(sizeof *count))
            return false;
        *count = qFromBigEndian<quint32>(at);
        return true;
    }

    bool skipText()
    {
        quint32 size = 0;
        return readCount(&size) && (size == kNullString || skip(size));
    }

    template <typename SkipOne>
    bool skipAll(SkipOne skipOne)
    {
        quint32 count = 0;
        // Every element takes more than a byte.
        if (!readCount(&count) || count > m_left)
            return false;
        while (count > 0 && skipOne())
            --count;
        return count == 0;
    }

    bool isOwnRecord()
    {
        const char *start = m_data + sizeof(quint32);
        if (!skipText())
            return false;
        for (const char *name : {"Task", "QList<Task>", "TaskInfo"}) {
            const auto size = static_cast<qint64>(std::strlen(name)) + 1;
            if (m_data - start == size && std::memcmp(start, name, static_cast<size_t>(size)) == 0)
                return true;
        }
        return false;
    }

    const char *m_data;
    qint64 m_left;
};

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Reads the right-hand side of a line as it is written: texts parted by commas, in
// quotes when they hold something that needs them.
class LineReader
{
public:
    LineReader(const char *from, const char *to)
        : m_at(from)
        , m_end(to)
    { }

    bool isSound()
    {
        while (true) {
            QByteArray text;
            if (!readText(&text) || !isSoundText(text))
                return false;
            if (m_at == m_end)
                return true;
            if (m_end - m_at < 2 || m_at[0] != ',' || m_at[1] != ' ')
                return false;
            m_at += 2;
        }
    }

private:
    static bool isSoundText(const QByteArray &text)
    {
        static const QByteArray variant = QByteArrayLiteral("@Variant(");
        return !text.startsWith("@DateTime(")
            && (!text.startsWith(variant)
                || ValueWalker(text.constData() + variant.size(), text.size() - variant.size()).skipValue());
    }

    bool readText(QByteArray *text)
    {
        const bool quoted = m_at != m_end && *m_at == '"';
        m_at += quoted ? 1 : 0;
        // A blank in front would be passed over and what follows be taken for the start.
        if (!quoted && m_at != m_end && *m_at == ' ')
            return false;
        bool afterNumber = false;
        while (m_at != m_end) {
            const char c = *m_at;
            if (c == '"') {
                ++m_at;
                return quoted;
            }
            if (c == ',' && !quoted)
                return true;
            // Written as escapes, all of them; a carriage return would end the line.
            if (c < ' ' || c > '~')
                return false;
            ++m_at;
            if (c != '\\') {
                text->append(c);
                afterNumber = false;
            } else if (!readEscape(text, &afterNumber)) {
                return false;
            }
        }
        return !quoted;
    }

    // A printable character is written as a number only behind another number, of
    // which it would seem a digit; else a value's kind could be spelt in disguise.
    bool readEscape(QByteArray *text, bool *afterNumber)
    {
        static const char letters[] = "abfnrtv\"\\";
        static const char meanings[] = "\a\b\f\n\r\t\v\"\\";
        if (m_at == m_end)
            return false;
        const char c = *m_at++;
        if (const char *letter = c == '\0' ? nullptr : std::strchr(letters, c)) {
            text->append(meanings[letter - letters]);
            *afterNumber = false;
            return true;
        }
        if (c == '0') {
            text->append('\0');
            *afterNumber = true;
            return m_at == m_end || !isHexDigit(*m_at);
        }
        if (c != 'x')
            return false;
        const char *digits = m_at;
        while (m_at != m_end && isHexDigit(*m_at))
            ++m_at;
        const auto count = static_cast<int>(m_at - digits);
        if (count == 0 || count > kMaxHexDigits)
            return false;
        const int code = QByteArray(digits, count).toInt(nullptr, 16);
        const bool isPrintable = code >= ' ' && code <= '~';
        if (isPrintable && !(*afterNumber && isHexDigit(static_cast<char>(code))))
            return false;
        // Values in stream form hold no wider characters.
        text->append(code > 0xFF ? '?' : static_cast<char>(code));
        *afterNumber = true;
        return true;
    }

    const char *m_at;
    const char *m_end;
};

bool isSoundLine(const char *from, const char *to)
{
    const auto size = static_cast<size_t>(to - from);
    // Nothing but these gives a line a meaning beyond its letters.
    if (!std::memchr(from, '\\', size) && !std::memchr(from, '"', size) && !std::memchr(from, '@', size))
        return true;
    const auto *equals = static_cast<const char *>(std::memchr(from, '=', size));
    if (!equals)
        return false;
    const auto keySize = static_cast<size_t>(equals - from);
    return !std::memchr(from, '\\', keySize) && !std::memchr(from, '"', keySize)
        && LineReader(equals + 1, to).isSound();
}

// Next to the file, while it is being replaced.
QByteArray previousOf(const QByteArray &path)
{
    const int name = path.lastIndexOf('/') + 1;
    return path.left(name) + ".old-" + path.mid(name);
}

// Where a file is kept on the disk; invalid when there is none.
struct Place
{
    explicit Place(const QByteArray &path)
    {
        struct stat info = {};
        isValid = ::stat(path.constData(), &info) == 0;
        inode = info.st_ino;
        device = info.st_dev;
    }

    bool isValid;
    ino_t inode;
    dev_t device;
};

// Each write makes a new file.
bool isNew(const Place &now, const Place &before)
{
    return now.isValid && (!before.isValid || now.inode != before.inode || now.device != before.device);
}

bool isDiskFull(int error)
{
    return error == ENOSPC || error == EDQUOT;
}

// A line for the section and one for each key, all of them ended.
bool isWhole(const QByteArray &path, int keys)
{
    QFile file(QFile::decodeName(path));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray bytes = file.readAll();
    return bytes.endsWith('\n') ? bytes.count('\n') > keys : keys == 0;
}

// A store writes once more on its own account a moment after a value was set.
void dropPendingWrite(QSettings &settings)
{
    QCoreApplication::removePostedEvents(&settings, QEvent::UpdateRequest);
}

// Of a program that ended between making its lock and signing it; Qt waits half a
// minute for the signature.
void removeUnsignedLock(const QByteArray &path)
{
    const QByteArray lock = path + ".lock";
    struct stat info = {};
    if (::lstat(lock.constData(), &info) == 0 && info.st_size == 0)
        ::unlink(lock.constData());
}

bool exists(const QByteArray &path)
{
    struct stat info = {};
    return ::lstat(path.constData(), &info) == 0;
}

bool mayAccess(const QByteArray &path, int how)
{
    return ::faccessat(AT_FDCWD, path.constData(), how, AT_EACCESS) == 0;
}

// Not removed: it may be the only copy, of use to whoever may read it. The eleventh
// replaces the tenth.
bool moveAside(const QByteArray &path)
{
    QByteArray aside;
    int number = 0;
    do
        aside = path + ".unusable-" + QByteArray::number(++number);
    while (number < kMaxAside && exists(aside));
    if (::rename(path.constData(), aside.constData()) != 0)
        return false;
    qWarning() << "Error! Settings file can't be used, kept as" << QFile::decodeName(aside);
    return true;
}

void replaceByCopy(const QByteArray &path)
{
    const Place original(path);
    QFile file(QFile::decodeName(path));
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QByteArray bytes = file.readAll();
    const QByteArray name = previousOf(path);
    QSaveFile copy(QFile::decodeName(name));
    if (file.error() != QFileDevice::NoError || !copy.open(QIODevice::WriteOnly)
        || !copy.setPermissions(QFile::ReadOwner | QFile::WriteOwner) || copy.write(bytes) != bytes.size()
        || !copy.commit())
        return;
    if (!isNew(Place(path), original) && ::rename(name.constData(), path.constData()) == 0)
        qWarning() << "Settings file was not writable, replaced by a copy:" << file.fileName();
    else
        ::unlink(name.constData());
}

// The folder is this program's own; what root or a restored backup left in it must
// not keep it from saving. False when the file must not even be opened.
bool makeUsable(const QByteArray &path)
{
    struct stat info = {};
    if (::stat(path.constData(), &info) != 0) {
        // A link that leads nowhere can be written only when its folder is there.
        const QFileInfo link(QFile::decodeName(path));
        return !link.isSymLink() || QFileInfo(link.symLinkTarget()).dir().exists() || moveAside(path);
    }
    if (!S_ISREG(info.st_mode))
        return moveAside(path);
    if (mayAccess(path, R_OK | W_OK) || errno != EACCES)
        return true;
    if (mayAccess(path, R_OK))
        replaceByCopy(path);
    else if (isSettled(info.st_mtime)) // or its owner may be about to share it
        moveAside(path);
    return true;
}

// What a write that was cut short by the end of the program left behind.
void restorePrevious(const QByteArray &path)
{
    const QByteArray previous = previousOf(path);
    if (isWhole(path, 1))
        ::unlink(previous.constData());
    else
        ::rename(previous.constData(), path.constData());
}

} // namespace

QByteArray soundLines(const QByteArray &ini)
{
    QByteArray sound;
    sound.reserve(ini.size());
    const char *end = ini.constData() + ini.size();
    for (const char *line = ini.constData(); line != end;) {
        const auto *newLine =
            static_cast<const char *>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        const char *next = newLine ? newLine + 1 : end;
        if (isSoundLine(line, newLine ? newLine : end))
            sound.append(line, static_cast<int>(next - line));
        line = next;
    }
    return sound;
}

bool isSettled(time_t changed)
{
    return std::abs(std::time(nullptr) - changed) > kTimeStep;
}

bool repairSettings(const QString &path)
{
    if (!makeUsable(QFile::encodeName(path)))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return true;
    const QByteArray whole = file.readAll();
    file.close();
    const QByteArray sound = soundLines(whole);
    if (sound.size() == whole.size())
        return true;
    qWarning() << "Error! Settings file is damaged:" << path << whole.size() - sound.size()
               << "bytes of entries dropped";
    QSaveFile repaired(path);
    return repaired.open(QIODevice::WriteOnly) && repaired.write(sound) == sound.size() && repaired.commit();
}

bool syncSettings(QSettings &settings)
{
    const QByteArray path = QFile::encodeName(settings.fileName());
    const bool wasThere = exists(path);
    if (!makeUsable(path) || (wasThere && !exists(path))) {
        dropPendingWrite(settings);
        return false;
    }
    const QByteArray previous = previousOf(path);
    // Qt takes a file for written of which the last kilobytes met a full disk, and
    // puts it in the place of the whole one.
    ::unlink(previous.constData());
    const Place before(path);
    const bool isKept = before.isValid && ::link(path.constData(), previous.constData()) == 0;
    if (before.isValid && !isKept && isDiskFull(errno)) {
        dropPendingWrite(settings);
        return false;
    }
    removeUnsignedLock(path);
    settings.sync();
    dropPendingWrite(settings);
    const Place after(path);
    const bool written = isNew(after, before) && isWhole(path, settings.allKeys().size());
    if (!written && !before.isValid)
        ::unlink(path.constData());
    if (isKept && !written && (!after.isValid || isNew(after, before)))
        ::rename(previous.constData(), path.constData());
    else if (isKept)
        ::unlink(previous.constData());
    if (written)
        flushFolder(QFileInfo(settings.fileName()).path());
    return written;
}

std::unique_ptr<QSettings> openSettings(const QString &path)
{
    if (!makeUsable(QFile::encodeName(path)))
        return emptySettings(path);
    restorePrevious(QFile::encodeName(path));
    if (!repairSettings(path))
        return emptySettings(path);
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

std::unique_ptr<QSettings> emptySettings(const QString &path)
{
    // Nothing can lie below a device. A name for each: stores of one name share values.
    return std::make_unique<QSettings>(QLatin1String("/dev/null") + path, QSettings::IniFormat);
}
