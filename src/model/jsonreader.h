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
        : m_at(text.utf16())
        , m_end(m_at + text.size())
    { }
    Q_DISABLE_COPY_MOVE(Reader)

    bool isOk() const { return m_ok; }
    bool isAtArray() { return m_ok && peek() == '['; }
    bool isAtObject() { return m_ok && peek() == '{'; }

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

    // Calls onElement() before each element; it must read one value. Only where
    // isAtArray().
    template <typename OnElement>
    void readArray(OnElement onElement)
    {
        const Nesting nesting(*this);
        ++m_at;
        while (stepTo(']'))
            onElement();
    }

    // Calls onMember(QStringView key) before each member's value; it must read that
    // value. The key is valid until then. Only where isAtObject().
    template <typename OnMember>
    void readObject(OnMember onMember)
    {
        const Nesting nesting(*this);
        ++m_at;
        while (stepTo('}')) {
            // A key is read as a string whatever it starts with.
            QString storage;
            const QStringView key = readString(storage);
            if (m_ok && peek() != ':')
                m_ok = false;
            if (!m_ok)
                return;
            ++m_at;
            onMember(key);
        }
    }

private:
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

    // The next unit that is no white space, 0 at the end.
    ushort peek()
    {
        while (m_at != m_end && (*m_at == ' ' || *m_at == '\t' || *m_at == '\n' || *m_at == '\r'))
            ++m_at;
        return m_at == m_end ? ushort(0) : *m_at;
    }
    bool stepTo(ushort closing);
    bool startsToken(ushort c) const;
    void readInto(QVariant &value);
    QVariant readNumber();
    QStringView readString(QString &storage);
    bool skipExpected(const QString &expected);
    void skipString();
    static const ushort *unescape(const ushort *at, ushort *&out);
    // Valid until the next call.
    const QString &shared(QStringView text);
    static QStringView view(const ushort *from, const ushort *to)
    {
        return QStringView(reinterpret_cast<const QChar *>(from), to - from);
    }

    const ushort *m_at;
    const ushort *m_end;
    int m_depth = 0;
    bool m_ok = true;
    // Objects of a list have the same few keys and marks; one text serves them all.
    std::array<QString, 64> m_shared;
};

} // namespace QtJson
