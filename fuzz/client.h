#pragma once

#include "service/orvana.h"

#include <QByteArray>
#include <QTemporaryDir>

#include <memory>

// Fuzz input in the order in which it is used up; behind the end all is zero.
class Input final
{
public:
    Input(const uint8_t *data, size_t size)
        : m_at(reinterpret_cast<const char *>(data))
        , m_left(static_cast<int>(size))
    { }

    bool isEmpty() const { return m_left == 0; }
    uint8_t byte() { return m_left > 0 ? static_cast<uint8_t>(bytes(1).at(0)) : uint8_t(0); }
    QByteArray bytes(int count);
    QByteArray rest() { return bytes(m_left); }
    // Up to the next NUL byte.
    QByteArray word();

private:
    const char *m_at;
    int m_left;
};

// A client that is cut off from every network, with a storage folder in memory if
// there is one. Its user has files, so that what changes in a list is news.
class FuzzClient final
{
public:
    FuzzClient();
    ~FuzzClient();
    Q_DISABLE_COPY_MOVE(FuzzClient)

    Orvana *operator->() const { return m_orvana.get(); }
    Orvana *get() const { return m_orvana.get(); }
    QString root() const { return m_root.path(); }
    QString userFolder() const;
    QString activityFolder() const { return userFolder() + QStringLiteral("/activity"); }
    void put(const QString &path, const QByteArray &bytes) const;
    // Everything that waits in the event loop; ends the process when it never rests.
    void settle() const;
    // Closes the client and starts it on what it left on the disk.
    void restart();

    static QString user() { return QStringLiteral("anna@orvana.example"); }
    static QString serviceUrl() { return QStringLiteral("off://service"); }

private:
    QTemporaryDir m_root;
    std::unique_ptr<Orvana> m_orvana;
};

// Once, before anything else.
void startFuzzing(int *argc, char ***argv);
