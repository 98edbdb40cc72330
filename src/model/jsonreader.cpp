#include "model/jsonreader.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace QtJson {

namespace {

constexpr int kSafeDigits = std::numeric_limits<uint>::digits10;
constexpr int kHexDigits = 4;
constexpr int kLongestMark = 2; // texts as short as this are shared

bool isDigit(ushort c)
{
    return c >= '0' && c <= '9';
}

bool isNumberUnit(ushort c)
{
    return isDigit(c) || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

// Four hexadecimal digits, or what else Qt takes for a number.
ushort codeUnit(const ushort *digits)
{
    uint value = 0;
    for (int i = 0; i < kHexDigits; ++i) {
        const ushort c = digits[i];
        const ushort lower = c | 0x20U;
        if (isDigit(c))
            value = value * 16 + (c - '0');
        else if (lower >= 'a' && lower <= 'f')
            value = value * 16 + (lower - 'a' + 10);
        else
            return QString::fromUtf16(digits, kHexDigits).toUShort(nullptr, 16);
    }
    return static_cast<ushort>(value);
}

} // namespace

QVariant Reader::readValue()
{
    QVariant value;
    readInto(value);
    return value;
}

// Into an invalid variant, which stays one after an error.
void Reader::readInto(QVariant &value)
{
    if (!m_ok)
        return;
    const ushort c = peek();
    switch (c) {
    case '"': {
        QString storage;
        const QStringView text = readString(storage);
        if (!storage.isNull())
            value = storage;
        else if (text.size() > 0 && text.size() <= kLongestMark)
            value = shared(text);
        else
            value = text.toString();
        return;
    }
    case '{':
        // Filled where it is: a copy would cost as much as a short one.
        value = QVariantMap();
        readObject([&, map = static_cast<QVariantMap *>(value.data())](QStringView key) {
            readInto(*map->insert(shared(key), QVariant()));
        });
        break;
    case '[':
        value = QVariantList();
        readArray([&, list = static_cast<QVariantList *>(value.data())] {
            list->append(QVariant());
            readInto(list->last());
        });
        break;
    case 't':
    case 'f':
    case 'n':
        m_ok = startsToken(c);
        if (!m_ok)
            return;
        m_at += c == 'f' ? 5 : 4;
        if (c != 'n')
            value = c == 't';
        return;
    default:
        m_ok = c == '-' || isDigit(c);
        if (m_ok)
            value = readNumber();
    }
    if (!m_ok)
        value = QVariant();
}

void Reader::skipValue()
{
    if (!m_ok)
        return;
    switch (peek()) {
    case '"':
        ++m_at;
        skipString();
        break;
    case '{':
        readObject([this](QStringView) { skipValue(); });
        break;
    case '[':
        readArray([this] { skipValue(); });
        break;
    default:
        readValue();
    }
}

// To the end of the string the position is in.
void Reader::skipString()
{
    for (; m_at < m_end; ++m_at) {
        if (*m_at == '"') {
            ++m_at;
            return;
        }
        if (*m_at == '\\' && ++m_at < m_end && *m_at == 'u')
            m_at += std::min<qptrdiff>(kHexDigits, m_end - m_at - 1);
    }
    m_at = m_end;
    m_ok = false;
}

QString Reader::readText(const QString &expected)
{
    if (!m_ok || peek() != '"')
        return readScalar().toString();
    // A null text is stored in another form than an empty one.
    if (!expected.isNull() && skipExpected(expected))
        return expected;
    QString storage;
    const QStringView text = readString(storage);
    return storage.isNull() ? text.toString() : storage;
}

QStringView Reader::readTextView(QString &storage)
{
    if (m_ok && peek() == '"')
        return readString(storage);
    storage = readScalar().toString();
    return storage;
}

const QString &Reader::shared(QStringView text)
{
    const auto size = static_cast<size_t>(text.size());
    const size_t slot = text.isEmpty() ? 0 : (size * 7 + text.front().unicode() + text.back().unicode() * 3U);
    QString &known = m_shared[slot % m_shared.size()];
    if (static_cast<size_t>(known.size()) != size
        || std::memcmp(known.constData(), text.data(), size * sizeof(QChar)) != 0)
        known = text.toString();
    return known;
}

// Any value, or what cannot be one but is read as one.
bool Reader::startsToken(ushort c) const
{
    const auto isWord = [this](const char *word) {
        const ushort *at = m_at;
        while (*word && at != m_end && *at == static_cast<ushort>(*word)) {
            ++at;
            ++word;
        }
        return *word == '\0';
    };
    switch (c) {
    case '"':
    case '{':
    case '}':
    case '[':
    case ']':
    case ':':
    case ',':
    case '-':
        return true;
    case 't':
        return isWord("true");
    case 'f':
        return isWord("false");
    case 'n':
        return isWord("null");
    default:
        return isDigit(c);
    }
}

// Past commas, leading, doubled and trailing ones too, to the next element. False at the
// closing bracket, past which it moves, and after an error.
bool Reader::stepTo(ushort closing)
{
    ushort c = peek();
    while (m_ok && c == ',') {
        ++m_at;
        c = peek();
    }
    if (!m_ok)
        return false;
    if (c != closing)
        return m_ok = startsToken(c);
    ++m_at;
    return false;
}

// Numbers are typed by how they are written: with a point a double, else the smallest of
// the 32-bit and 64-bit integers that holds them, else the text itself.
QVariant Reader::readNumber()
{
    const ushort *start = m_at;
    bool hasPoint = false;
    bool isPlain = true;
    for (; m_at != m_end && isNumberUnit(*m_at); ++m_at) {
        hasPoint = hasPoint || *m_at == '.';
        if (!isDigit(*m_at) && !(*m_at == '-' && m_at == start))
            isPlain = false;
    }
    if (isPlain && *start != '-' && m_at - start <= kSafeDigits) {
        uint value = 0;
        for (const ushort *digit = start; digit != m_at; ++digit)
            value = value * 10 + (*digit - '0');
        return value;
    }
    const QString run = view(start, m_at).toString();
    bool ok = false;
    if (hasPoint) {
        const double value = run.toDouble(&ok);
        return ok ? value : 0.0;
    }
    if (!isPlain)
        return run;
    if (*start != '-') {
        const qulonglong value = run.toULongLong(&ok);
        if (!ok)
            return run;
        if (value <= std::numeric_limits<uint>::max())
            return static_cast<uint>(value);
        return value;
    }
    const qlonglong value = run.toLongLong(&ok);
    if (!ok)
        return run;
    if (value >= std::numeric_limits<int>::min())
        return static_cast<int>(value);
    return value;
}

// A view of the text itself when the string has no escapes, and storage stays null;
// otherwise a view of storage. The position is at a unit that is taken for the quote.
QStringView Reader::readString(QString &storage)
{
    const ushort *start = ++m_at;
    const ushort *at = start;
    while (at < m_end && *at != '"' && *at != '\\')
        ++at;
    m_at = at;
    if (at < m_end && *at == '"') {
        ++m_at;
        return view(start, at);
    }
    skipString();
    if (!m_ok)
        return {};
    const ushort *end = m_at - 1;
    const auto longest = static_cast<int>(end - start);
    storage = QString(longest, Qt::Uninitialized);
    auto *const first = reinterpret_cast<ushort *>(storage.data());
    ushort *out = std::copy(start, at, first);
    while (at != end) {
        if (*at == '\\')
            at = unescape(at + 1, out);
        else
            *out++ = *at++;
    }
    storage.truncate(static_cast<int>(out - first));
    if (storage.size() < longest / 2)
        storage.squeeze();
    return storage;
}

QVariant Reader::readScalar()
{
    if (!isAtObject() && !isAtArray())
        return readValue();
    skipValue();
    return {};
}

// Moves past the string at the position when it reads as the expected text. Otherwise, and
// for the rarer escapes, returns false and the position stays.
bool Reader::skipExpected(const QString &expected)
{
    const ushort *at = m_at + 1;
    for (const QChar unit : expected) {
        if (at == m_end)
            return false;
        ushort c = *at++;
        if (c == '"')
            return false;
        if (c == '\\') {
            c = at != m_end ? *at++ : ushort(0);
            if (c != '"' && c != '\\' && c != '/')
                return false;
        }
        if (c != unit.unicode())
            return false;
    }
    if (at == m_end || *at != '"')
        return false;
    m_at = at + 1;
    return true;
}

// Of what follows a backslash; returns the place after it. Unknown escapes are dropped; each
// \u group is one code unit, a broken one the unit 0.
const ushort *Reader::unescape(const ushort *at, ushort *&out)
{
    const ushort c = *at++;
    switch (c) {
    case '"':
    case '\\':
    case '/':
        *out++ = c;
        break;
    case 'b':
        *out++ = '\b';
        break;
    case 'f':
        *out++ = '\f';
        break;
    case 'n':
        *out++ = '\n';
        break;
    case 'r':
        *out++ = '\r';
        break;
    case 't':
        *out++ = '\t';
        break;
    case 'u':
        *out++ = codeUnit(at);
        return at + kHexDigits;
    default:
        break;
    }
    return at;
}

} // namespace QtJson
