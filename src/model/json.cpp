#include "model/json.h"

#include <QDate>
#include <QDateTime>

#include <limits>

namespace QtJson {

namespace {

QString s_dateFormat;
QString s_dateTimeFormat;
bool s_prettySerialize = false;

constexpr int kMaxNesting = 1000;
constexpr int kIndentWidth = 4;

enum class Token {
    None,
    ObjectOpen,
    ObjectClose,
    ArrayOpen,
    ArrayClose,
    Colon,
    Comma,
    String,
    Number,
    True,
    False,
    Null
};

// Reads straight from the text's code units; a position never leaves the text.
class Reader
{
public:
    explicit Reader(const QString &text) : m_text(text.utf16()), m_size(text.size()) {}

    QVariant parseValue(int &index, bool &success)
    {
        switch (peekToken(index)) {
        case Token::String:
            return parseString(index, success);
        case Token::Number:
            return parseNumber(index);
        case Token::ObjectOpen:
            return parseObject(index, success);
        case Token::ArrayOpen:
            return parseArray(index, success);
        case Token::True:
            nextToken(index);
            return true;
        case Token::False:
            nextToken(index);
            return false;
        case Token::Null:
            nextToken(index);
            return {};
        case Token::None:
        case Token::ObjectClose:
        case Token::ArrayClose:
        case Token::Colon:
        case Token::Comma:
            break;
        }
        success = false;
        return {};
    }

private:
    class Nesting
    {
    public:
        explicit Nesting(int &depth) : m_depth(depth) { ++m_depth; }
        ~Nesting() { --m_depth; }
        bool isTooDeep() const { return m_depth > kMaxNesting; }
        Q_DISABLE_COPY_MOVE(Nesting)

    private:
        int &m_depth;
    };

    void eatWhitespace(int &index) const
    {
        while (index < m_size) {
            const ushort c = m_text[index];
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
                return;
            ++index;
        }
    }

    bool hasWord(int index, const char *word, int length) const
    {
        if (m_size - index < length)
            return false;
        for (int i = 0; i < length; ++i) {
            if (m_text[index + i] != static_cast<ushort>(word[i]))
                return false;
        }
        return true;
    }

    Token peekToken(int index) const { return nextToken(index); }

    // At the end of the text, or before something that is no token, the
    // position stays (behind the white space). A word token may be followed by
    // anything.
    Token nextToken(int &index) const
    {
        eatWhitespace(index);
        if (index >= m_size)
            return Token::None;
        const ushort c = m_text[index];
        switch (c) {
        case '{':
            ++index;
            return Token::ObjectOpen;
        case '}':
            ++index;
            return Token::ObjectClose;
        case '[':
            ++index;
            return Token::ArrayOpen;
        case ']':
            ++index;
            return Token::ArrayClose;
        case ':':
            ++index;
            return Token::Colon;
        case ',':
            ++index;
            return Token::Comma;
        case '"':
            ++index;
            return Token::String;
        case '-':
            ++index;
            return Token::Number;
        case 't':
            if (hasWord(index, "true", 4)) {
                index += 4;
                return Token::True;
            }
            return Token::None;
        case 'f':
            if (hasWord(index, "false", 5)) {
                index += 5;
                return Token::False;
            }
            return Token::None;
        case 'n':
            if (hasWord(index, "null", 4)) {
                index += 4;
                return Token::Null;
            }
            return Token::None;
        default:
            if (c >= '0' && c <= '9') {
                ++index;
                return Token::Number;
            }
            return Token::None;
        }
    }

    QVariant parseObject(int &index, bool &success)
    {
        const Nesting nesting(m_depth);
        if (nesting.isTooDeep()) {
            success = false;
            return {};
        }
        QVariantMap map;
        nextToken(index);
        while (true) {
            const Token token = peekToken(index);
            if (token == Token::None) {
                success = false;
                return {};
            }
            if (token == Token::Comma) {
                nextToken(index);
            } else if (token == Token::ObjectClose) {
                nextToken(index);
                return map;
            } else {
                // A key is read as a string whatever it starts with.
                const QString key = parseString(index, success);
                if (success && nextToken(index) != Token::Colon)
                    success = false;
                if (!success)
                    return {};
                const QVariant value = parseValue(index, success);
                if (!success)
                    return {};
                map.insert(key, value);
            }
        }
    }

    QVariant parseArray(int &index, bool &success)
    {
        const Nesting nesting(m_depth);
        if (nesting.isTooDeep()) {
            success = false;
            return {};
        }
        QVariantList list;
        nextToken(index);
        while (true) {
            const Token token = peekToken(index);
            if (token == Token::None) {
                success = false;
                return {};
            }
            if (token == Token::Comma) {
                nextToken(index);
            } else if (token == Token::ArrayClose) {
                nextToken(index);
                return list;
            } else {
                const QVariant value = parseValue(index, success);
                if (!success)
                    return {};
                list.append(value);
            }
        }
    }

