#include "rows.h"
#include "service/listchanges.h"
#include "service/replyparser.h"
#include "service/tasklists.h"
#include "tasknotes.h"

namespace {

QList<TeamTasks> parse(const QByteArray &body)
{
    return parseTeamsAndTasks(body, TaskLists());
}

QString show(const QStringList &members)
{
    return members.join(QLatin1Char('|'));
}

QString show(const QDateTime &dateTime)
{
    return dateTime.isValid() ? serviceDateTimeText(dateTime) : s("-");
}

QString show(const QList<TeamTasks> &all)
{
    QStringList teams;
    for (const TeamTasks &entry : all) {
        QStringList tasks;
        for (const Task &task : entry.tasks) {
            const QStringList members{task.id,
                                      task.title,
                                      show(task.deadline),
                                      task.block,
                                      show(task.lastComment),
                                      QString::number(task.importance)};
            tasks.append(
                show(members).replace(s("0|Прочие непоставленные задачи|-||-|0"), QLatin1String("..")));
        }
        teams.append(entry.team.id + QLatin1Char('=') + entry.team.name + QLatin1Char('[')
                     + tasks.join(QLatin1String("; ")) + QLatin1Char(']'));
    }
    return teams.join(QLatin1Char(' '));
}

QString show(const TaskInfo &info)
{
    QStringList lines{show({info.id, info.title, show(info.deadline), info.text, info.executorName,
                            info.creatorName, info.auditorName})};
    for (const Attachment &file : info.files)
        lines.append(show({file.id, file.filename, file.filenameOrig, file.size}));
    for (const TextTask &text : info.texts) {
        const QString page = text.page.toString(QUrl::FullyEncoded);
        lines.append(show({text.id, text.text, text.title, text.minCount, page, text.task}));
        for (const Keyword &word : text.keywords)
            lines.append(show({word.id, word.keyword, word.count, word.count2}));
    }
    return lines.join(QLatin1Char(' '));
}

} // namespace

class TestLists final : public QObject
{
    Q_OBJECT

private slots:
    void readsTeamsAndTasks_data()
    {
        addRows(
            {{R"([{"id":"3","name":"Тест","tasks":[{"id":"7","title":"Жук","deadline":"2024-03-01 18:00:00","block":"1",)"
              R"("last_comment":"2024-02-29 09:30:15","importance":"3"},{"id":"8"}]},{"id":"4"}])",
              "3=Тест[7|Жук|2024-03-01 18:00:00|1|2024-02-29 09:30:15|3; 8||-||-|0; ..] 4=[..]"},
             {R"([{"id":3,"name":4,"tasks":[{"id":7,"title":1.5,"block":1,"importance":-2,"deadline":5}]}])",
              "3=4[7|1.5|-|1|-|-2; ..]"},
             {R"([{"id":3,"tasks":[{"deadline":"2024-03-01","last_comment":"0000-00-00 00:00:00","importance":"много"}]}])",
              "3=[||-||-|0; ..]"},
             {R"([{"id":3,"tasks":{"id":"7"}}])", "3=[..]"},
             {R"([{"id":3,"tasks":[1,null,[]]}])", "3=[||-||-|0; ||-||-|0; ||-||-|0; ..]"},
             {R"([{"name":"A","tasks":[{"id":1}]},{"id":""},5,null,{"id":"4"}] tail)", "4=[..]"},
             {R"([{"id":"a/b=c%d"}])", "a/b=c%d=[..]"},
             {"", ""},
             {R"([{"id":"3"})", ""},
             {R"({"id":"3","tasks":[]})", ""},
             {"<html>", ""}});
    }

