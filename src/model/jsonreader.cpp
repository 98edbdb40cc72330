#include "model/jsonreader.h"

#include <limits>

namespace QtJson {

namespace {

constexpr int kSafeDigits = std::numeric_limits<uint>::digits10;

bool isNumberUnit(ushort c)
{
    return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

} // namespace

QVariant Reader::readValue()
{
    if (!m_ok)
        return {};
    switch (peekToken()) {
    case Token::String: {
        QString storage;
        const QStringView text = readString(storage);
        return storage.isNull() ? text.toString() : storage;
    }
    case Token::Number:
        return readNumber();
    case Token::ObjectOpen: {
        QVariantMap map;
        readObject([&](QStringView key) {
            const QString name = shared(key);
            map.insert(name, readValue());
        });
        return m_ok ? QVariant(map) : QVariant();
    }
    case Token::ArrayOpen: {
        QVariantList list;
        readArray([&] { list.append(readValue()); });
        return m_ok ? QVariant(list) : QVariant();
    }
    case Token::True:
        nextToken();
        return true;
    case Token::False:
        nextToken();
        return false;
    case Token::Null:
        nextToken();
        return {};
    case Token::None:
    case Token::ObjectClose:
    case Token::ArrayClose:
    case Token::Colon:
    case Token::Comma:
        break;
    }
    m_ok = false;
    return {};
}

void Reader::skipValue()
{
    if (!m_ok)
        return;
    switch (peekToken()) {
    case Token::String:
        skipString();
        break;
    case Token::ObjectOpen:
        readObject([this](QStringView) { skipValue(); });
        break;
    case Token::ArrayOpen:
        readArray([this] { skipValue(); });
        break;
    default:
        readValue();
    }
}

void Reader::skipString()
{
    constexpr int hexDigits = 4;
    for (++m_index; m_index < m_size; ++m_index) {
        if (m_text[m_index] == '"') {
            ++m_index;
            return;
        }
        if (m_text[m_index] == '\\' && ++m_index < m_size && m_text[m_index] == 'u')
            m_index += hexDigits;
    }
    m_index = m_size;
    m_ok = false;
}

QString Reader::readText(const QString &expected)
{
    if (!m_ok || peekToken() != Token::String)
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
    if (m_ok && peekToken() == Token::String)
        return readString(storage);
    storage = readScalar().toString();
    return storage;
}

QString Reader::shared(QStringView key)
{
    const auto size = static_cast<size_t>(key.size());
    const size_t slot = key.isEmpty() ? 0 : (size * 7 + key.front().unicode() + key.back().unicode() * 3u);
    QString &known = m_keys[slot % m_keys.size()];
    if (known != key)
        known = key.toString();
    return known;
}

void Reader::eatWhitespace()
{
    while (m_index < m_size) {
        const ushort c = m_text[m_index];
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            return;
        ++m_index;
    }
}

bool Reader::hasWord(int index, const char *word, int length) const
{
    if (m_size - index < length)
        return false;
    for (int i = 0; i < length; ++i) {
        if (m_text[index + i] != static_cast<ushort>(word[i]))
            return false;
    }
    return true;
}

Reader::Token Reader::peekToken()
{
    eatWhitespace();
    int index = m_index;
    return tokenAt(index);
}

Reader::Token Reader::nextToken()
{
    eatWhitespace();
    return tokenAt(m_index);
}

// At the end of the text, or before something that is no token, the position
// stays. A word token may be followed by anything.
Reader::Token Reader::tokenAt(int &index) const
{
    if (index >= m_size)
        return Token::None;
    const ushort c = m_text[index];
    const auto take = [&index](int length, Token token) {
        index += length;
        return token;
    };
    switch (c) {
    case '{':
        return take(1, Token::ObjectOpen);
    case '}':
        return take(1, Token::ObjectClose);
    case '[':
        return take(1, Token::ArrayOpen);
    case ']':
        return take(1, Token::ArrayClose);
    case ':':
        return take(1, Token::Colon);
    case ',':
        return take(1, Token::Comma);
    case '"':
        return take(1, Token::String);
    case '-':
        return take(1, Token::Number);
    case 't':
        return hasWord(index, "true", 4) ? take(4, Token::True) : Token::None;
    case 'f':
        return hasWord(index, "false", 5) ? take(5, Token::False) : Token::None;
    case 'n':
        return hasWord(index, "null", 4) ? take(4, Token::Null) : Token::None;
    default:
        return c >= '0' && c <= '9' ? take(1, Token::Number) : Token::None;
    }
}

// Numbers are typed by how they are written: with a point a double, else the smallest of
// the 32-bit and 64-bit integers that holds them, else the text itself.
QVariant Reader::readNumber()
{
    eatWhitespace();
    const int start = m_index;
    bool hasPoint = false;
    bool isPlain = true;
    for (; m_index < m_size && isNumberUnit(m_text[m_index]); ++m_index) {
        const ushort c = m_text[m_index];
        hasPoint = hasPoint || c == '.';
        if ((c < '0' || c > '9') && !(c == '-' && m_index == start))
            isPlain = false;
    }
    if (isPlain && m_text[start] != '-' && m_index - start <= kSafeDigits) {
        uint value = 0;
        for (int i = start; i < m_index; ++i)
            value = value * 10 + (m_text[i] - '0');
        return value;
    }
    const QString run = view(start, m_index).toString();
    bool ok = false;
    if (hasPoint) {
        const double value = run.toDouble(&ok);
        return ok ? value : 0.0;
    }
    if (!isPlain)
        return run;
    if (m_text[start] != '-') {
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
// otherwise a view of storage.
QStringView Reader::readString(QString &storage)
{
    eatWhitespace();
    if (m_index < m_size)
        ++m_index;
    const int start = m_index;
    while (m_index < m_size && m_text[m_index] != '"' && m_text[m_index] != '\\')
        ++m_index;
    if (m_index < m_size && m_text[m_index] == '"')
        return view(start, m_index++);
    storage = view(start, m_index).toString();
    if (storage.isNull())
        storage = QLatin1String("");
    while (m_index < m_size) {
        const ushort c = m_text[m_index++];
        if (c == '"')
            return storage;
        if (c != '\\') {
            storage.append(QChar(c));
            continue;
        }
        if (m_index >= m_size || !appendEscape(storage))
            break;
    }
    m_ok = false;
    return {};
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
    eatWhitespace();
    int index = m_index + 1;
    for (const QChar unit : expected) {
        if (index >= m_size)
            return false;
        ushort c = m_text[index++];
        if (c == '"')
            return false;
        if (c == '\\') {
            c = index < m_size ? m_text[index++] : ushort(0);
            if (c != '"' && c != '\\' && c != '/')
                return false;
        }
        if (c != unit.unicode())
            return false;
    }
    if (index >= m_size || m_text[index] != '"')
        return false;
    m_index = index + 1;
    return true;
}

// The position is after the backslash. Unknown escapes are dropped; each \u group is
// one code unit, a broken one the unit 0.
bool Reader::appendEscape(QString &result)
{
    const ushort c = m_text[m_index++];
    switch (c) {
    case '"':
    case '\\':
    case '/':
        result.append(QChar(c));
        break;
    case 'b':
        result.append(QLatin1Char('\b'));
        break;
    case 'f':
        result.append(QLatin1Char('\f'));
        break;
    case 'n':
        result.append(QLatin1Char('\n'));
        break;
    case 'r':
        result.append(QLatin1Char('\r'));
        break;
    case 't':
        result.append(QLatin1Char('\t'));
        break;
    case 'u': {
        if (m_size - m_index < 4)
            return false;
        bool ok = false;
        const ushort unit = view(m_index, m_index + 4).toString().toUShort(&ok, 16);
        result.append(QChar(ok ? unit : ushort(0)));
        m_index += 4;
        break;
    }
    default:
        break;
    }
    return true;
}

} // namespace QtJson
