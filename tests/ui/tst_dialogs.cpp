#include "rows.h"
#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "update/orvanaupdate.h"
#include "urlcatcher.h"
#include "windowbench.h"
#include "windowparts.h"

namespace {

// Acts on the dialog that the next call opens and waits for.
template <typename Action>
void whenOpen(QObject *context, Action action)
{
    QTimer::singleShot(0, context, [action] {
        auto *form = qobject_cast<CalendarForm *>(QApplication::activeModalWidget());
        QVERIFY(form);
        action(form);
        form->reject();
    });
}

} // namespace

class DialogsTest final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { WindowBench::applyStyle(); }

    void calendarMovesByItsArrowsOnly()
    {
        CalendarForm form(nullptr);
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        auto *calendar = form.findChild<QCalendarWidget *>();
        calendar->setCurrentPage(2024, 1);
        QCOMPARE(part<QToolButton>(&form, "qt_calendar_monthbutton")->text().toLower(), s("январь"));
        for (const char *name : {"qt_calendar_monthbutton", "qt_calendar_yearbutton"}) {
            click(part(&form, name));
            QVERIFY(!QApplication::activePopupWidget() && part(&form, name)->isVisible());
        }
        click(part(&form, "qt_calendar_prevmonth"));
        QCOMPARE(QDate(calendar->yearShown(), calendar->monthShown(), 1), QDate(2023, 12, 1));
    }

    void deadlineRequest()
    {
        WindowBench bench;
        QVERIFY(bench.openFor(s("1701")));
        QPointer<CalendarForm> opened;
        for (const bool changesMind : {true, false}) {
            whenOpen(bench.form.get(), [&](CalendarForm *form) {
                opened = form;
                form->findChild<QCalendarWidget *>()->setSelectedDate(QDate(2031, 5, 7));
                form->findChild<QTimeEdit *>()->setTime(QTime(18, 30));
                auto *reason = part<QPlainTextEdit>(form, "reasonTextEdit");
                for (const char *missing : {"", " \n\t \n"}) {
                    WindowBench::dropPopups();
                    reason->setPlainText(s(missing));
                    click(button(form, s("Ок")));
                    QCOMPARE(WindowBench::popupTexts(), texts({"Введите причину переноса!"}));
                    QVERIFY(form->isVisible());
                }
                reason->setPlainText(s("  жду & жду\n"));
                if (changesMind)
                    QTest::keyClick(form, Qt::Key_Escape);
                else
                    click(button(form, s("Ок")));
                QVERIFY(!form->isVisible());
            });
            click(bench.child<QWidget>("pbTimeExtend"));
            QTRY_VERIFY(opened.isNull());
            QVERIFY(bench.settle());
        }
        const auto sent = bench.server().deadlineRequests();
        QCOMPARE(sent.size(), 1);
        QCOMPARE((QStringList{sent[0].taskId, sent[0].date, sent[0].time, sent[0].message}),
                 texts({"1701", "2031-05-07", "18:30", "  жду & жду\n"}));

        // Work that is on no list has no deadline, and the exempt team's is not moved.
        for (const auto &choice : {texts({"17", "0"}), texts({"2192", "21922"})}) {
            bench.orvana()->changeTask(choice.first(), choice.last());
            WindowBench::dropPopups();
            QTimer::singleShot(0, bench.form.get(), [] {
                if (QWidget *dialog = QApplication::activeModalWidget()) {
                    dialog->close();
                    QFAIL("the calendar was opened");
                }
            });
            click(bench.child<QWidget>("pbTimeExtend"));
            QVERIFY(WindowBench::popupTexts().contains(
                s("Для данной задачи невозможно выполнить перенос дедлайна.")));
        }
    }

    void about()
    {
        TestClient client;
        QCoreApplication::setApplicationVersion(s("1.1.0"));
        OrvanaUpdate::instance()->init(client.orvana.get());
        AboutForm about(client.orvana.get(), nullptr);
        const auto *info = part<QLabel>(&about, "lbUpdateInfo");
        const std::pair<QStringList, const char *> answers[] = {
            {{s("1.2.0")}, "Доступно обновление 1.2.0"},
            {{s("1.1.0")}, "Установлена последняя версия"},
            {{}, "Установлена последняя версия"}};
        for (const auto &[versions, text] : answers) {
            client.server.edit([&](localservice::World &world) { world.setVersions(versions); });
            about.update();
            QCOMPARE(info->text(), s("Проверка обновления..."));
            QTRY_COMPARE(info->text(), s(text));
        }
        client.server.stop();
        QSignalSpy offline(client.orvana.get(), &Orvana::onlineChanged);
        about.update();
        QVERIFY(offline.wait());
        QCOMPARE(info->text(), s("Проверка обновления..."));

        const UrlCatcher catcher;
        about.show();
        QVERIFY(QTest::qWaitForWindowActive(&about));
        auto *link = part(&about, "lbUrl");
        click(link);
        QTest::keyClick(&about, Qt::Key_Tab);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        QCOMPARE(catcher.opened, QStringList({client.server.baseUrl(), client.server.baseUrl()}));
        QTest::keyClick(&about, Qt::Key_Escape);
        QVERIFY(!about.isVisible());
    }
};

QTEST_MAIN(DialogsTest)
#include "tst_dialogs.moc"