    void readsTeamsAndTasks()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        QCOMPARE(show(parse(input.toUtf8())), result);
        // A body ends at its first NUL.
        QCOMPARE(show(parse(input.toUtf8() + '\0' + "}{")), result);
        QCOMPARE(show(parse('\0' + input.toUtf8())), QString());
    }

    // What is known may make reading cheaper, never its result different.
    void sharesWhatIsKnown_data()
    {
        // The known tasks, those of the reply, and a text in it that is replaced; "=" when
        // the lists are one.
        addRows({{"7!@3*2 8 9 > 7!@3*2 8 9", "="},
                 {"7 > 7 > T=\\u0054", "="},
                 {" > ", "="},
                 {" > 7 8", ""},
                 {" >  > []=[{},null]", ""},
                 {"7 8 > 9 7 8", ""},
                 {"7 8 9 > 7 8", ""},
                 {"7 8 9 > 8 9", ""},
                 {"7 8 9 > 9 8 7", ""},
                 {"7 8 > 7 7 8 8", ""},
                 {"7 8 > 7 8 > T7=T", ""},
                 {"7 8 > 7 8 > \"T7\"=\"\"", ""},
                 {"7@3 8 > 7@4 8", ""},
                 {"7@3 8 > 7 8", ""},
                 {"7 8! > 7 8", ""},
                 {"7 8*2 > 7 8*3", ""},
                 {"7 8 > 7 8 > :0=:1", ""},
                 {"7 8 > 7 8 > ]}]=", ""}});
    }

    void sharesWhatIsKnown()
    {
        const auto body = [](const QString &notes) {
            QStringList parts;
            const QList<Task> tasks = tasksFrom(notes);
            for (const Task &task : tasks)
                parts.append(
                    s(R"({"id":"%1","title":"%2","deadline":"%3","block":"%4","last_comment":"%5","importance":0})")
                        .arg(task.id, task.title, serviceDateTimeText(task.deadline), task.block,
                             serviceDateTimeText(task.lastComment)));
            return s(R"([{"id":"3","tasks":[%1]}])").arg(parts.join(QLatin1Char(',')));
        };
        QFETCH(QString, input);
        const QStringList parts = input.split(s(">"));
        TaskLists known;
        known.replace(s("3"), parse(body(parts.at(0)).toUtf8()).first().tasks);
        QString text = body(parts.at(1));
        if (parts.size() > 2)
            text.replace(parts.at(2).section(QLatin1Char('='), 0, 0).trimmed(),
                         parts.at(2).section(QLatin1Char('='), 1));
        const QByteArray reply = text.toUtf8();
        const QList<TeamTasks> after = parseTeamsAndTasks(reply, known);
        QCOMPARE(show(after), show(parse(reply)));
        const bool isShared = !after.isEmpty() && after.first().tasks.isSharedWith(known.ofTeam(s("3")));
        QTEST(isShared ? s("=") : QString(), "result");
    }

    void readsDetails_data()
    {
        addRows(
            {{R"({"id":17,"title":"T","deadline":"2024-03-01 18:00:00","text":"d","executor_name":"e","creator_name":"c",)"
              R"("auditor_name":"a","files":[{"id":1,"filename":"f","filename_orig":"ф","size":9},{}],"texts":[{"id":2,)"
              R"("text":"t","title":"n","min_count":500,"page":"https://h/a b%20ж","task":"17","keywords":[{"id":3,)"
              R"("keyword":"k","count":1,"count2":2},{"keyword":"l"}]},{"page":""}]})",
              "17|T|2024-03-01 18:00:00|d|e|c|a 1|f|ф|9 ||| 2|t|n|500|https://h/a%20b%20%D0%B6|17 3|k|1|2 "
              "|l|| "
              "|||||"},
             {R"({"id":17,"files":[],"texts":[]})", "17||-||||"},
             {R"({"id":[1],"title":{},"deadline":true,"text":null,"files":{"id":1},"texts":"x","auditor_name":1.0})",
              "||-||||1"},
             {"[]", "||-||||"}});
    }

    void readsDetails()
    {
        QFETCH(QString, input);
        QTEST(show(parseTaskAnswer("{\"message\":" + input.toUtf8() + '}').task), "result");
    }

    void readsDayTotals_data()
    {
        addRows({{"90", "01:30"},
                 {"\"90\"", "01:30"},
                 {"1439", "23:59"},
                 {"1500", "01:00"},
                 {"-30", "23:30"},
                 {"2147483647", "02:07"},
                 {"\"abc\"", "00:00"},
                 {"90.5", "00:00"},
                 {"1e2", "00:00"},
                 {"null", "00:00"},
                 {"\"90 мин\"", "00:00"}});
    }

    void readsDayTotals()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const auto read = [&input](const char *key) {
            const QString body = s("{\"%1\":%2}").arg(s(key), input);
            const DayTotals all = parseDayTotals(parseObject(body.toUtf8()));
            return show(
                {figures(all.active, "HH:mm"), figures(all.total, "HH:mm"), figures(all.task, "HH:mm")});
        };
        QCOMPARE(read("today_active"), result + s("|00:00|00:00"));
        QCOMPARE(read("today_total"), s("00:00|%1|00:00").arg(result));
        QCOMPARE(read("today_task"), s("00:00|00:00|") + result);
    }

    void findsTeamChanges_data()
    {
        // Before and after, a team's id being the first letter of its name; kinds and names.
        addRows({{"A B > B Ax", ""}, {"A B > C B C", "1C 1C 2A"}, {"A B > ", "2A 2B"}});
    }

    void findsTeamChanges()
    {
        QFETCH(QString, input);
        const auto teams = [&input](int part) {
            QList<Team> all;
            const QStringList names =
                input.section(QLatin1Char('>'), part, part).split(QLatin1Char(' '), Qt::SkipEmptyParts);
            for (const QString &name : names)
                all.append({name.left(1), name});
            return all;
        };
        QStringList found;
        const QVector<TeamChange> changes = teamChanges(teams(0), teams(1));
        for (const TeamChange &change : changes)
            found.append(QString::number(change.type) + change.name);
        QTEST(found.join(QLatin1Char(' ')), "result");
    }

    void findsTaskChanges_data()
    {
        // Before and after; then the kind, the task as it was and as it is.
        addRows({{"7!@3*2 8 > 8 7!@3*2", ""},
                 {" > 7 8! 9~0 6~y", "3:>7 10:>8 3:>9 10:>6"},
                 {"7 8! > ", "4:7> 4:8>"},
                 {"7 8~0 9! 5! 6! > 7! 8~y 9 5~0 6~y", "8:7>7 8:8>8 9:9>9 9:5>5"},
                 {"7*2 8*3 9 6*2 > 7*3 8*2 9*2 6", "5:7>7 5:9>9"},
                 {"7*2 > 7!*3", "8:7>7 5:7>7"},
                 {"5@3 6@4 7@3 8 9@3 > 5@4 6@3 7 8@3 9@3", "7:5>5 7:6>6 7:7>7 7:8>8"},
                 // First each task of the new list, then those that are gone, then deadlines.
                 {"1 2@3 3!@3 4 > 5@1 3@4*1 6! 2@4", "3:>5 9:3>3 5:3>3 10:>6 4:1> 4:4> 7:2>2 7:3>3"},
                 // The entry for other work is no news, whatever becomes of it.
                 {"0@3 > 0!@4*1 7", "3:>7"},
                 {"0 > 7", "3:>7"},
                 // Repeated ids: the first one speaks, every pair of deadlines counts.
                 {"7 7! > 7!", "8:7>7"},
                 {"7@1 7@2 > 7@3", "7:7>7 7:7>7"},
                 {"7@1 > 7@1 7@2 7@3", "7:7>7 7:7>7"},
                 {"7 7 > 8 8", "3:>8 3:>8 4:7> 4:7>"}});
    }

    void findsTaskChanges()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const auto found = [&](bool trackDeadlines) {
            QStringList texts;
            const QVector<TaskChange> all =
                taskChanges(tasksFrom(input.section(QLatin1Char('>'), 0, 0)),
                            tasksFrom(input.section(QLatin1Char('>'), 1)), trackDeadlines);
            for (const TaskChange &change : all)
                texts.append(QString::number(change.type) + QLatin1Char(':') + change.oldTask.id
                             + QLatin1Char('>') + change.newTask.id);
            return texts.join(QLatin1Char(' '));
        };
        QCOMPARE(found(true), result);
        // Deadlines come last.
        QCOMPARE(found(false), result.section(s("7:"), 0, 0).trimmed());
    }
};

QTEST_GUILESS_MAIN(TestLists)

#include "tst_lists.moc"