    static bool isNumberUnit(ushort c)
    {
        return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
    }

    // Numbers are typed by their look: with a point a double, else the smallest
    // of the 32-bit and 64-bit integers that holds them, else the text itself.
    QVariant parseNumber(int &index) const
    {
        eatWhitespace(index);
        const int start = index;
        bool hasPoint = false;
        bool isPlain = true;
        for (; index < m_size && isNumberUnit(m_text[index]); ++index) {
            const ushort c = m_text[index];
            hasPoint = hasPoint || c == '.';
            if ((c < '0' || c > '9') && !(c == '-' && index == start))
                isPlain = false;
        }
        const QString run(reinterpret_cast<const QChar *>(m_text + start), index - start);
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

    QString parseString(int &index, bool &success) const
    {
        eatWhitespace(index);
        if (index < m_size)
            ++index;
        const int start = index;
        while (index < m_size && m_text[index] != '"' && m_text[index] != '\\')
            ++index;
        QString result(reinterpret_cast<const QChar *>(m_text + start), index - start);
        while (index < m_size) {
            const ushort c = m_text[index++];
            if (c == '"')
                return result;
            if (c != '\\') {
                result.append(QChar(c));
                continue;
            }
            if (index >= m_size)
                break;
            if (!appendEscape(index, result))
                break;
        }
        success = false;
        return {};
    }

    // The position stands behind the backslash. Unknown escapes vanish whole;
    // each \u group is one code unit, a broken one the unit 0.
    bool appendEscape(int &index, QString &result) const
    {
        switch (m_text[index++]) {
        case '"':
            result.append(QLatin1Char('"'));
            break;
        case '\\':
            result.append(QLatin1Char('\\'));
            break;
        case '/':
            result.append(QLatin1Char('/'));
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
            if (m_size - index < 4)
                return false;
            const QString group(reinterpret_cast<const QChar *>(m_text + index), 4);
            bool ok = false;
            const ushort unit = group.toUShort(&ok, 16);
            result.append(QChar(ok ? unit : ushort(0)));
            index += 4;
            break;
        }
        default:
            break;
        }
        return true;
    }

    const ushort *m_text;
    int m_size;
    int m_depth = 0;
};

// Writes the whole tree into one text that is encoded once at the end.
class Writer
{
public:
    bool write(const QVariant &data, int level)
    {
        switch (data.userType()) {
        case QMetaType::UnknownType:
            m_out += QLatin1String("null");
            return true;
        case QMetaType::QVariantList:
            return writeList(*static_cast<const QVariantList *>(data.constData()), level);
        case QMetaType::QStringList:
            return writeList(data.toList(), level);
        case QMetaType::QVariantHash:
            return writeMap(*static_cast<const QVariantHash *>(data.constData()), level + 1);
        case QMetaType::QVariantMap:
            return writeMap(*static_cast<const QVariantMap *>(data.constData()), level + 1);
        case QMetaType::QString:
        case QMetaType::QByteArray:
            writeString(data.toString());
            return true;
        case QMetaType::Double:
            return writeDouble(data);
        case QMetaType::Bool:
            m_out += data.toBool() ? QLatin1String("true") : QLatin1String("false");
            return true;
        case QMetaType::ULongLong:
            m_out += QString::number(data.toULongLong());
            return true;
        default:
            return writeOther(data);
        }
    }

    QByteArray result() const { return m_out.toUtf8(); }

private:
    static QString indent(int level)
    {
        return s_prettySerialize ? QString(level * kIndentWidth, QLatin1Char(' ')) : QString();
    }

    void newLine()
    {
        if (s_prettySerialize)
            m_out += QLatin1Char('\n');
    }

    bool writeList(const QVariantList &list, int level)
    {
        if (list.isEmpty()) {
            m_out += QLatin1String("[]");
            return true;
        }
        const QString closing = indent(level);
        const QString opening = indent(level + 1);
        m_out += QLatin1Char('[');
        bool first = true;
        for (const QVariant &item : list) {
            if (!first)
                m_out += QLatin1Char(',');
            first = false;
            newLine();
            m_out += opening;
            if (!write(item, level + 1))
                return false;
        }
        newLine();
        m_out += closing;
        m_out += QLatin1Char(']');
        return true;
    }

    template <typename Map>
    bool writeMap(const Map &map, int level)
    {
        if (map.isEmpty()) {
            m_out += QLatin1String("{}");
            return true;
        }
        const QString closing = indent(level - 1);
        const QString opening = indent(level);
        m_out += QLatin1Char('{');
        bool first = true;
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (!first)
                m_out += QLatin1Char(',');
            first = false;
            newLine();
            m_out += opening;
            writeString(it.key());
            m_out += QLatin1Char(':');
            if (s_prettySerialize)
                m_out += QLatin1Char(' ');
            if (!write(it.value(), level))
                return false;
        }
        newLine();
        m_out += closing;
        m_out += QLatin1Char('}');
        return true;
    }

