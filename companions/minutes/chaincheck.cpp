#include "minutes/chaincheck.h"

#include "storage/journalreader.h"

#include <QFileInfo>

namespace minutes {

namespace {

QString problemOf(JournalReader::State state)
{
    return state == JournalReader::State::Changed ? QStringLiteral("строка изменена")
        : state == JournalReader::State::TooLong ? QStringLiteral("строка слишком длинная")
                                                 : QStringLiteral("строка повреждена");
}

// Why a whole line does not follow the last one before it.
Breach breachBetween(Breach last, Breach here)
{
    const qint64 missing = here.number - last.number - 1;
    if (missing > 0) {
        here.problem = QStringLiteral("перед ней не хватает строк: %1").arg(missing);
        return here;
    }
    // Only the next line shows that the hash of a changed one was computed again.
    if (missing == 0 && last.line > 0) {
        last.problem = QStringLiteral("строка изменена, и её сумма посчитана заново");
        return last;
    }
    here.problem = QStringLiteral("строка не на своём месте");
    return here;
}

} // namespace

Breach checkChain(const QStringList &files)
{
    JournalChain chain;
    QByteArray lastHash = Journal::noHash();
    Breach last;
    Breach unread; // the first line after it that is not whole
    bool isUnfinished = false; // being written, or was when the program ended
    for (const QString &path : files) {
        const QString name = QFileInfo(path).fileName();
        JournalReader reader(path);
        if (!reader.isOpen())
            return {name, 0, 0, reader.errorText()};
        JournalReader::Line line;
        while (reader.next(&line)) {
            const Breach here{name, line.line, line.n, problemOf(line.state)};
            if (line.isWhole() && line.hash == lastHash)
                continue;
            const bool isFirst = last.line == 0 && line.isWhole();
            if (!chain.follows(line) || (isFirst && (line.n != 1 || line.before != lastHash)))
                return unread.line > 0 ? unread : breachBetween(last, here);
            if (line.isWhole()) {
                last = here;
                lastHash = line.hash;
                unread = {};
            } else {
                isUnfinished =
                    unread.line == 0 && line.state == JournalReader::State::Broken && !line.isEnded;
                if (unread.line == 0)
                    unread = here;
            }
        }
    }
    return isUnfinished ? Breach() : unread;
}

} // namespace minutes
