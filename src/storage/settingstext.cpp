#include "storage/settingstext.h"

#include <QDataStream>
#include <QIODevice>
#include <QStringView>

#include <algorithm>
#include <array>
#include <cctype>

namespace {

const char kHexLetters[] = "0123456789abcdef";
constexpr int kUnitsAtOnce = 1024;
constexpr int kLongestUnit = 6; // "\x" and four digits

// What stands for each unit: itself, a letter after a backslash, or a number.
constexpr char kItself = 1;
constexpr char kNumber = 2;

constexpr std::array<char, 0x80> forms()
{
    std::array<char, 0x80> all{};
    for (size_t unit = 0; unit < all.size(); ++unit)
        all[unit] = unit < ' ' || unit == 0x7F ? kNumber : kItself;
    const char letters[] = "abfnrtv\"\\0";
    const char meanings[] = "\a\b\f\n\r\t\v\"\\";
    for (size_t i = 0; i < sizeof meanings; ++i)
        all[static_cast<unsigned char>(meanings[i])] = letters[i];
    return all;
}
constexpr std::array<char, 0x80> kForms = forms();

bool isHexDigit(ushort unit)
{
    return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'f') || (unit >= 'A' && unit <= 'F');
}

char *writeNumber(char *out, ushort unit)
{
    *out++ = '\\';
    *out++ = 'x';
    int shift = 12;
    while (shift > 0 && (unit >> shift) == 0)
        shift -= 4;
    for (; shift >= 0; shift -= 4)
        *out++ = kHexLetters[(unit >> shift) & 0xF];
    return out;
}

// In quotes when it holds what would end it, or has a blank at an end.
class Text
{
public:
    explicit Text(QByteArray &out)
        : m_out(out)
        , m_start(out.size())
    { }

    template <typename Unit>
    void append(const Unit *at, int count)
    {
        // In pieces, so that a long text needs no room for the longest form of all of it.
        for (const Unit *end = at + count; at != end;) {
            const auto *stop = at + std::min<qptrdiff>(kUnitsAtOnce, end - at);
            const int size = m_out.size();
            m_out.resize(size + static_cast<int>(stop - at) * kLongestUnit);
            char *const first = m_out.data() + size;
            char *last = first;
            for (; at != stop; ++at)
                last = write(last, *at);
            m_out.resize(size + static_cast<int>(last - first));
        }
    }
    void append(const char *latin1)
    {
        append(reinterpret_cast<const uchar *>(latin1), static_cast<int>(qstrlen(latin1)));
    }

    void finish()
    {
        const bool hasBlank =
            m_out.size() > m_start && (m_out.at(m_start) == ' ' || m_out.at(m_out.size() - 1) == ' ');
        if (!m_needsQuotes && !hasBlank)
            return;
        m_out.insert(m_start, '"');
        m_out.append('"');
    }

private:
    char *write(char *out, ushort unit)
    {
        // After a number, and a zero, a digit would be read as one more of its own.
        const char form =
            unit >= kForms.size() || (m_isAfterNumber && isHexDigit(unit)) ? kNumber : kForms[unit];
        m_isAfterNumber = form == kNumber || form == '0';
        if (form == kNumber)
            return writeNumber(out, unit);
        if (form != kItself) {
            *out++ = '\\';
            *out++ = form;
            return out;
        }
        m_needsQuotes = m_needsQuotes || unit == ';' || unit == ',' || unit == '=';
        *out++ = static_cast<char>(unit);
        return out;
    }

    QByteArray &m_out;
    int m_start;
    bool m_needsQuotes = false;
    bool m_isAfterNumber = false;
};

void appendValue(const QVariant &value, QByteArray &out)
{
    Text text(out);
    switch (value.userType()) {
    case QMetaType::UnknownType:
        text.append("@Invalid()");
        break;
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        text.append("@ByteArray(");
        text.append(reinterpret_cast<const uchar *>(bytes.constData()), bytes.size());
        text.append(")");
        break;
    }
    case QMetaType::QString:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double: {
        const QString string = value.toString();
        const bool hasNul = string.contains(QChar::Null);
        // Of what starts with it, one at sign belongs to the form.
        text.append(hasNul ? "@String(" : string.startsWith(QLatin1Char('@')) ? "@" : "");
        text.append(string.utf16(), string.size());
        text.append(hasNul ? ")" : "");
        break;
    }
    default: {
        QByteArray bytes;
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_4_0);
        stream << value;
        text.append("@Variant(");
        text.append(reinterpret_cast<const uchar *>(bytes.constData()), bytes.size());
        text.append(")");
    }
    }
    text.finish();
}

void appendName(QStringView name, QByteArray &out)
{
    for (const QChar letter : name) {
        const ushort unit = letter.unicode();
        if (unit == '/')
            out.append('\\');
        else if (unit < kForms.size() && (std::isalnum(unit) || unit == '_' || unit == '-' || unit == '.'))
            out.append(static_cast<char>(unit));
        else
            out.append(unit > 0xFF ? "%U" : "%")
                .append(QByteArray::number(unit, 16).toUpper().rightJustified(unit > 0xFF ? 4 : 2, '0'));
    }
}

// Texts of a list stand next to each other, as do other values unless there is just one.
QVariantList valuesOf(const QVariant &value)
{
    const int type = value.userType();
    const bool isList = type == QMetaType::QVariantList || type == QMetaType::QStringList;
    const QVariantList list = isList ? value.toList() : QVariantList();
    return type == QMetaType::QStringList || (isList && list.size() != 1) ? list : QVariantList{value};
}

void appendLine(QStringView name, const QVariant &value, QByteArray &out)
{
    appendName(name, out);
    out.append('=');
    const QVariantList values = valuesOf(value);
    if (values.isEmpty())
        appendValue(QVariant(), out);
    for (int i = 0; i < values.size(); ++i) {
        out.append(i > 0 ? ", " : "");
        appendValue(values.at(i), out);
    }
    out.append('\n');
}

// Starts a section where one is needed.
void enterSection(QStringView name, QByteArray &out)
{
    out.append(out.isEmpty() ? "[" : "\n[");
    appendName(name, out);
    out.append("]\n");
}

} // namespace

QByteArray settingsText(const QMap<QString, QVariant> &values)
{
    const QString general = QStringLiteral("General");
    QByteArray out;
    QString section;
    for (const bool isInSection : {false, true}) {
        for (auto each = values.cbegin(); each != values.cend(); ++each) {
            const int slash = each.key().indexOf(QLatin1Char('/'));
            if ((slash >= 0) != isInSection)
                continue;
            const QString name = slash >= 0 ? each.key().left(slash) : general;
            if (name != section || out.isEmpty())
                enterSection(name, out);
            section = name;
            appendLine(QStringView(each.key()).mid(slash + 1), each.value(), out);
        }
    }
    return out;
}
