#include "storage/settingslines.h"

#include <QByteArrayList>
#include <QDataStream>
#include <QIODevice>
#include <QMetaType>
#include <QtEndian>

#include <cctype>
#include <cstring>

namespace {

// As deep as the JSON reader goes, which is where stored values come from.
constexpr int kMaxNesting = 1000;
constexpr quint32 kNullString = 0xFFFFFFFF;
constexpr quint32 kUserType = 127;
constexpr int kMaxHexDigits = 4;
const char kChecksumPrefix[] = "\n;checksum=";

bool skip(QDataStream &stream, quint32 bytes)
{
    return bytes <= stream.device()->bytesAvailable()
        && stream.skipRawData(static_cast<int>(bytes)) == static_cast<int>(bytes);
}

bool skipText(QDataStream &stream)
{
    quint32 size = 0;
    stream >> size;
    return stream.status() == QDataStream::Ok && (size == kNullString || skip(stream, size));
}

template <typename SkipOne>
bool skipAll(QDataStream &stream, SkipOne skipOne)
{
    quint32 count = 0;
    stream >> count;
    // Ends with the data at the latest, for no element is empty.
    while (count > 0 && skipOne())
        --count;
    return stream.status() == QDataStream::Ok && count == 0;
}

bool isOwnRecord(QDataStream &stream)
{
    static const QByteArrayList names{"Task", "QList<Task>", "TaskInfo"};
    QByteArray name;
    stream >> name;
    return name.endsWith('\0') && names.contains(name.chopped(1));
}

// Walks over a value in its stream form (of the version that settings files are
// written in) without building anything.
bool skipValue(QDataStream &stream, int depth = 0)
{
    quint32 type = QMetaType::User;
    stream >> type;
    if (depth > kMaxNesting || stream.status() != QDataStream::Ok)
        return false;
    switch (type) {
    case QMetaType::UnknownType: // an empty text stands for it
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return skipText(stream);
    case QMetaType::Bool:
        return skip(stream, 1);
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::QDate:
    case QMetaType::QTime:
        return skip(stream, 4);
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return skip(stream, 8);
    case QMetaType::QDateTime:
        return skip(stream, 9);
    case QMetaType::QStringList:
        return skipAll(stream, [&] { return skipText(stream); });
    case QMetaType::QVariantList:
        return skipAll(stream, [&] { return skipValue(stream, depth + 1); });
    case QMetaType::QVariantMap:
        return skipAll(stream, [&] { return skipText(stream) && skipValue(stream, depth + 1); });
    case kUserType:
        // The readers of this program's own records survive damage; other values hold no records.
        return depth == 0 && isOwnRecord(stream);
    default:
        return false;
    }
}

bool isValidText(const QByteArray &text)
{
    static const QByteArray variant = QByteArrayLiteral("@Variant(");
    if (!text.startsWith(variant))
        return !text.startsWith("@DateTime(");
    QDataStream stream(text.mid(variant.size()));
    return skipValue(stream);
}

// Reads what follows a backslash: no more than Qt's writer uses, and as Qt's reader does.
bool readEscape(const char *&at, const char *end, QByteArray *text)
{
    static const char letters[] = "abfnrtv\"\\";
    static const char meanings[] = "\a\b\f\n\r\t\v\"\\";
    const char c = at == end ? '\0' : *at++;
    if (const char *letter = c == '\0' ? nullptr : std::strchr(letters, c)) {
        text->append(meanings[letter - letters]);
        return true;
    }
    const char *digits = at;
    while (at != end && std::isxdigit(static_cast<unsigned char>(*at)))
        ++at;
    const auto count = static_cast<int>(at - digits);
    const int code = QByteArray(digits, count).toInt(nullptr, 16);
    // Values in stream form hold no wider characters.
    text->append(code > 0xFF ? '?' : static_cast<char>(code));
    return c == '0' ? count == 0 : c == 'x' && count > 0 && count <= kMaxHexDigits;
}

// One text of a list, up to the comma after it; in quotes when it holds something that needs them.
bool readText(const char *&at, const char *end, QByteArray *text)
{
    const bool quoted = at != end && *at == '"';
    at += quoted ? 1 : 0;
    // Qt would skip a blank in front and read what follows as the start.
    if (!quoted && at != end && *at == ' ')
        return false;
    while (at != end && (quoted || *at != ',')) {
        const char c = *at++;
        if (c == '"')
            return quoted;
        // Others are written as escapes, all of them; a carriage return would end the line.
        if (c < ' ' || c > '~' || (c == '\\' && !readEscape(at, end, text)))
            return false;
        if (c != '\\')
            text->append(c);
    }
    return !quoted;
}

bool isValidLine(const char *at, const char *end)
{
    const auto has = [end](const char *from, char c) {
        return std::memchr(from, c, static_cast<size_t>(end - from)) != nullptr;
    };
    // Nothing but these gives a line a meaning beyond its letters.
    if (!has(at, '\\') && !has(at, '"') && !has(at, '@'))
        return true;
    for (; at != end && *at != '='; ++at) {
        if (*at == '\\' || *at == '"')
            return false;
    }
    // A comma and a blank before each text but the first.
    for (int separator = 1; end - at >= separator; separator = 2) {
        if (separator == 2 && (at[0] != ',' || at[1] != ' '))
            return false;
        at += separator;
        QByteArray text;
        if (!readText(at, end, &text) || !isValidText(text))
            return false;
        if (at == end)
            return true;
    }
    return false;
}

} // namespace

QByteArray validLines(const QByteArray &ini)
{
    QByteArray valid;
    valid.reserve(ini.size());
    const char *end = ini.constData() + ini.size();
    for (const char *line = ini.constData(); line != end;) {
        const auto *newLine =
            static_cast<const char *>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        const char *next = newLine ? newLine + 1 : end;
        if (isValidLine(line, newLine ? newLine : end))
            valid.append(line, static_cast<int>(next - line));
        line = next;
    }
    return valid;
}

// Each step is reversible, so every change within one word is found. Qt's digests take more
// than a tenth as long as writing the file.
QByteArray checksumLine(const QByteArray &lines)
{
    constexpr quint64 factor = 0x9E3779B97F4A7C15;
    const auto sum = [](quint64 before, quint64 word) {
        const quint64 product = (before ^ word) * factor;
        return product ^ (product >> 32U);
    };
    quint64 total = 0;
    const char *at = lines.cbegin();
    for (; lines.cend() - at >= static_cast<qptrdiff>(sizeof total); at += sizeof total)
        total = sum(total, qFromLittleEndian<quint64>(at));
    for (; at != lines.cend(); ++at)
        total = sum(total, static_cast<uchar>(*at));
    return QByteArray(kChecksumPrefix + 1) + QByteArray::number(total, 16) + '\n';
}

bool hasWrongChecksum(const QByteArray &bytes)
{
    const int end = bytes.lastIndexOf(kChecksumPrefix) + 1;
    return end > 0 && bytes.mid(end) != checksumLine(bytes.left(end));
}
