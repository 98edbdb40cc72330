#include "model/records.h"
#include "rows.h"

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
    const TextTask text{s("2"), s("t"), s("n"), s("500"), QUrl(s("https://h/ж")), s("5"), {word}};
    const Attachment file{s("1"), s("f"), s("o"), s("9")};
    const QDateTime deadline(QDate(2024, 2, 29), QTime(23, 59, 59));
    return {s("5"), s("T"), deadline, s("d"), s("e"), s("c"), s("a"), {file}, {text}};
}

// Written down by hand: what the files of users hold already.
const QByteArray kNone = "ffffffff"; // a text or a URL
const QByteArray kNoDateTime = "8000000000000000 ffffffff 00";
const QByteArray kTaskHex = "00000004 0031 0037  00000006 0416 0443 043a  0000000000258ad3 03dcc500 00"
                            "00000002 0031  8000000000000000 ffffffff 00  fffffffe";
const QByteArray kInfoHex = "00000002 0035  00000002 0054  0000000000258ad2 05265818 00  00000002 0064"
                            "00000002 0065  00000002 0063  00000002 0061"
                            "00000001  00000002 0031  00000002 0066  00000002 006f  00000002 0039"
                            "00000001  00000002 0032  00000002 0074  00000002 006e  00000006 003500300030"
                            "00000010 68747470733a2f2f682f254430254236  00000002 0035"
                            "00000001  00000002 0033  00000002 006b  00000002 0031  00000002 0032";

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

bool isSame(const Task &one, const Task &other)
{
    return one.hasSameContents(other);
}

template <typename T>
bool isSame(const T &one, const T &other)
{
    return one == other;
}

template <typename T>
void verifyForm(const T &value, QByteArray hex)
{
    const QByteArray bytes = streamed(value);
    QCOMPARE(bytes.toHex(), hex.replace(' ', ""));
    T again;
    QVERIFY(read(bytes + bytes, again)); // What follows is not touched.
    QVERIFY(isSame(again, value));
    for (int at = 0; at < bytes.size(); ++at)
        QVERIFY(!read(bytes.left(at), again));
}

} // namespace

class TestRecords final : public QObject
{
    Q_OBJECT

private slots:
    void streamForms()
    {
        const QByteArray noInfo = kNone.repeated(2) + kNoDateTime + kNone.repeated(4);
        TaskInfo info;
        info.texts.append(TextTask());
        verifyForm(Task(), kNone + kNone + kNoDateTime + kNone + kNoDateTime + "00000000");
        verifyForm(someTask(), kTaskHex);
        verifyForm(QList<Task>{someTask(), someTask()}, "00000002" + kTaskHex + kTaskHex);
        verifyForm(someInfo(), kInfoHex);
        verifyForm(info, noInfo + "00000000 00000001" + kNone.repeated(6) + "00000000");
    }

    void survivesHugeCounts()
    {
        QList<Task> tasks{Task()};
        for (const char *hex : {"00000002", "7fffffff", "80000000", "ffffffff"})
            QVERIFY(!read(QByteArray::fromHex(hex) + streamed(someTask()), tasks) && tasks.isEmpty());
    }

    // Damaged bytes can hold a moment in a zone that is none; Qt crashes when it writes that.
    void oddMoments()
    {
        const QDateTime moment(QDate(2024, 3, 1), QTime(18, 0), Qt::UTC);
        const auto stored = [&moment](Qt::TimeSpec kind, const auto &place) {
            QByteArray bytes;
            QDataStream stream(&bytes, QIODevice::WriteOnly);
            stream.setVersion(QDataStream::Qt_5_15);
            stream << QString() << QString() << moment.date() << moment.time() << qint8(kind) << place
                   << QString() << QDateTime() << qint32(0);
            return bytes;
        };
        Task task;
        QVERIFY(read(stored(Qt::OffsetFromUTC, qint32(0)), task));
        QCOMPARE(task.deadline, moment);
        QCOMPARE(streamed(task),
                 stored(Qt::OffsetFromUTC, qint32(0)).replace(QByteArray("\2\0\0\0\0", 5), "\1"));
        QVERIFY(read(stored(Qt::TimeZone, s("Nowhere/No")), task));
        QVERIFY(!task.deadline.isValid() && !streamed(task).isEmpty());
    }

    void equality()
    {
        Task sameId;
        sameId.id = someTask().id;
        Task otherId = someTask();
        otherId.id = s("017");
        QList<Task> tasks{someTask(), otherId, sameId};
        QCOMPARE(tasks.removeAll(someTask()), 2);
        QCOMPARE(tasks, QList<Task>{otherId});
        QVERIFY(haveSameContents(QList<Task>{someTask()}, {someTask()}));
        QVERIFY(!haveSameContents(QList<Task>{someTask()}, {sameId}));
        // What the members of a record hold counts, down to the last list.
        const auto differs = [](auto change) {
            TaskInfo info = someInfo();
            change(info);
            return !(info == someInfo());
        };
        QVERIFY(differs([](TaskInfo &info) { info.deadline = QDateTime(); }));
        QVERIFY(differs([](TaskInfo &info) { info.files.first().size = s("8"); }));
        QVERIFY(differs([](TaskInfo &info) { info.texts.first().page.clear(); }));
        QVERIFY(differs([](TaskInfo &info) { info.texts.first().keywords.first().count2 = s("3"); }));
    }

    // As Qt reads that pattern, but faster.
    void readsServiceDateTimes_data()
    {
        QTest::addColumn<QByteArray>("zone");
        for (const char *zone : {"UTC", "Europe/Berlin", "America/New_York"})
            QTest::newRow(zone) << QByteArray(zone);
    }

    void readsServiceDateTimes()
    {
        QFETCH(QByteArray, zone);
        const QString valid = s("2024-03-01 18:00:00");
        QStringList all = texts(
            {"2024-02-29 00:00:00", "2023-02-29 00:00:00", "2024-03-01", "2024-03-01T18:00:00",
             "2024-03-01 24:00:00", "2024-03-01 23:59:60", "2024-01-00 10:00:00", "0000-00-00 00:00:00",
             "0000-01-01 00:00:00", "9999-12-31 23:59:59", "1969-12-31 23:59:59", " 2024-03-01 18:00:00",
             "2024-03-01 18:00:00.5", "-024-03-01 18:00:00", "٢٠٢٤-03-01 18:00:00",
             // Clocks go forward and back.
             "2024-03-31 02:30:00", "2024-10-27 02:30:00", "2024-03-10 02:30:00", "2011-03-27 02:30:00"});
        for (int i = 0; i < valid.size(); ++i) {
            all.append(valid.left(i));
            for (const char unit : {'0', '3', '9', 'x', ' ', '-', ':'})
                all.append(QString(valid).replace(i, 1, QLatin1Char(unit)));
        }
        qputenv("TZ", zone);
        tzset();
        for (const QString &text : qAsConst(all))
            QVERIFY2(isSameMoment(parseServiceDateTime(text),
                                  QDateTime::fromString(text, s("yyyy-MM-dd HH:mm:ss"))),
                     qPrintable(text));
    }
};

QTEST_GUILESS_MAIN(TestRecords)

#include "tst_records.moc"