    // Six significant digits: readers of the stored records expect this form.
    bool writeDouble(const QVariant &data)
    {
        bool ok = false;
        const QByteArray digits = QByteArray::number(data.toDouble(&ok), 'g', 6);
        if (!ok)
            return false;
        m_out += QLatin1String(digits);
        if (!digits.contains('.') && !digits.contains('e'))
            m_out += QLatin1String(".0");
        return true;
    }

    bool writeOther(const QVariant &data)
    {
        if (data.canConvert<qlonglong>()) {
            m_out += QString::number(data.toLongLong());
            return true;
        }
        if (data.canConvert<long>()) {
            m_out += QString::number(data.value<long>());
            return true;
        }
        if (data.userType() == QMetaType::QDateTime) {
            const QDateTime value = data.toDateTime();
            writeString(s_dateTimeFormat.isEmpty() ? value.toString(Qt::TextDate)
                                                   : value.toString(s_dateTimeFormat));
            return true;
        }
        if (data.userType() == QMetaType::QDate) {
            // It is the date-time format that switches the date format on.
            const QDate value = data.toDate();
            writeString(s_dateTimeFormat.isEmpty() ? value.toString(Qt::TextDate)
                                                   : value.toString(s_dateFormat));
            return true;
        }
        if (data.canConvert<QString>()) {
            writeString(data.toString());
            return true;
        }
        return false;
    }

    void writeString(const QString &text)
    {
        m_out += QLatin1Char('"');
        const QChar *unit = text.constData();
        const QChar *end = unit + text.size();
        const QChar *plain = unit;
        for (; unit != end; ++unit) {
            const char escape = escapeFor(unit->unicode());
            if (escape == 0)
                continue;
            m_out.append(plain, static_cast<int>(unit - plain));
            m_out += QLatin1Char('\\');
            m_out += QLatin1Char(escape);
            plain = unit + 1;
        }
        m_out.append(plain, static_cast<int>(end - plain));
        m_out += QLatin1Char('"');
    }

    static char escapeFor(ushort unit)
    {
        switch (unit) {
        case '\\':
            return '\\';
        case '"':
            return '"';
        case '\b':
            return 'b';
        case '\f':
            return 'f';
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
        default:
            return 0;
        }
    }

    QString m_out;
};

} // namespace

QVariant parse(const QString &json)
{
    bool success = true;
    return parse(json, success);
}

QVariant parse(const QString &json, bool &success)
{
    success = true;
    if (json.isNull())
        return {};
    int index = 0;
    const QVariant value = Reader(json).parseValue(index, success);
    return success ? value : QVariant();
}

QByteArray serialize(const QVariant &data)
{
    bool success = true;
    return serialize(data, success, 0);
}

QByteArray serialize(const QVariant &data, bool &success, int indentLevel)
{
    Writer writer;
    success = writer.write(data, indentLevel);
    return success ? writer.result() : QByteArray();
}

QString serializeStr(const QVariant &data)
{
    bool success = true;
    return serializeStr(data, success);
}

QString serializeStr(const QVariant &data, bool &success)
{
    const QByteArray bytes = serialize(data, success, 0);
    return bytes.isNull() ? QString() : QString::fromUtf8(bytes.constData());
}

QVariant clone(const QVariant &data)
{
    QVariant copy;
    switch (data.userType()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = data.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            insert(copy, it.key(), it.value());
        return copy;
    }
    case QMetaType::QVariantHash: {
        const QVariantHash hash = data.toHash();
        for (auto it = hash.cbegin(); it != hash.cend(); ++it)
            insert(copy, it.key(), it.value());
        return copy;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        const QVariantList list = data.toList();
        for (const QVariant &item : list)
            append(copy, item);
        return copy;
    }
    default:
        return data;
    }
}

void insert(QVariant &v, const QString &key, const QVariant &value)
{
    QVariantMap map = v.canConvert<QVariantMap>() ? v.toMap() : QVariantMap();
    map.insert(key, clone(value));
    v = map;
}

void append(QVariant &v, const QVariant &value)
{
    QVariantList list = v.canConvert<QVariantList>() ? v.toList() : QVariantList();
    list.append(value);
    v = list;
}

void setDateTimeFormat(const QString &format)
{
    s_dateTimeFormat = format;
}

void setDateFormat(const QString &format)
{
    s_dateFormat = format;
}

QString getDateTimeFormat()
{
    return s_dateTimeFormat;
}

QString getDateFormat()
{
    return s_dateFormat;
}

void setPrettySerialize(bool pretty)
{
    s_prettySerialize = pretty;
}

bool isPrettySerialize()
{
    return s_prettySerialize;
}

} // namespace QtJson
