#include "files.h"
#include "rows.h"

#include "model/records.h"
#include "storage/journalreader.h"
#include "storage/settingskey.h"

#include <QProcess>
#include <QSettings>

#include <sys/resource.h>

namespace {

const QString kAnna = s("anna@orvana.example");

// Writes the journal and the records of Anna from lines "EVENT DAY TIME", with the active slices after
// "minute" and what repeats a minute, and with members of JSON after everything else.
class Author final
{
public:
    explicit Author(const QString &user)
        : m_user(user)
    { }

    // Events go on in another month's file only with their date.
    void write(const QString &story)
    {
        const QStringList lines = story.split(QLatin1Char('\n'));
        for (const QString &line : lines)
            add(line.section(QLatin1Char(' '), 0, 0), line.section(QLatin1Char(' '), 1, 1),
                line.section(QLatin1Char(' '), 2, 2), line.section(QLatin1Char(' '), 3));
        for (auto file = m_files.cbegin(); file != m_files.cend(); ++file)
            QVERIFY(writeFile(m_user + s("/journal/") + file.key(), *file));
    }

    void add(const QString &event, const QString &day, const QString &time, const QString &rest)
    {
        QStringList date = day.split(QLatin1Char('-'));
        std::reverse(date.begin(), date.end());
        const QString record = date.join(QLatin1Char('-')) + QLatin1Char('-')
            + QString(time).replace(QLatin1Char(':'), QLatin1Char('-'));
        if (event == s("record"))
            return waiting(record, rest);
        static const QStringList reports = texts({"minute", "accepted", "refused", "restored"});
        QString members = s(R"("at":"%1T%2+03:00","event":"%3")").arg(day, time, event);
        if (reports.contains(event)) {
            const QString slices = rest.section(QLatin1Char(' '), 0, 0);
            members += s(R"(,"record":"%1","team":"17","task":"1703","active":%2)").arg(record, slices);
            if (event == s("minute") && !rest.contains(s("login")))
                members += s(R"(,"login":"anna@orvana.example")");
        }
        const QString json = reports.contains(event) ? rest.section(QLatin1Char(' '), 1) : rest;
        const QByteArray line = Journal::line(
            ++m_number, (members + (json.isEmpty() ? json : s(",") + json)).toUtf8(), m_hash, &m_hash);
        m_files[day.left(7) + s(".jsonl")].append(line).append('\n');
    }

private:
    void waiting(const QString &record, const QString &active)
    {
        const QByteArray body =
            s(R"({"timestamp":"%1","body":{"team_id":"17","task_id":"1703","active":"%2"}})")
                .arg(record, active)
                .toUtf8();
        QVERIFY(writeFile(m_user + s("/activity/json") + record + s(".aaaaaa"), body));
    }

    QString m_user;
    QMap<QString, QByteArray> m_files;
    QByteArray m_hash = Journal::noHash();
    qint64 m_number = 0;
};

const char kDay[] =
    "opened 2026-11-20 09:00:00\nstart 2026-11-20 09:00:00\nminute 2026-11-20 09:01:00 7\n"
    "accepted 2026-11-20 09:01:00 7\nminute 2026-11-20 09:02:00 0\naccepted 2026-11-20 09:02:00 0\n"
    "closed 2026-11-20 09:02:06 \"slices\":1,\"reason\":\"exit\"";

} // namespace

