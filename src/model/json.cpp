#include "model/json.h"

#include "model/jsonreader.h"

#include <QDate>
#include <QDateTime>
#include <QLocale>

namespace QtJson {

namespace {

QString s_dateFormat;
QString s_dateTimeFormat;
bool s_prettySerialize = false;

constexpr int kIndentWidth = 4;

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
                                                   : QLocale::c().toString(value, s_dateTimeFormat));
            return true;
        }
        if (data.userType() == QMetaType::QDate) {
            // It is the date-time format that switches the date format on.
            const QDate value = data.toDate();
            writeString(s_dateTimeFormat.isEmpty() ? value.toString(Qt::TextDate)
                                                   : QLocale::c().toString(value, s_dateFormat));
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
    Reader reader(json);
    const QVariant value = reader.readValue();
    success = reader.isOk();
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
