#include "widgets/simplemarkup.h"

#include "base/shortened.h"

#include <QHash>
#include <QUrl>
#include <QVector>

#include <algorithm>

namespace {

constexpr int kMaxTextLength = 200000;
constexpr int kMaxTitleLength = 500;
constexpr int kMaxWordLength = 200;
constexpr int kMaxDepth = 8;
constexpr int kMaxTags = 10000;
// The engine counts from the first item for each one.
constexpr int kMaxListItems = 500;
constexpr int kMaxTagLength = 2000;
const QChar kBreakHere(0x200B);
const QChar kEllipsis(0x2026);

enum class Kind {
    Inline, // kept
    Block, // kept, on lines of its own
    Break,
    Line, // its contents are on lines of their own
    Gap, // separates words
    Link,
    Dropped, // only its contents count
    Hidden // its contents are not text
};

Kind kindOf(const QString &name, bool *known)
{
    static const QHash<QString, Kind> kinds = [] {
        QHash<QString, Kind> all;
        const auto add = [&all](Kind kind, const char *names) {
            const QStringList list = QString::fromLatin1(names).split(QLatin1Char(' '));
            for (const QString &element : list)
                all.insert(element, kind);
        };
        add(Kind::Inline, "b strong i em u s strike del ins sub sup code tt kbd samp var cite dfn small big");
        add(Kind::Block, "p div h1 h2 h3 h4 h5 h6 ul ol li blockquote pre");
        add(Kind::Break, "br");
        add(Kind::Line,
            "hr tr dl dt dd table section article header footer main nav aside center address figure "
            "form");
        add(Kind::Gap, "td th");
        add(Kind::Link, "a");
        add(Kind::Dropped,
            "html head body meta link base span font img picture source video audio track canvas map area "
            "label input button fieldset legend tbody thead tfoot caption col colgroup abbr acronym mark "
            "nobr wbr q time data figcaption details summary embed param noscript bdo bdi ruby rt rp");
        add(Kind::Hidden, "script style title iframe object applet svg math template select textarea");
        return all;
    }();
    const auto found = kinds.constFind(name);
    *known = found != kinds.constEnd();
    return *known ? *found : Kind::Dropped;
}

struct Tag
{
    QString name; // lower case; empty for a comment or declaration
    Kind kind = Kind::Dropped;
    bool closing = false;
    QStringView attributes;
    int end = -1; // after the tag; -1: not a tag
};

bool isNameCharacter(QChar c)
{
    return (c >= QLatin1Char('a') && c <= QLatin1Char('z'))
        || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))
        || (c >= QLatin1Char('0') && c <= QLatin1Char('9'));
}

// After the '>' that ends a tag, quoted ones left out; -1 when there is none.
int endOfTag(const QString &text, int from)
{
    const int limit = std::min(text.size(), from + kMaxTagLength);
    QChar quote;
    int plain = -1;
    for (int i = from; i < limit; ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('>')) {
            if (quote.isNull())
                return i + 1;
            if (plain < 0)
                plain = i + 1;
        } else if (c == quote) {
            quote = QChar();
        } else if (quote.isNull() && (c == QLatin1Char('"') || c == QLatin1Char('\''))) {
            quote = c;
        }
    }
    return plain;
}

// The tag whose '<' is at the place.
Tag tagAt(const QString &text, int start)
{
    Tag tag;
    int i = start + 1;
    if (text.midRef(i, 3) == QLatin1String("!--")) {
        const int end = text.indexOf(QLatin1String("-->"), i + 3);
        tag.end = end < 0 ? text.size() : end + 3;
        return tag;
    }
    if (i < text.size() && (text.at(i) == QLatin1Char('!') || text.at(i) == QLatin1Char('?'))) {
        const int end = text.indexOf(QLatin1Char('>'), i);
        tag.end = end < 0 ? -1 : end + 1;
        return tag;
    }
    if (i < text.size() && text.at(i) == QLatin1Char('/')) {
        tag.closing = true;
        ++i;
    }
    const int nameStart = i;
    while (i < text.size() && isNameCharacter(text.at(i)))
        ++i;
    // What follows a name in a tag; "<b@x.org>" is an address.
    if (i == nameStart || i == text.size()
        || !(text.at(i).isSpace() || text.at(i) == QLatin1Char('>') || text.at(i) == QLatin1Char('/')))
        return tag;
    tag.name = text.mid(nameStart, i - nameStart).toLower();
    bool known = false;
    tag.kind = kindOf(tag.name, &known);
    if (!known)
        return tag;
    tag.end = endOfTag(text, i);
    if (tag.end > 0)
        tag.attributes = QStringView(text).mid(i, tag.end - 1 - i);
    return tag;
}

