#pragma once

#include <QByteArray>
#include <QFile>
#include <QJsonObject>
#include <QString>
#include <QStringList>

class QDate;

// One file of a journal, line by line. Opens nothing but a regular file, and never writes. At
// most one line of 4 MiB is in memory.
class JournalReader final
{
    Q_DISABLE_COPY_MOVE(JournalReader)

public:
    enum class State {
        Whole, // a JSON object whose own hash is right
        Changed, // a JSON object with another hash than it says, or none
        Broken, // no JSON object: torn, or damaged
        TooLong // skipped
    };

    struct Line
    {
        qint64 line = 0; // its place in the file, from 1
        State state = State::Broken;
        bool isEnded = false; // by a line break, which the last one may lack
        qint64 bytes = 0; // without the line break
        qint64 n = 0;
        QByteArray before;
        QByteArray hash;
        QString event;
        QJsonObject values; // all of them

        bool isWhole() const { return state == State::Whole; }
    };

    // Starts at this byte, at which a line should begin.
    explicit JournalReader(const QString &path, qint64 from = 0);

    bool isOpen() const { return m_file.isOpen(); }
    QString errorText() const { return m_errorText; }
    qint64 size() const { return m_file.size(); }

    // False at the end, and when the file cannot be read any further, which hasFailed() tells apart.
    bool next(Line *line);
    bool hasFailed() const { return !m_file.isOpen() || m_file.error() != QFileDevice::NoError; }
    // How far the lines that were returned reach.
    qint64 position() const { return m_position; }

private:
    bool fill();

    QFile m_file;
    QString m_errorText;
    QByteArray m_buffer;
    int m_at = 0; // in the buffer
    qint64 m_position = 0;
    qint64 m_lines = 0;
};

// Follows the chain through the lines of a journal.
class JournalChain final
{
public:
    // Whether nothing is missing or changed between this line and the whole line before it. What
    // cannot be read is accounted for by a "torn" line after it, and by nothing else. The first
    // line may have any before it.
    bool follows(const JournalReader::Line &line);
    // The last lines could not be read.
    bool isTorn() const { return m_unread > 0; }

private:
    qint64 m_n = 0;
    QByteArray m_hash;
    qint64 m_unread = 0; // lines since the last whole one
    qint64 m_unreadBytes = 0;
};

namespace Journal {

// A line without its break, chained to the one before; `values` are further members as JSON.
QByteArray line(qint64 n, const QByteArray &values, const QByteArray &before, QByteArray *hash);
// What stands before the first line of a journal in place of a hash.
QByteArray noHash();
// Absolute paths of the files of a user's journal, oldest first.
QStringList files(const QString &userFolder);
QString folderOf(const QString &userFolder);
// The file for this month, which need not exist.
QString fileName(const QDate &month);

} // namespace Journal
