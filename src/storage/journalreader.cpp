#include "storage/journalreader.h"

#include <QCryptographicHash>
#include <QDate>
#include <QDir>
#include <QJsonDocument>
#include <QLocale>
#include <QRegularExpression>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kMaxLine = 4 * 1024 * 1024;
constexpr int kBlock = 64 * 1024;
constexpr int kHashLength = 64;
const QByteArray kHashKey = QByteArrayLiteral(",\"hash\":\"");
const QByteArray kEnd = QByteArrayLiteral("\"}");

QByteArray hashOf(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

// The hash that the line ends with, if it is that of all before it.
QByteArray ownHash(const QByteArray &bytes)
{
    const int hashed = bytes.size() - kHashKey.size() - kHashLength - kEnd.size();
    if (hashed <= 0 || !bytes.endsWith(kEnd) || bytes.mid(hashed, kHashKey.size()) != kHashKey)
        return {};
    const QByteArray said = bytes.mid(hashed + kHashKey.size(), kHashLength);
    return said == hashOf(bytes.left(hashed)) ? said : QByteArray();
}

void parse(const QByteArray &bytes, JournalReader::Line *line)
{
    const QJsonDocument json = QJsonDocument::fromJson(bytes);
    if (!json.isObject()) {
        line->state = JournalReader::State::Broken;
        return;
    }
    line->values = json.object();
    line->n = static_cast<qint64>(line->values.value(QLatin1String("n")).toDouble());
    line->event = line->values.value(QLatin1String("event")).toString();
    line->before = line->values.value(QLatin1String("before")).toString().toLatin1();
    line->hash = ownHash(bytes);
    line->state = line->hash.isEmpty() ? JournalReader::State::Changed : JournalReader::State::Whole;
}

} // namespace

JournalReader::JournalReader(const QString &path, qint64 from)
    : m_position(from)
{
    const int handle =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat info = {};
    if (handle >= 0 && fstat(handle, &info) == 0 && S_ISREG(info.st_mode)
        && lseek(handle, from, SEEK_SET) >= 0
        && m_file.open(handle, QIODevice::ReadOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle))
        return;
    const bool isOther = handle >= 0 && !S_ISREG(info.st_mode);
    m_errorText = isOther ? QStringLiteral("not a file") : QString::fromLocal8Bit(std::strerror(errno));
    if (handle >= 0)
        close(handle);
}

// More of the file behind what is left in the buffer; false when there is none.
bool JournalReader::fill()
{
    m_buffer.remove(0, m_at);
    m_at = 0;
    const QByteArray block = m_file.isOpen() ? m_file.read(kBlock) : QByteArray();
    m_buffer += block;
    return !block.isEmpty();
}

bool JournalReader::next(Line *line)
{
    *line = {};
    int searched = 0; // of what is left
    int end = -1;
    while ((end = m_buffer.indexOf('\n', m_at + searched)) < 0) {
        searched = m_buffer.size() - m_at;
        if (line->bytes + searched > kMaxLine) {
            line->bytes += searched;
            m_at = m_buffer.size();
            searched = 0;
        }
        if (!fill())
            break;
    }
    line->isEnded = end >= 0;
    const int rest = (line->isEnded ? end : m_buffer.size()) - m_at;
    const bool isTooLong = line->bytes > 0 || rest > kMaxLine;
    line->bytes += rest;
    if (line->bytes == 0 && !line->isEnded)
        return false;
    if (isTooLong)
        line->state = State::TooLong;
    else
        parse(m_buffer.mid(m_at, rest), line);
    m_at += rest + (line->isEnded ? 1 : 0);
    m_position += line->bytes + (line->isEnded ? 1 : 0);
    line->line = ++m_lines;
    return true;
}

bool JournalChain::follows(const JournalReader::Line &line)
{
    if (!line.isWhole()) {
        ++m_unread;
        m_unreadBytes = line.bytes;
        return true; // as yet
    }
    const bool isLinked = m_hash.isEmpty() || (line.before == m_hash && line.n == m_n + 1);
    const bool isAccountedFor = m_unread == 0
        || (m_unread == 1 && line.event == QLatin1String("torn")
            && line.values.value(QLatin1String("bytes")).toDouble() == static_cast<double>(m_unreadBytes));
    m_n = line.n;
    m_hash = line.hash;
    m_unread = 0;
    return isLinked && isAccountedFor;
}

QByteArray Journal::line(qint64 n, const QByteArray &values, const QByteArray &before, QByteArray *hash)
{
    const QByteArray hashed =
        "{\"n\":" + QByteArray::number(n) + ',' + values + ",\"before\":\"" + before + '"';
    *hash = hashOf(hashed);
    return hashed + kHashKey + *hash + kEnd;
}

QByteArray Journal::noHash()
{
    return QByteArray(kHashLength, '0');
}

QString Journal::folderOf(const QString &userFolder)
{
    return userFolder + QLatin1String("/journal");
}

QString Journal::fileName(const QDate &month)
{
    return QLocale::c().toString(month, QStringLiteral("yyyy-MM")) + QLatin1String(".jsonl");
}

QStringList Journal::files(const QString &userFolder)
{
    static const QRegularExpression name(QStringLiteral("^[0-9]{4}-[0-9]{2}\\.jsonl$"));
    const QDir folder(folderOf(userFolder));
    const QStringList names = folder.entryList(QDir::Files | QDir::NoSymLinks | QDir::Hidden, QDir::Name);
    QStringList paths;
    for (const QString &each : names.filter(name))
        paths.append(folder.absoluteFilePath(each));
    return paths;
}
