#include "storage/settingsfile.h"

#include "base/log.h"
#include "storage/flushfolder.h"
#include "storage/settingslines.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSettings>
#include <QTemporaryFile>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kMaxAside = 10; // files kept of each name
constexpr time_t kTimeStep = 2; // s, of the coarsest file system
constexpr int kLockPatience = 1000; // ms, in which the window stands still
const QLatin1String kLockSuffix(".lock"); // of QSettings

bool exists(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

bool rename(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

QString newNameOf(const QString &path)
{
    const QFileInfo file(path);
    return file.path() + QLatin1String("/.new-") + file.fileName();
}

// Of a program that was killed while it saved. For a lock without a signature Qt would wait half
// a minute.
void removeUnfinished(const QString &path)
{
    const QFileInfo newFile(newNameOf(path));
    QDir folder = newFile.dir();
    const QStringList names = folder.entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        if (name.startsWith(newFile.fileName()))
            folder.remove(name);
    }
}

// A line with an equals sign for each key, and the last line ended.
bool isWhole(const QByteArray &ini, int keys)
{
    int found = 0;
    const auto find = [&ini](const char *from, char c) {
        return static_cast<const char *>(std::memchr(from, c, static_cast<size_t>(ini.cend() - from)));
    };
    for (const char *at = find(ini.cbegin(), '='); at; at = find(at, '=')) {
        ++found;
        at = find(at, '\n');
        if (!at)
            return false;
    }
    return found == keys;
}

} // namespace

// Not removed: it may be the only copy, of use to whoever may read it. The eleventh
// replaces the tenth.
bool moveAside(const QString &path)
{
    QString aside;
    int number = 0;
    do
        aside = path + QStringLiteral(".unusable-%1").arg(++number);
    while (number < kMaxAside && exists(aside));
    if (!rename(path, aside))
        return false;
    qCWarning(lcStorage) << "Error! File can't be used, kept as" << aside;
    return true;
}

SettingsFile::SettingsFile(const QString &path, Use use)
    : m_path(path)
    , m_use(use)
{
    removeUnfinished(path);
    load();
}

bool SettingsFile::exists() const
{
    return !m_path.isEmpty() && QFile::exists(m_path);
}

void SettingsFile::setValue(const QString &key, const QVariant &value)
{
    m_values.insert(key, value);
    m_unsaved.insert(key, value);
}

void SettingsFile::clear()
{
    m_values.clear();
    m_unsaved.clear();
    m_isLoaded = true;
}

// Values that were set meanwhile stay. False when the file could not be read for now.
bool SettingsFile::load()
{
    if (!repairSettings(m_path))
        return false;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly) && ::exists(m_path))
        return false;
    QByteArray bytes = file.isOpen() ? file.readAll() : QByteArray();
    if (file.isOpen() && file.error() != QFileDevice::NoError)
        return false;
    if (m_use == Use::Own && hasWrongChecksum(bytes)) {
        qCWarning(lcStorage) << "Error! Settings file is damaged:" << m_path;
        if (!moveAside(m_path))
            return false;
        bytes.clear();
    }
    const QByteArray lines = validLines(bytes);
    const bool isDamaged = lines.size() != bytes.size();
    if (isDamaged)
        qCWarning(lcStorage) << "Error! Settings file is damaged:" << m_path << bytes.size() - lines.size()
                             << "bytes of entries dropped";
    // Under a name of its own: of a file that it knows, QSettings misses a change within the
    // clock's step.
    QTemporaryFile copy(newNameOf(m_path) + QLatin1String(".XXXXXX"));
    const bool isCopied = copy.open() && copy.write(lines) == lines.size() && copy.flush();
    if (!isCopied && isDamaged)
        return false;
    const QSettings stored(isCopied ? copy.fileName() : m_path, QSettings::IniFormat);
    if (stored.status() == QSettings::AccessError)
        return false;
    Values values;
    const QStringList keys = stored.allKeys();
    for (const QString &key : keys)
        values.insert(key, stored.value(key));
    for (auto each = m_unsaved.cbegin(); each != m_unsaved.cend(); ++each)
        values.insert(each.key(), each.value());
    m_values = values;
    return m_isLoaded = true;
}

bool SettingsFile::writeTo(const QString &path) const
{
    QFile::remove(path);
    QFile::remove(path + kLockSuffix);
    QSettings writer(path, QSettings::IniFormat);
    for (auto each = m_values.cbegin(); each != m_values.cend(); ++each)
        writer.setValue(each.key(), each.value());
    writer.sync();
    QFile written(path); // not made by Qt without values
    if (!written.open(QIODevice::ReadWrite))
        return false;
    const QByteArray lines = written.readAll();
    // Qt takes a file for written of which the last kilobytes met a full disk.
    if (!isWhole(lines, writer.allKeys().size()))
        return false;
    // Not flushed: Qt has flushed the lines, and a file without its checksum is accepted.
    const QByteArray checksum = m_use == Use::Own ? checksumLine(lines) : QByteArray();
    return written.write(checksum) == checksum.size() && written.flush();
}

bool SettingsFile::save()
{
    if (m_path.isEmpty())
        return false;
    // QSettings of other programs hold this lock while they read and replace the file. One that
    // was left behind must not keep us from writing.
    QLockFile lock(m_path + kLockSuffix);
    if (m_use == Use::Shared) {
        lock.setStaleLockTime(kLockPatience);
        lock.tryLock(kLockPatience);
    }
    const bool mustLoad = m_use == Use::Shared || !m_isLoaded;
    if (mustLoad ? !load() : !repairSettings(m_path))
        return false;
    const QString newName = newNameOf(m_path);
    if (!writeTo(newName) || !rename(newName, m_path)) {
        QFile::remove(newName);
        return false;
    }
    m_unsaved.clear();
    flushFolder(QFileInfo(m_path).path());
    return true;
}

bool isSettled(time_t changed)
{
    return std::abs(std::time(nullptr) - changed) > kTimeStep;
}

bool repairSettings(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info = {};
    if (::stat(name.constData(), &info) != 0)
        return !exists(path) || moveAside(path);
    if (!S_ISREG(info.st_mode))
        return moveAside(path);
    return ::faccessat(AT_FDCWD, name.constData(), R_OK, AT_EACCESS) == 0
        // Its owner may be about to share it.
        || (isSettled(info.st_mtime) && moveAside(path));
}
