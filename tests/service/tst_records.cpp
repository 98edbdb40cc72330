#include "rows.h"
#include "service/replyparser.h"
#include "service/tasklists.h"
#include "tasknotes.h"

#include <ctime>

namespace {

Task someTask()
{
    Task task;
    task.id = s("17");
    task.title = s("Жук");
    task.deadline = QDateTime(QDate(2024, 3, 1), QTime(18, 0));
    task.block = s("1");
    task.importance = -2;
    return task;
}

TaskInfo someInfo()
{
    const Keyword word{s("3"), s("k"), s("1"), s("2")};
    const TextTask text{s("2"), s("t"), s("n"), s("500"), QUrl(s("https://h/ж")), s("4"), {word}};
    const Attachment file{s("1"), s("f"), s("o"), s("9")};
    const QDateTime deadline(QDate(2024, 2, 29), QTime(23, 59, 59));
    return {s("5"), s("T"), deadline, s("d"), s("e"), s("c"), s("a"), {file}, {text, TextTask()}};
}

// Written down by hand: what the files of users hold already.
const QByteArray kTaskHex = "00000004 0031 0037  00000006 0416 0443 043a  0000000000258ad3 03dcc500 00"
                            "00000002 0031  8000000000000000 ffffffff 00  fffffffe";
const QByteArray kInfoHex = "00000002 0035  00000002 0054  0000000000258ad2 05265818 00  00000002 0064"
                            "00000002 0065  00000002 0063  00000002 0061"
                            "00000001  00000002 0031  00000002 0066  00000002 006f  00000002 0039"
                            "00000002  00000002 0032  00000002 0074  00000002 006e  00000006 003500300030"
                            "00000010 68747470733a2f2f682f254430254236  00000002 0034"
                            "00000001  00000002 0033  00000002 006b  00000002 0031  00000002 0032"
                            "ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff 00000000";

template <typename T>
QByteArray streamed(const T &value)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_15);
    stream << value;
    return bytes;
}

template <typename T>
bool read(const QByteArray &bytes, T &value)
{
    QDataStream stream(bytes);
    stream.setVersion(QDataStream::Qt_5_15);
    stream >> value;
    return stream.status() == QDataStream::Ok;
}

template <typename T>
void verifyForm(const T &value, QByteArray hex)
{
    const QByteArray bytes = streamed(value);
    QCOMPARE(bytes.toHex(), hex.replace(' ', ""));
    T again;
    QVERIFY(read(bytes + bytes, again)); // What follows is not touched.
    QCOMPARE(streamed(again), bytes);
    for (int at = 0; at < bytes.size(); ++at)
        QVERIFY(!read(bytes.left(at), again));
}

QString show(const QDateTime &dateTime)
{
    return dateTime.isValid() ? serviceDateTimeText(dateTime) : s("-");
}

QString show(const QList<TeamTasks> &all)
{
    QString teams;
    for (const TeamTasks &entry : all) {
        teams += entry.team.id + QLatin1Char('=') + entry.team.name + QLatin1Char(':');
        for (const Task &task : entry.tasks)
            teams += s("|%1|%2|%3|%4|%5|%6")
                         .arg(task.id, task.title, show(task.deadline), task.block, show(task.lastComment))
                         .arg(task.importance);
    }
    return teams.replace(s("|0|Прочие непоставленные задачи|-||-|0"), s(".. ")).trimmed();
}

QList<TeamTasks> parse(const QByteArray &body)
{
    return parseTeamsAndTasks(body, TaskLists());
}

} // namespace

// Records, from the service's replies and in the form in which settings files hold them.
class TestRecords final : public QObject
{
    Q_OBJECT

private slots:
    void readsTeamsAndTasks_data()
    {
        addRows(
            {{R"([{"id":"3","name":"Тест","tasks":[{"id":"7","title":"Жук","deadline":"2024-03-01 18:00:00","block":"1",)"
              R"("last_comment":"2024-02-29 09:30:15","importance":"3"},{"id":"8"}]},{"id":"4"}])",
              "3=Тест:|7|Жук|2024-03-01 18:00:00|1|2024-02-29 09:30:15|3|8||-||-|0.. 4=:.."},
             {R"([{"id":3,"name":4,"tasks":[{"id":7,"title":1.5,"block":1,"importance":-2,"deadline":5}]}])",
              "3=4:|7|1.5|-|1|-|-2.."},
             {R"([{"id":3,"tasks":{"id":"7"}}])", "3=:.."},
             {R"([{"id":3,"tasks":[1,null,[]]}])", "3=:|||-||-|0|||-||-|0|||-||-|0.."},
             {R"([{"name":"A","tasks":[{"id":1}]},{"id":""},5,null,{"id":"a/b=c%d"}] tail)", "a/b=c%d=:.."},
             {R"([{"id":"3"})", ""},
             {R"({"id":"3","tasks":[]})", ""}});
    }

    void readsTeamsAndTasks()
    {
        QFETCH(QString, input);
        QTEST(show(parse(input.toUtf8())), "result");
        // A body ends at its first NUL.
        QTEST(show(parse(input.toUtf8() + '\0' + "}{")), "result");
        QCOMPARE(show(parse('\0' + input.toUtf8())), QString());
    }