// Where href leads, when that is a web page.
QString linkTarget(QStringView attributes)
{
    const int at = attributes.toString().indexOf(QLatin1String("href"), 0, Qt::CaseInsensitive);
    if (at < 0)
        return {};
    QString rest = attributes.mid(at + 4).trimmed().toString();
    if (!rest.startsWith(QLatin1Char('=')))
        return {};
    rest = rest.mid(1).trimmed();
    int end = -1;
    if (rest.startsWith(QLatin1Char('"')) || rest.startsWith(QLatin1Char('\''))) {
        end = rest.indexOf(rest.at(0), 1);
        rest = rest.mid(1, end < 0 ? -1 : end - 1);
    } else {
        const auto space = std::find_if(rest.cbegin(), rest.cend(), [](QChar c) { return c.isSpace(); });
        rest.truncate(static_cast<int>(space - rest.cbegin()));
    }
    rest.replace(QLatin1String("&quot;"), QLatin1String("\""));
    rest.replace(QLatin1String("&amp;"), QLatin1String("&"));
    return webAddress(rest);
}

// The length of the entity that starts at the place, 0 when none does.
int entityLength(const QString &text, int at)
{
    constexpr int maxName = 12;
    int end = at + 1;
    if (end < text.size() && text.at(end) == QLatin1Char('#'))
        ++end;
    const int nameStart = end;
    while (end < text.size() && end - nameStart < maxName && isNameCharacter(text.at(end)))
        ++end;
    return end > nameStart && end < text.size() && text.at(end) == QLatin1Char(';') ? end + 1 - at : 0;
}

// Entities stay; an ampersand that starts none is one.
QString escaped(const QString &text)
{
    QString html;
    html.reserve(text.size() + text.size() / 8);
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('<'))
            html += QLatin1String("&lt;");
        else if (c == QLatin1Char('&') && entityLength(text, i) == 0)
            html += QLatin1String("&amp;");
        else
            html += c;
    }
    return html;
}

class Writer final
{
public:
    void addText(const QString &text)
    {
        if (!text.trimmed().isEmpty()) {
            writePendingLine();
            m_atLineStart = false;
        }
        m_html += escaped(breakableText(text));
    }

    void addTag(const Tag &tag)
    {
        if (++m_tags > kMaxTags) {
            m_html += QLatin1Char(' ');
            return;
        }
        switch (tag.kind) {
        case Kind::Inline:
        case Kind::Block:
        case Kind::Link:
            if (tag.closing)
                close(tag);
            else
                open(tag);
            break;
        case Kind::Break:
            writePendingLine();
            m_html += QStringLiteral("<br>");
            m_atLineStart = true;
            break;
        case Kind::Line:
            m_linePending = !m_atLineStart;
            break;
        case Kind::Gap:
            if (!tag.closing && !m_linePending)
                m_html += QLatin1Char(' ');
            break;
        case Kind::Dropped:
        case Kind::Hidden:
            break;
        }
    }

    QString finish()
    {
        while (!m_open.isEmpty())
            closeLast();
        return m_html;
    }

private:
    void open(const Tag &tag)
    {
        const bool isBlock = tag.kind == Kind::Block;
        // These close one of their kind.
        if (isBlock && !m_open.isEmpty()
            && (m_open.last() == QLatin1String("p")
                || (tag.name == QLatin1String("li") && m_open.last() == tag.name)))
            closeLast();
        const bool isItem = tag.name == QLatin1String("li");
        if (m_open.size() >= kMaxDepth || (isItem && ++m_items > kMaxListItems)) {
            m_linePending = m_linePending || (isBlock && !m_atLineStart);
            return;
        }
        if (isBlock)
            m_linePending = false;
        else
            writePendingLine();
        QString opening = tag.name;
        if (tag.kind == Kind::Link) {
            const QString address = linkTarget(tag.attributes);
            if (address.isEmpty())
                return;
            opening += QStringLiteral(" href=\"") + address.toHtmlEscaped() + QLatin1Char('"');
        } else if (tag.name == QLatin1String("pre")) {
            opening += QStringLiteral(" style=\"white-space:pre-wrap\"");
        }
        m_html += QLatin1Char('<') + opening + QLatin1Char('>');
        m_open.append(tag.name);
        m_atLineStart = m_atLineStart || isBlock;
    }