// What the user gets to know about the minutes in the journal.
class TestMinutes final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        m_user = m_root->filePath(s(".orvana/") + kAnna);
        QDir().mkpath(m_user);
        QSettings(m_root->filePath(s(".orvana/config.ini")), QSettings::IniFormat)
            .setValue(s("lastLogin"), kAnna);
    }

    // Lines after those of kDay, but for the last of these when the first begins with "-"; what is shown of
    // 2026-11-20.
    void tells_data()
    {
        addRows(
            {{"", "2026-11-20 2 1 7 2 0 1703"},
             {"", "с 2026-11-20 09:02:06: программа закрыта, отброшено секунд: 6"},
             {"opened 2026-11-21 10:00:00", "2026-11-20 09:02:06 – 2026-11-21 10:00:00: программа закрыта"},
             {"-minute 2026-11-20 09:03:00 7\nrecord 2026-11-20 09:03:00 7", "2026-11-20 3 2 14 2 1 1703"},
             {"-minute 2026-11-20 09:03:00 7", "2026-11-20 09:03:00: отчёт о минуте не принят и не ждёт"},
             {"-minute 2026-11-20 09:03:00 7\naccepted 2026-11-21 09:03:00 7", "2026-11-20 3 2 14 2 0 1703"},
             {"record 2026-11-20 09:02:00 0",
              "Всего 2 1 7 2 0 Перерывы и расхождения: с 2026-11-20 09:02:06"},
             {"record 2026-11-20 08:00:00 3",
              "2026-11-20 08:00:00: минуты нет в журнале, но её отчёт ждёт отправки"},
             {"accepted 2026-11-20 09:02:00 3",
              "2026-11-20 09:02:00: минуты нет в журнале, но её отчёт принят"},
             {"accepted 2026-11-20 09:01:00 7 \"n2\":1",
              "2026-11-20 09:01:00: минута принята сервисом повторно"},
             // The same moment twice is two minutes.
             {"-minute 2026-11-20 09:02:00 0 \"again\":1\naccepted 2026-11-20 09:02:00 0 \"again\":1",
              "2026-11-20 3 1 7 3 0 1703"},
             {"restored 2026-11-20 09:02:00 0", "2026-11-20 09:02:00: отчёт о минуте восстановлен"},
             {"-opened 2026-11-20 09:30:00",
              "2026-11-20 09:02:00 – 09:30:00: программа завершилась аварийно, незаконченная минута"},
             {"-counters 2026-11-20 09:30:00\nopened 2026-11-20 09:30:00",
              "2026-11-20 09:02:00 – 09:30:00: программа завершилась аварийно"},
             {"-", "с 2026-11-20 09:02:00: таймер работал, но записей больше нет"},
             {"-stop 2026-11-20 09:02:30 \"slices\":5\nstart 2026-11-20 09:40:00",
              "2026-11-20 09:02:30 – 09:40:00: таймер остановлен, отброшено секунд: 30"},
             {"-closed 2026-11-20 09:02:30 \"reason\":\"sign-out\"\nopened 2026-11-20 11:00:00",
              "2026-11-20 09:02:30 – 11:00:00: пользователь вышел"},
             {"-sleep 2026-11-20 10:00:00 \"seconds\":3480",
              "2026-11-20 09:02:00 – 10:00:00: компьютер спал"},
             {"-clock 2026-11-20 09:02:30 "
              "\"from\":\"2026-11-20T09:02:30+03:00\",\"to\":\"2026-11-20T09:12:30+03:00\"",
              "09:02:30: переведены часы: 2026-11-20 09:02:30 → 2026-11-20 09:12:30"},
             {"-minute 2026-11-20 09:07:00 7",
              "2026-11-20 09:02:00 – 09:07:00: минута длилась дольше обычного"},
             {"-minute 2026-11-21 00:00:20 7 \"day\":\"2026-11-21\"", "2026-11-20 2 1 7 2 0 1703"},
             {"-minute 2026-11-21 00:00:00 7 \"day\":\"2026-11-20\"", "2026-11-20 3 2 14 2 0 1703"},
             {"refused 2026-11-20 09:05:00 7 \"answer\":\"a\\u001b[2J\"\nrefused 2026-11-20 09:06:00 7 "
              "\"answer\":\"a\\u001b[2J\"",
              "2026-11-20 09:05:00 – 09:06:00: сервис не принял отчёт, ответ: «a [2J» (всего: 2)"},
             {"screenshot-refused 2026-11-20 09:05:00 \"answer\":\"no\"",
              "сервис не принял снимок экрана, ответ: «no»"},
             {"corrected 2026-11-20 09:05:00 "
              "\"workTime\":[\"00:05:00\",\"00:02:00\"],\"activeTime\":[\"00:01:00\",\"00:02:00\"]",
              "исправил время за день: рабочее 00:05:00 → 00:02:00, активное 00:01:00 → 00:02:00"},
             {"corrected 2026-11-20 09:05:00 "
              "\"workTime\":[\"00:05:00\",\"00:02:00\"],\"activeTime\":[\"00:01:00\",\"00:02:00\"]",
              "2026-11-20 0 0 0 0 0 -3 время за день исправил сервис, активное: +1"},
             {"counters 2026-11-20 09:05:00 \"workTime\":[\"00:01:00\",\"00:02:00\"]",
              "рабочее 00:01:00 → 00:02:00"},
             {"minute 2026-11-20 09:03:00 7 \"login\":\"peter\"",
              "минуты другого пользователя (peter) не учтены"},
             {"minute 2026-11-20 09:03:00 7 \"login\":\"peter\"", "2026-11-20 2 1 7 2 0 1703"},
             {"torn 2026-11-20 09:05:00 \"bytes\":17", "запись журнала оборвалась, байт: 17"},
             {"gap 2026-11-20 09:05:00 \"lines\":12", "в журнале не хватает строк: 12"}});
    }
    void tells()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        QString day = s(kDay);
        if (input.startsWith(QLatin1Char('-')))
            day = day.section(QLatin1Char('\n'), 0, -2);
        const QString more = input.mid(input.startsWith(QLatin1Char('-')) ? 1 : 0);
        Author(m_user).write(more.isEmpty() ? day : day + QLatin1Char('\n') + more);
        const QString shown = ask({s("--day"), s("2026-11-20"), s("--check")}).simplified();
        QVERIFY2(shown.contains(result), qPrintable(shown));
        QCOMPARE(m_code, 0);
    }

    // A month in whose last file the next begins, and one whose reports are accepted much later.
    void reachesOtherMonths()
    {
        Author(m_user).write(
            s("start 2026-11-30 23:59:00\nminute 2026-12-01 00:00:00 1 \"day\":\"2026-11-30\"\n"
              "minute 2026-12-01 00:01:00 1 \"day\":\"2026-12-01\"\nopened 2027-01-01 09:00:00\n"
              "opened 2027-02-01 09:00:00\n"
              "accepted 2027-03-01 09:00:00 1 \"record\":\"01-12-2026-00-01-00\""));
        const QString december = ask({s("--month=2026-12"), s("--check")}).simplified();
        QVERIFY2(december.contains(s("2026-12-01 1 1 1 1 0 1703")), qPrintable(december));
        QVERIFY(december.contains(s("2026-12-01 00:00:00: полночь при запущенном таймере")));
        QVERIFY(ask({s("--month=2026-11")}).simplified().contains(s("2026-11-30 1 1 1 0 0 1703")));
    }

    // A change of the file: which bytes become which; what is found.
    void check_data()
    {
        addRows({{"/", "цела"},
                 {"\"active\":7/\"active\":9", "2026-11.jsonl, строка 3 (n=3): строка изменена"},
                 {"FORGED", "2026-11.jsonl, строка 3 (n=3): строка изменена, и её сумма"},
                 {"{\"n\":2,/", "2026-11.jsonl, строка 2: строка повреждена"},
                 {"LINE 3", "2026-11.jsonl, строка 3 (n=4): перед ней не хватает строк: 1"},
                 {"LINE 1", "2026-11.jsonl, строка 1 (n=2): перед ней не хватает строк: 1"},
                 {"AGAIN 3", "2026-11.jsonl, строка 8 (n=3): строка не на своём месте"},
                 {"AGAIN 7", "цела"},
                 {"TORN 6", "цела"},
                 {"TORN 7", "2026-11.jsonl, строка 8: строка повреждена"},
                 {"END {\"n\":8", "цела"},
                 {"END {\"n\":8\n", "2026-11.jsonl, строка 8: строка повреждена"},
                 {"END {\"n\":8\n{\"n\":9", "2026-11.jsonl, строка 8: строка повреждена"}});
    }
    void check()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        Author(m_user).write(
            s(kDay)
            + (input.startsWith(s("TORN")) ? s("\ntorn 2026-11-20 09:05:00 \"bytes\":6") : QString()));
        const QString path = m_user + s("/journal/2026-11.jsonl");
        QByteArray bytes = contentsOf(path);
        QByteArrayList lines = bytes.split('\n');
        const int number = input.section(QLatin1Char(' '), 1).toInt();
        if (input.startsWith(s("LINE")))
            lines.removeAt(number - 1);
        else if (input.startsWith(s("AGAIN")))
            lines.insert(7, lines.at(number - 1));
        else if (input.startsWith(s("TORN")))
            lines.insert(7, QByteArray(number, '{'));
        else if (input.startsWith(s("END")))
            lines.last() = input.mid(4).toUtf8();
        bytes = lines.join('\n');
        if (input.contains(QLatin1Char('/')))
            bytes.replace(input.section(QLatin1Char('/'), 0, 0).toUtf8(),
                          input.section(QLatin1Char('/'), 1).toUtf8());
        if (input == s("FORGED")) {
            const QByteArray line = lines.at(2);
            QByteArray values = line.mid(7, line.indexOf(",\"before\"") - 7);
            const QByteArray before = line.mid(line.indexOf("\"before\":\"") + 10, 64);
            QByteArray hash;
            bytes.replace(line,
                          Journal::line(3, values.replace("\"active\":7", "\"active\":9"), before, &hash));
        }
        QVERIFY(writeFile(path, bytes));
        const QString shown = ask({s("--day=2026-11-20"), s("--check")});
        QVERIFY2(shown.contains(result), qPrintable(shown));
        QVERIFY(!input.startsWith(s("AGAIN")) || shown.simplified().contains(s("Всего 2 1 7 2 0")));
        QCOMPARE(m_code, result == s("цела") ? 0 : 1);
        QVERIFY(m_code == 1 || !shown.contains(s("повреждены")));
        QCOMPARE(QJsonDocument::fromJson(
                     ask({s("--day=2026-11-20"), s("--check"), s("--json")}).toUtf8())[s("check")][s("ok")]
                     .toBool(),
                 m_code == 0);
    }

    // Arguments, perhaps with a change of the surroundings before them; exit code and what is said.
    void ends_data()
    {
        addRows({{"--help", "0 Использование"},
                 {"--version", "0 orvana-minutes"},
                 {"--day 2026-11-20", "0 anna"},
                 {"LC_ALL=C --user пётр --day 2026-11-20", "0 пётр"},
                 {"TZ=Asia/Kathmandu --day 2026-11-20", "0 2026-11-20 09:01:00"},
                 {"--day 2026-11-2", "2 --help"},
                 {"--day ۲۰۲۶-۱۱-۲۰", "2 --help"},
                 {"--day 2026-11-20T09:00", "2 --help"},
                 {"--month 2026-13", "2 --help"},
                 {"--day", "2 --help"},
                 {"--day 2026-11-20 --month 2026-11", "2 --help"},
                 {"--csv --json", "2 --help"},
                 {"--user=", "2 --help"},
                 {"again", "2 --help"},
                 {"--user ../..", "3 нет такого"},
                 {"--user nobody", "3 нет такого"},
                 {"--user new", "3 нет журнала"},
                 {"ORVANA_STORAGE_ROOT=/proc", "3 нет такой папки"},
                 {"OUT=/dev/full --month=2026-11", "4 "}});
    }
    void ends()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        // The second file's place is taken, the last line is no end.
        for (const QString &name : {kAnna, s("пётр")}) {
            Author(m_root->filePath(s(".orvana/") + name))
                .write(s(kDay) + s("\nrestored 2026-11-20 09:01:00 7"));
            QDir().mkpath(m_root->filePath(s(".orvana/") + name + s("/journal/2026-12.jsonl")));
        }
        QDir().mkpath(m_root->filePath(s(".orvana/new")));
        QStringList words = input.split(QLatin1Char(' '));
        const QString change = words.first().startsWith(QLatin1Char('-')) ? QString() : words.first();
        if (change.contains(QLatin1Char('=')))
            words.removeFirst();
        const QString said = ask(words, change);
        QCOMPARE(m_code, result.left(1).toInt());
        QVERIFY2(said.contains(result.mid(2)), qPrintable(said));
    }

    // Of the task; how the table, CSV and JSON have it.
    void titles_data()
    {
        addColumns<QString, QString, QString, QString>("title", "table", "csv", "json");
        const auto row = [](const char *title, const char *table, const char *csv, const char *json) {
            QTest::newRow(title) << s(title) << s(table) << s(csv) << s(json);
        };
        row("Новости 新聞", "1703 «Новости 新聞», команда 17 «Редакция, \"А\"»", "\"Новости 新聞\"",
            "\"Новости 新聞\"");
        row("a\tb\n\"c\"\x1b[2J", "«a b \"c\" [2J»", "\"a b \"\"c\"\" [2J\"",
            "\"a\\tb\\n\\\"c\\\"\\u001b[2J\"");
        row("=cmd|' /C calc'!A1", "«=cmd|' /C calc'!A1»", "\"'=cmd|' /C calc'!A1\"",
            "\"=cmd|' /C calc'!A1\"");
        row(" ＝1", "« ＝1»", "\"' ＝1\"", "\" ＝1\"");
        row("\u202Eabc\u2066", "« abc »", "\" abc \"", "\"\u202Eabc\u2066\"");
    }
    void titles()
    {
        QFETCH(QString, title);
        Author(m_user).write(s(kDay));
        QSettings(m_user + s("/teams.ini"), QSettings::IniFormat).setValue(s("17"), s("Редакция, \"А\""));
        qRegisterMetaTypeStreamOperators<QList<Task>>("QList<Task>");
        Task task;
        task.id = s("1703");
        task.title = title;
        QSettings(m_user + s("/tasks.ini"), QSettings::IniFormat)
            .setValue(keyOfId(s("17")), QVariant::fromValue(QList<Task>{task}));
        QFETCH(QString, table);
        QFETCH(QString, csv);
        QFETCH(QString, json);
        for (const auto &[form, expected] :
             {std::pair(s("--check"), table), {s("--csv"), csv}, {s("--json"), json}}) {
            const QString shown = ask({s("--day=2026-11-20"), form});
            QVERIFY2(shown.contains(expected), qPrintable(shown));
        }
    }

    // A month of a full-time user, and a line without an end: seconds of the processor, and memory.
    void isQuick()
    {
        Author author(m_user);
        for (int day = 1; day <= 22; ++day) {
            const QString date = s("2026-10-%1").arg(day, 2, 10, QLatin1Char('0'));
            author.add(s("start"), date, s("09:00:00"), {});
            for (int minute = 1; minute <= 500; ++minute) {
                const QString time = figures(QTime(9, 0).addSecs(60 * minute), "hh:mm:ss");
                author.add(s("minute"), date, time, s("7 \"workTime\":[\"00:01:00\",\"00:02:00\"]"));
                author.add(s("accepted"), date, time, s("7 \"answer\":\"{}\""));
                for (const char *event : {"screenshot", "screenshot-sent", "screenshot-accepted"})
                    author.add(s(event), date, time, s("\"file\":\"screenshot21-10-2026-10-00-00.jpg\""));
            }
        }
        author.write(s("opened 2026-11-20 09:00:00"));
        const auto seconds = [] {
            rusage used = {};
            getrusage(RUSAGE_CHILDREN, &used);
            return double(used.ru_utime.tv_sec) + double(used.ru_utime.tv_usec) / 1e6;
        };
        const double before = seconds();
        QVERIFY(ask({s("--month=2026-10")}).contains(s("11000")));
        const double month = seconds() - before;
        QFile endless(m_user + s("/journal/2026-11.jsonl"));
        QVERIFY(endless.open(QIODevice::Append) && endless.resize(endless.size() + (1LL << 30)));
        QVERIFY(ask({s("--day=2026-11-20")}).contains(s("2026-11-20")));
        rusage used = {};
        getrusage(RUSAGE_CHILDREN, &used);
        qInfo("%.2f s, then %.2f s, %ld KB", month, seconds() - before - month, used.ru_maxrss);
#ifndef __SANITIZE_ADDRESS__
        QVERIFY(month < 1);
        QVERIFY(used.ru_maxrss < 150000);
#endif
    }

private:
    // What it writes, errors too; a change of the surroundings is "NAME=VALUE", OUT its output.
    QString ask(const QStringList &arguments, const QString &change = QString())
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(s("ORVANA_STORAGE_ROOT"), m_root->path());
        const QString name = change.section(QLatin1Char('='), 0, 0);
        const QString value = change.section(QLatin1Char('='), 1);
        if (name == s("OUT"))
            process.setStandardOutputFile(value);
        else if (!name.isEmpty())
            environment.insert(name, value);
        process.setProcessEnvironment(environment);
        process.start(s(ORVANA_MINUTES_EXECUTABLE), arguments);
        process.waitForFinished(-1);
        m_code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        return QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
    }

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_user;
    int m_code = 0;
};

QTEST_GUILESS_MAIN(TestMinutes)
#include "tst_minutes.moc"
