#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "windowbench.h"

#include <ctime>

using localservice::Fault;

namespace {

constexpr qint64 kLongestStall = 5000; // ms of the processor
constexpr int kLongestText = 3000;
constexpr int kHuge = 4 * 1024 * 1024;
#ifdef __SANITIZE_ADDRESS__
// QSettings reallocates its text at each value, and the sanitizer copies it each time.
constexpr int kMany = 1000;
constexpr int kEmpty = kMany;
#else
constexpr int kMany = 49000;
constexpr int kEmpty = 10 * kMany;
#endif
const QString kTask = s("1701");

// Of this thread, in ms. Unlike the time of day it does not grow with what else the machine does.
qint64 processorTime()
{
    timespec used = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return qint64(used.tv_sec) * 1000 + used.tv_nsec / 1000000;
}

// JSON with its quotes, and a text in the places of "%1".
QByteArray json(const QByteArray &pattern, const QByteArray &text = QByteArray())
{
    return QByteArray(pattern).replace('\'', '"').replace("%1", text);
}

} // namespace

// Replies without measure, in every window that shows them: none of them stands still, and
// the minute is reported.
class TestWindowFaults final : public QObject
{
    Q_OBJECT

private slots:
    void hugeTexts_data()
    {
        QTest::addColumn<QByteArray>("lists");
        QTest::addColumn<QByteArray>("details");
        const auto lists = [](const QByteArray &text) {
            return json("[{'id':'17','name':'%1','tasks':[{'id':'1701','title':'%1',"
                        "'deadline':'2024-03-01 18:00:00'}]}]",
                        text);
        };
        const auto details = [](const QByteArray &members, const QByteArray &text = QByteArray()) {
            return json("{'status':'ok','message':{'id':'1701'," + members + "}}", text);
        };
        const QByteArray none = details("'text':''");
        const QByteArray words = QByteArray("w ").repeated(kHuge / 2);
        QTest::newRow("one word") << lists(QByteArray(kHuge, 'w')) << none;
        QTest::newRow("words") << lists(words) << none;
        QTest::newRow("details")
            << lists("T")
            << details("'text':'%1','title':'%1','executor_name':'%1','files':[{'filename_orig':'%1'}],"
                       "'texts':[{'title':'%1','text':'%1','min_count':'%1','page':'http://%1',"
                       "'keywords':[{'keyword':'%1','count':'%1'}]}]",
                       QByteArray(kHuge / 8, 'w'));
        const QByteArray empties = QByteArray("{},").repeated(kEmpty) + "{}";
        QTest::newRow("files and phrases")
            << lists("T") << details("'files':[" + empties + "],'texts':[{'keywords':[" + empties + "]}]");
        QByteArray many = "[";
        for (int i = 0; i < kMany; ++i)
            many += json("{'id':'%1'},", 'x' + QByteArray::number(i));
        QTest::newRow("teams") << QByteArray(many + lists("T").mid(1)) << none;
        // Of a team whose tasks' details are not fetched.
        QTest::newRow("tasks") << json("[{'id':'2192','tasks':" + many + "{'id':'1701'}]}]") << none;
        QTest::newRow("refusal") << lists("T") << json("{'status':'no','message':'%1'}", words);
    }

    void hugeTexts()
    {
        QFETCH(QByteArray, lists);
        QFETCH(QByteArray, details);
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.orvana()->changeTask(lists.contains("2192") ? s("2192") : s("17"), kTask);
        QVERIFY(bench.openWindow());
        qint64 longestStall = 0;
        qint64 lastTick = processorTime();
        const auto measure = [&] {
            const qint64 now = processorTime();
            longestStall = qMax(longestStall, now - lastTick);
            lastTick = now;
        };
        QTimer tick;
        connect(&tick, &QTimer::timeout, this, measure);
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
        for (QComboBox *box : chooser->findChildren<QComboBox *>()) {
            box->showPopup();
            QCoreApplication::processEvents();
            box->hidePopup();
        }
        bench.child<QPushButton>("pbTaskList")->click();
        QVERIFY(bench.refresh()); // while both are seen
        chooser->reject();
        TaskDescriptionForm description(kTask, bench.orvana(), bench.form->findChild<TaskListForm *>(),
                                        nullptr);
        description.show();
        QVERIFY(QTest::qWaitForWindowExposed(&description));
        description.on_pbCopyrightTasks_clicked();
        QVERIFY(bench.settle());
        QVERIFY(description.findChildren<QWidget *>().size() < 200);

        bench.form->sendActivity(true);
        QTRY_COMPARE(bench.server().reports().size(), 1);
        measure();
        QVERIFY2(longestStall < kLongestStall, qPrintable(QString::number(longestStall)));
    }
};

QTEST_MAIN(TestWindowFaults)
#include "tst_windowfaults.moc"