    // What is known may make reading cheaper, never its result different.
    void sharesWhatIsKnown_data()
    {
        // The known tasks, those of the reply, and a text in it that is replaced; "=" when
        // the lists are one.
        addRows({{"7!@3*2 8 9 > 7!@3*2 8 9", "="},
                 {" >  > []=[{},null]", ""},
                 {"7 8 > 9 7 8", ""},
                 {"7 8 9 > 8 9", ""},
                 {"7 8 9 > 9 8 7", ""},
                 {"7 8 > 7 8 > T7=T", ""},
                 {"7@3 8 > 7@4 8", ""},
                 {"7 8! > 7 8", ""},
                 {"7 8*2 > 7 8*3", ""},
                 {"7 8 > 7 8 > }=,\"importance\":1}", ""},
                 {"7 8 > 7 8 > ]}]=", ""}});
    }

    void sharesWhatIsKnown()
    {
        const auto body = [](const QString &notes) {
            return QString::fromUtf8(listsReply({s("3:") + notes}));
        };
        QFETCH(QString, input);
        const QStringList parts = input.split(s(">"));
        TaskLists known;
        known.replace(s("3"), parse(body(parts.at(0)).toUtf8()).first().tasks);
        const QStringList change = parts.value(2, s("none=")).trimmed().split(QLatin1Char('='));
        const QByteArray reply = body(parts.at(1)).replace(change.at(0), change.at(1)).toUtf8();
        const QList<TeamTasks> after = parseTeamsAndTasks(reply, known);
        QCOMPARE(show(after), show(parse(reply)));
        const bool isShared = !after.isEmpty() && after.first().tasks.isSharedWith(known.ofTeam(s("3")));
        QTEST(isShared ? s("=") : QString(), "result");
    }

    void readsDetails()
    {
        const QByteArray body =
            R"({"id":5,"title":"T","deadline":"2024-02-29 23:59:59","text":"d","executor_name":"e","creator_name":"c",)"
            R"("auditor_name":"a","files":[{"id":1,"filename":"f","filename_orig":"o","size":9}],"texts":[{"id":2,)"
            R"("text":"t","title":"n","min_count":500,"page":"https://h/ж","task":"4","keywords":[{"id":3,)"
            R"("keyword":"k","count":1,"count2":2}]},{"page":""}]})";
        const TaskInfo info = parseTaskAnswer("{\"message\":" + body + '}').task;
        QCOMPARE(info, someInfo());
        TaskInfo other = info;
        other.texts.first().keywords.first().count2.clear();
        QVERIFY(!(info == other));
        TaskInfo odd;
        odd.auditorName = s("1");
        QCOMPARE(
            parseTaskAnswer(R"({"message":{"id":[1],"title":{},"deadline":true,"text":null,"files":{"id":1},)"
                            R"("texts":"x","auditor_name":1.0}})")
                .task,
            odd);
    }

    void readsDayTotals()
    {
        QStringList read;
        for (const char *value : {"90", "\"90\"", "1439", "1500", "-30", "\"abc\"", "90.5", "null"}) {
            const QString body = s(R"({"today_active":%1,"today_total":7,"today_task":8})").arg(s(value));
            const DayTotals all = parseDayTotals(parseObject(body.toUtf8()));
            QCOMPARE(figures(all.total, "HHmm ") + figures(all.task, "HHmm"), s("0007 0008"));
            read.append(figures(all.active, "HH:mm"));
        }
        QCOMPARE(read, texts({"01:30", "01:30", "23:59", "01:00", "23:30", "00:00", "00:00", "00:00"}));
    }

    void streamForms()
    {
        verifyForm(QList<Task>{someTask(), someTask()}, "00000002" + kTaskHex + kTaskHex);
        verifyForm(someInfo(), kInfoHex);
        // Damaged bytes can hold a moment in a zone that is none; Qt crashes when it writes that.
        Task task;
        QVERIFY(read(QByteArray::fromHex("ffffffff ffffffff 0000000000258ad3 03dcc500 03 00000002 003f"
                                         "ffffffff 8000000000000000 ffffffff 00 00000000"),
                     task));
        QVERIFY(!task.deadline.isValid() && !streamed(task).isEmpty());
    }

    // As Qt reads that pattern, but faster.
    void readsServiceDateTimes()
    {
        const QString valid = s("2024-03-01 18:00:00");
        QStringList all = texts({"2023-02-29 00:00:00", "2024-03-01 24:00:00", "0000-01-01 00:00:00",
                                 "2024-03-01 18:00:00.5", "٢٠٢٤-03-01 18:00:00", "2024-03-31 02:30:00"});
        for (int i = 0; i < valid.size(); ++i) {
            all.append(valid.left(i));
            for (const char unit : {'0', '3', '9', 'x', ' ', '-', ':'})
                all.append(QString(valid).replace(i, 1, QLatin1Char(unit)));
        }
        qputenv("TZ", "Europe/Berlin");
        tzset();
        for (const QString &text : qAsConst(all)) {
            const QDateTime expected = QDateTime::fromString(text, s("yyyy-MM-dd HH:mm:ss"));
            QVERIFY2(isSameMoment(parseServiceDateTime(text), expected), qPrintable(text));
        }
    }
};

QTEST_GUILESS_MAIN(TestRecords)

#include "tst_records.moc"