    void close(const Tag &tag)
    {
        if (!m_open.contains(tag.name))
            return;
        while (m_open.last() != tag.name)
            closeLast();
        closeLast();
        m_atLineStart = m_atLineStart || tag.kind == Kind::Block;
    }

    // Written when something follows, so that no text ends with an empty line.
    void writePendingLine()
    {
        if (m_linePending)
            m_html += QStringLiteral("<br>");
        m_atLineStart = m_atLineStart || m_linePending;
        m_linePending = false;
    }

    void closeLast() { m_html += QStringLiteral("</") + m_open.takeLast() + QLatin1Char('>'); }

    QString m_html;
    QVector<QString> m_open;
    int m_tags = 0;
    int m_items = 0;
    bool m_atLineStart = true;
    bool m_linePending = false;
};

// After the end of an element whose contents are not text.
int endOfElement(const QString &text, const Tag &tag)
{
    const int close = text.indexOf(QString(QStringLiteral("</") + tag.name), tag.end, Qt::CaseInsensitive);
    if (close < 0)
        return text.size();
    const int end = text.indexOf(QLatin1Char('>'), close);
    return end < 0 ? text.size() : end + 1;
}

} // namespace

QString simpleMarkup(const QString &source)
{
    const QString text = source.left(kMaxTextLength);
    const int lastEnd = text.lastIndexOf(QLatin1Char('>'));
    Writer writer;
    bool hasTags = false;
    bool hasLines = false; // of its own; otherwise those of the text count
    int done = 0;
    int at = 0;
    while ((at = text.indexOf(QLatin1Char('<'), at)) >= 0 && at < lastEnd) {
        const Tag tag = tagAt(text, at);
        if (tag.end < 0) {
            ++at;
            continue;
        }
        writer.addText(text.mid(done, at - done));
        writer.addTag(tag);
        hasTags = true;
        hasLines = hasLines || tag.kind == Kind::Block || tag.kind == Kind::Line || tag.kind == Kind::Break;
        done = !tag.closing && tag.kind == Kind::Hidden ? endOfElement(text, tag) : tag.end;
        at = done;
    }
    if (!hasTags)
        return {};
    writer.addText(text.mid(done));
    const QString html = writer.finish();
    return hasLines
        ? html
        : QString(QStringLiteral("<p style=\"white-space:pre-wrap\">") + html + QStringLiteral("</p>"));
}

QString webAddress(const QString &text)
{
    const QString scheme = QUrl(text).scheme();
    if (scheme == QLatin1String("http") || scheme == QLatin1String("https"))
        return text;
    const bool namesHost = text.startsWith(QLatin1String("//"));
    const QString address = (namesHost ? QStringLiteral("http:") : QStringLiteral("http://")) + text;
    const QUrl url(address);
    const QString host = url.host();
    // Words, local paths and mail addresses are no web pages.
    if (!url.isValid() || host.isEmpty() || !url.userInfo().isEmpty()
        || (!namesHost && !host.contains(QLatin1Char('.'))))
        return {};
    // "example.org:8080" passes for a scheme; those in use have no dot.
    return scheme.isEmpty() || scheme == host ? address : QString();
}

QString breakableText(const QString &text)
{
    QString result;
    const int length = std::min(text.size(), kMaxTextLength);
    result.reserve(length + length / kMaxWordLength + 1);
    int wordLength = 0;
    for (int i = 0; i < length; ++i) {
        const QChar c = text.at(i);
        wordLength = c.isSpace() ? 0 : wordLength + 1;
        if (wordLength > kMaxWordLength && !c.isLowSurrogate()) {
            result += kBreakHere;
            wordLength = 1;
        }
        result += c;
    }
    if (length < text.size())
        result += kEllipsis;
    return result;
}

QString titleLine(const QString &title)
{
    QString line = shortened(title, kMaxTitleLength);
    line.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return line;
}
