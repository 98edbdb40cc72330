#pragma once

#include <QString>
#include <QStringView>
#include <QVariant>

#include <array>

namespace QtJson {

// Walks through JSON text from value to value, by the codec's lenient rules.
// After an error nothing more is read and every result must be discarded. The
// text must outlive the reader.
class Reader final
{
public:
    explicit Reader(const QString &text)
        : m_text(text.utf16())
        , m_size(text.size())
    { }
    Q_DISABLE_COPY_MOVE(Reader)

    bool isOk() const { return m_ok; }
    bool isAtArray() { return m_ok && peekToken() == Token::ArrayOpen; }
    bool isAtObject() { return m_ok && peekToken() == Token::ObjectOpen; }

    // Each of these reads exactly one value.
    QVariant readValue();
    // Builds nothing, however long the value is.
    void skipValue();
    // An invalid variant for an object or an array.
    QVariant readScalar();
    // The value as QVariant::toString() has it. When it is the expected text, that one is
    // returned and nothing is built.
    QString readText(const QString &expected = QString());
    // The same without a copy where possible: valid as long as storage and the text are.
    QStringView readTextView(QString &storage);

    // Calls onElement() before each element; it must read one value. The
    // reader must be at an array.
    template <typename OnElement>
    void readArray(OnElement onElement)
    {
        const Nesting nesting(*this);
        nextToken();
        while (m_ok) {
            switch (peekToken()) {
            case Token::None:
                m_ok = false;
                break;
            case Token::Comma: // leading, doubled and trailing ones too
                nextToken();
                break;
            case Token::ArrayClose:
                nextToken();
                return;
            default:
                onElement();
            }
        }
    }

    // Calls onMember(QStringView key) before each member's value; it must read that
    // value. The key is valid until then. The reader must be at an object.
    template <typename OnMember>
    void readObject(OnMember onMember)
    {
        const Nesting nesting(*this);
        nextToken();
        while (m_ok) {
            switch (peekToken()) {
            case Token::None:
                m_ok = false;
                break;
            case Token::Comma:
                nextToken();
                break;
            case Token::ObjectClose:
                nextToken();
                return;
            default: {
                // A key is read as a string whatever it starts with.
                QString storage;
                const QStringView key = readString(storage);
                if (m_ok && nextToken() != Token::Colon)
                    m_ok = false;
                if (m_ok)
                    onMember(key);
            }
            }
        }
    }

private:
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

    // Bounds the depth, so that hostile text cannot exhaust the stack.
    class Nesting
    {
    public:
        explicit Nesting(Reader &reader)
            : m_reader(reader)
        {
            if (++m_reader.m_depth > maxDepth)
                m_reader.m_ok = false;
        }
        ~Nesting() { --m_reader.m_depth; }
        Q_DISABLE_COPY_MOVE(Nesting)

    private:
        static constexpr int maxDepth = 1000;
        Reader &m_reader;
    };

    void eatWhitespace();
    Token tokenAt(int &index) const;
    Token nextToken();
    Token peekToken();
    bool hasWord(int index, const char *word, int length) const;
    QVariant readNumber();
    QStringView readString(QString &storage);
    bool skipExpected(const QString &expected);
    void skipString();
    bool appendEscape(QString &result);
    QString shared(QStringView key);
    QStringView view(int from, int to) const
    {
        return QStringView(reinterpret_cast<const QChar *>(m_text + from), to - from);
    }

    const ushort *m_text;
    int m_size;
    int m_index = 0;
    int m_depth = 0;
    bool m_ok = true;
    // Objects of a list have the same few keys; one text serves them all.
    std::array<QString, 64> m_keys;
};

} // namespace QtJson
