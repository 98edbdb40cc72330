#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "windowbench.h"

using localservice::Fault;

namespace {

constexpr qint64 kLongestStall = 5000; // ms
constexpr int kLongestText = 3000;
constexpr int kHuge = 4 * 1024 * 1024;
#ifdef __SANITIZE_ADDRESS__
// QSettings reallocates its text at each value, and the sanitizer copies it each time.
constexpr int kMany = 1000;
constexpr int kEmpty = 2 * kMany;
#else
constexpr int kMany = 49000;
constexpr int kEmpty = 10 * kMany;
#endif
constexpr int kMostWidgets = 200;
const QString kTeam = s("17");
const QString kTask = s("1701");

QByteArray listOf(const QByteArray &team, const QByteArray &title)
{
    return R"([{"id":"17","name":")" + team + R"(","tasks":[{"id":"1701","title":")" + title
        + R"(","deadline":"2024-03-01 18:00:00"}]}])";
}

// Members of an array, each with an id of its own.
QByteArray manyEntries()
{
    QByteArray list;
    for (int i = 0; i < kMany; ++i)
        list += R"({"id":"x)" + QByteArray::number(i) + R"("},)";
    return list;
}

} // namespace

// Replies without measure, in every window that shows them: none of them stands still, and
// the minute is reported.
class TestWindowFaults final : public QObject
{
    Q_OBJECT

private slots:
    void hugeTexts_data();
    void hugeTexts();
};

void TestWindowFaults::hugeTexts_data()
{
    QTest::addColumn<QByteArray>("lists");
    QTest::addColumn<QByteArray>("details");
    const QByteArray huge(kHuge, 'w');
    const QByteArray words = QByteArray("w ").repeated(kHuge / 2);
    const QByteArray none = R"({"status":"ok","message":{"id":"1701"}})";
    const QByteArray plain = listOf("C", "T");
    const auto refusal = [](const QByteArray &why) {
        return QByteArray(R"({"status":"no","message":")" + why + "\"}");
    };
    const auto detailsWith = [](const QByteArray &lists) {
        return QByteArray(R"({"status":"ok","message":{"id":"1701",)" + lists + "}}");
    };
    QTest::newRow("team") << listOf(huge, "T") << none;
    QTest::newRow("title") << listOf("C", huge) << none;
    QTest::newRow("title in words") << listOf("C", words) << none;
    const QByteArray each = R"(":")" + QByteArray(kHuge / 8, 'w') + R"(",")";
    QTest::newRow("details") << plain
                             << detailsWith("\"text" + each + "title" + each + "executor_name" + each
                                            + R"(files":[{"filename_orig)" + each
                                            + R"(size":"1"}],"texts":[{"title)" + each + "text" + each
                                            + "min_count" + each + R"(page":"http://)" + each.mid(3)
                                            + R"(keywords":[{"keyword)" + each + "count" + each
                                            + R"(id":"1"}]}])");
    const QByteArray empties = QByteArray("{},").repeated(kEmpty) + "{}";
    QTest::newRow("phrases") << plain << detailsWith(R"("texts":[{"keywords":[)" + empties + "]}]");
    QTest::newRow("files") << plain << detailsWith(R"("files":[)" + empties + "]");
    QTest::newRow("teams") << QByteArray('[' + manyEntries() + plain.mid(1)) << none;
    // Of a team whose tasks' details are not fetched.
    QTest::newRow("tasks") << QByteArray(R"([{"id":"2192","tasks":[)" + manyEntries() + R"({"id":"1701"}]}])")
                           << none;
    QTest::newRow("refusal") << plain << refusal(huge);
    QTest::newRow("refusal in words") << plain << refusal(words);
}

void TestWindowFaults::hugeTexts()
{
    QFETCH(QByteArray, lists);
    QFETCH(QByteArray, details);
    WindowBench bench;
    QVERIFY(bench.signIn());
    bench.orvana()->changeTask(lists.contains("2192") ? s("2192") : kTeam, kTask);
    QVERIFY(bench.openWindow());
    QElapsedTimer sinceTick;
    qint64 longestStall = 0;
    QTimer tick;
    connect(&tick, &QTimer::timeout, this, [&] { longestStall = qMax(longestStall, sinceTick.restart()); });
    sinceTick.start();
    tick.start(0);

    bench.server().setFault(s("/api_get_task"), Fault::answer(200, details));
    bench.server().setFault(s("/api_teams_tasks"), Fault::answer(200, lists));
    QVERIFY(bench.refresh());
    bench.orvana()->requestTaskInfo(kTask);
    QVERIFY(bench.settle());
    bench.form->showActivityMessage();
    bench.form->clock();
    const QStringList popups = WindowBench::popupTexts();
    QVERIFY(!popups.isEmpty());
    for (const QString &text : popups)
        QVERIFY2(text.size() < kLongestText, qPrintable(QString::number(text.size())));
    QVERIFY(bench.form->findChild<QSystemTrayIcon *>()->toolTip().size() < kLongestText);

    bench.child<QPushButton>("pbTask")->click();
    QVERIFY(bench.settle());
    auto *chooser = bench.form->findChild<TaskForm *>();
    QVERIFY(QTest::qWaitForWindowExposed(chooser));
    const QList<QComboBox *> boxes = chooser->findChildren<QComboBox *>();
    QCOMPARE(boxes.size(), 2);
    for (QComboBox *box : boxes) {
        box->showPopup();
        QCoreApplication::processEvents();
        box->hidePopup();
    }
    bench.child<QPushButton>("pbTaskList")->click();
    QVERIFY(bench.refresh()); // while both are seen
    chooser->reject();
    TaskDescriptionForm description(kTask, bench.orvana(), bench.form->findChild<TaskListForm *>(), nullptr);
    description.show();
    QVERIFY(QTest::qWaitForWindowExposed(&description));
    description.on_pbCopyrightTasks_clicked();
    QVERIFY(bench.settle());
    QVERIFY(description.findChildren<QWidget *>().size() < kMostWidgets);

    bench.form->sendActivity(true);
    QTRY_COMPARE(bench.server().reports().size(), 1);
    QVERIFY(bench.settle());
    longestStall = qMax(longestStall, sinceTick.elapsed());
    QVERIFY2(longestStall < kLongestStall, qPrintable(QString::number(longestStall)));
}

QTEST_MAIN(TestWindowFaults)
#include "tst_windowfaults.moc"
