#include "base/printable.h"
#include "minutes/arguments.h"
#include "minutes/output.h"
#include "minutes/waiting.h"
#include "storage/storagefolder.h"

#include <QFileInfo>
#include <QTextCodec>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

using namespace minutes;

namespace {

enum Outcome { Fine = 0, Broken = 1, WrongUsage = 2, NoJournal = 3, NotWritten = 4 };

constexpr char kHelp[] = "Использование: orvana-minutes [--user ЛОГИН] [--day ДЕНЬ | --month МЕСЯЦ]\n"
                         "                              [--csv | --json] [--check]\n"
                         "Показывает минуты из журнала программы Orvana по дням и задачам и то, что стало\n"
                         "с их отчётами, а затем все перерывы и расхождения.\n"
                         "\n"
                         "  --user ЛОГИН   пользователь; без него тот, кто вошёл последним\n"
                         "  --day ДЕНЬ     один день, например 2026-11-22; без него сегодня\n"
                         "  --month МЕСЯЦ  целый месяц, например 2026-11\n"
                         "  --csv          таблица для других программ\n"
                         "  --json         одна строка JSON, в ней и каждая минута\n"
                         "  --check        проверить, что в журнале за все месяцы ничего не изменено\n"
                         "  --help         показать эту справку и выйти\n"
                         "  --version      показать версию и выйти\n"
                         "\n"
                         "Код завершения: 0 — успешно; 1 — проверка нашла изменённое место;\n"
                         "2 — неверные аргументы; 3 — нет пользователя или журнала;\n"
                         "4 — вывод не записан.\n";

Outcome fail(Outcome outcome, const QString &text)
{
    std::fprintf(stderr, "orvana-minutes: %s\n", text.toUtf8().constData());
    return outcome;
}

Outcome print(const QByteArray &text, Outcome outcome = Fine)
{
    const bool isWritten =
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout) == size_t(text.size())
        && std::fflush(stdout) == 0;
    return isWritten ? outcome : fail(NotWritten, QString::fromLocal8Bit(std::strerror(errno)));
}

QDir storage()
{
    const QByteArray set = qgetenv("ORVANA_STORAGE_ROOT");
    const QByteArray root = set.isEmpty() ? QByteArray(ORVANA_BUILT_IN_STORAGE_ROOT) : set;
    return QDir(QFile::decodeName(root) + QStringLiteral("/.orvana"));
}

// Anybody may make one in a folder that is open to all, and show minutes of their own invention.
bool isTrusted(const QDir &folder)
{
    struct stat info = {};
    return lstat(QFile::encodeName(folder.path()).constData(), &info) == 0 && S_ISDIR(info.st_mode)
        && (info.st_uid == geteuid() || geteuid() == 0);
}

// Whether a later file has lines about reports of this month.
bool mentions(const QString &path, const QDate &month)
{
    constexpr int kBlock = 1 << 20;
    const QByteArray wanted = month.toString(Qt::ISODate).toLatin1();
    const QByteArray text = '-' + wanted.mid(5, 2) + '-' + wanted.left(4) + '-';
    QFile file(path);
    QByteArray block;
    // The end of one block and the start of the next may share it.
    for (bool isOpen = file.open(QIODevice::ReadOnly); isOpen && !file.atEnd();) {
        block = block.right(text.size()) + file.read(kBlock);
        if (block.contains(text))
            return true;
    }
    return false;
}

// What the files say of a period. The file before it is read, too, for how the program ended
// there, and the one after it for how it went on; later ones only when they have acceptances.
Report read(const QStringList &files, const QString &userFolder, const QString &login, const Period &period)
{
    const QDateTime now = QDateTime::currentDateTime();
    Account account(login, period);
    Story story(login, period);
    const QString month = Journal::fileName(period.from);
    const auto nameOf = [](const QString &path) { return QFileInfo(path).fileName(); };
    int first = 0;
    while (first + 1 < files.size() && nameOf(files.at(first + 1)) < month)
        ++first;
    qint64 read = 0;
    bool isFollowed = true; // by the story
    for (int i = first; i < files.size(); ++i) {
        if (!isFollowed && !mentions(files.at(i), period.from))
            continue;
        JournalReader reader(files.at(i));
        JournalReader::Line line;
        while (reader.next(&line)) {
            account.add(line);
            if (isFollowed)
                story.add(line, nameOf(files.at(i)));
            read = line.isEnded ? reader.position() : read;
        }
        isFollowed = isFollowed && nameOf(files.at(i)) <= month;
    }
    // A running client moves reports from the folder to the journal meanwhile, never back.
    account.settle();
    const Tally waiting = waitingReports(userFolder + QStringLiteral("/activity"), period);
    JournalReader rest(files.last(), read);
    JournalReader::Line line;
    while (rest.next(&line))
        account.add(line);
    account.finish(waiting, now);
    story.finish(now);

    QVector<Note> notes = story.notes() + account.notes();
    std::stable_sort(notes.begin(), notes.end(),
                     [](const Note &one, const Note &other) { return one.from < other.from; });
    return {login, period, account.minutes(), account.sums(), story.corrections(), notes, std::nullopt};
}

Outcome run(Arguments arguments)
{
    const QDir folder = storage();
    if (!isTrusted(folder))
        return fail(NoJournal, folder.path() + QStringLiteral(": нет такой папки или она чужая"));
    if (arguments.login.isEmpty())
        arguments.login =
            storedValue(folder.filePath(QStringLiteral("config.ini")), QStringLiteral("lastLogin"))
                .toString();
    if (arguments.login.isEmpty())
        return fail(NoJournal,
                    QStringLiteral("в программу ещё никто не входил; назовите пользователя: --user"));
    const QString userFolder = StorageFolder::ofUser(folder, arguments.login);
    if (!QFileInfo(userFolder).isDir())
        return fail(NoJournal, QStringLiteral("нет такого пользователя: ") + printable(arguments.login));
    const QStringList files = Journal::files(userFolder);
    if (files.isEmpty())
        return fail(NoJournal, QStringLiteral("нет журнала: ") + Journal::folderOf(userFolder));
    for (const QString &file : files) {
        if (const JournalReader reader(file); !reader.isOpen())
            return fail(NoJournal, file + QStringLiteral(": ") + reader.errorText());
    }

    Report report = read(files, userFolder, arguments.login, arguments.period);
    if (arguments.checks)
        report.breach = checkChain(files);
    const Names names(userFolder, report.sums);
    const bool isBroken = report.breach && !report.breach->file.isEmpty();
    if (isBroken && arguments.form == Form::Csv)
        fail(Broken, textOf(*report.breach));
    const auto form = arguments.form == Form::Csv ? asCsv : arguments.form == Form::Json ? asJson : asTable;
    return print(form(report, names), isBroken ? Broken : Fine);
}

} // namespace

int main(int argc, char *argv[])
{
    // The names of files are read as on a desktop, also where no locale is set, as in a job of cron.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QStringList words;
    for (int i = 1; i < argc; ++i)
        words.append(QFile::decodeName(argv[i]));
    if (words == QStringList{QStringLiteral("--help")})
        return print(kHelp);
    if (words == QStringList{QStringLiteral("--version")})
        return print("orvana-minutes " ORVANA_VERSION "\n");
    Arguments arguments;
    if (!parse(words, QDate::currentDate(), &arguments))
        return fail(WrongUsage, QStringLiteral("неверные аргументы; справка: orvana-minutes --help"));
    return run(arguments);
}
