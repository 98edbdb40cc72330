#include "rows.h"
#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "update/orvanaupdate.h"
#include "urlcatcher.h"
#include "windowbench.h"

#include <QCalendarWidget>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextCharFormat>
#include <QTimeEdit>
#include <QTimer>
#include <QToolButton>

namespace {

const QString kReason = s("reasonTextEdit");
const QString kLink = s("lbUrl");

QPushButton *button(const QWidget *window, const QString &text)
{
    const auto buttons = window->findChildren<QPushButton *>();
    const auto found = std::find_if(buttons.begin(), buttons.end(), [&text](const QPushButton *candidate) {
        return candidate->text() == text;
    });
    return found == buttons.end() ? nullptr : *found;
}

QToolButton *calendarButton(const QWidget *form, const char *name)
{
    return form->findChild<QToolButton *>(QString::fromLatin1(name));
}

void click(QWidget *widget)
{
    QTest::mouseClick(widget, Qt::LeftButton);
}

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

    void reasonIsNeeded_data()
    {
        addColumns<QString, bool>("typed", "accepted");
        QTest::newRow("nothing") << QString() << false;
        QTest::newRow("blanks and line breaks") << s(" \n\t \n") << false;
        QTest::newRow("one letter") << s("я") << true;
        QTest::newRow("blanks around are kept") << s("  жду ответа\n") << true;
    }

    void reasonIsNeeded()
    {
        QFETCH(QString, typed);
        QFETCH(bool, accepted);
        CalendarForm form(nullptr);
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        QSignalSpy spy(&form, &CalendarForm::accepted);
        form.findChild<QPlainTextEdit *>(kReason)->setPlainText(typed);
        click(button(&form, s("Ок")));
        QCOMPARE(spy.count(), accepted ? 1 : 0);
        QCOMPARE(form.isVisible(), !accepted);
        QCOMPARE(form.getReason(), typed);
        QCOMPARE(TestClient::popups().contains(s("Введите причину переноса!")), !accepted);
        NotificationManager::instance()->destroy();
    }

    void calendarMovesByItsArrowsOnly()
    {
        CalendarForm form(nullptr);
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        auto *calendar = form.findChild<QCalendarWidget *>();
        calendar->setCurrentPage(2024, 1);
        QCOMPARE(calendarButton(&form, "qt_calendar_monthbutton")->text().toLower(), s("январь"));
        for (const char *name : {"qt_calendar_monthbutton", "qt_calendar_yearbutton"}) {
            click(calendarButton(&form, name));
            QVERIFY(!QApplication::activePopupWidget());
            QVERIFY(calendarButton(&form, "qt_calendar_yearbutton")->isVisible());
        }
        click(calendarButton(&form, "qt_calendar_prevmonth"));
        QCOMPARE(calendar->monthShown(), 12);
        QCOMPARE(calendar->yearShown(), 2023);
        click(calendarButton(&form, "qt_calendar_nextmonth"));
        QCOMPARE(calendar->monthShown(), 1);

        // The style sheet must not win over the colours that code gives to the days.
        const QColor weekend(249, 156, 0);
        QCOMPARE(calendar->weekdayTextFormat(Qt::Saturday).foreground().color(), weekend);
        QCOMPARE(calendar->weekdayTextFormat(Qt::Sunday).foreground().color(), weekend);
        QVERIFY(calendar->weekdayTextFormat(Qt::Friday).foreground().color() != weekend);
        const QWidget *view = form.findChild<QWidget *>(s("qt_calendar_calendarview"));
        QCOMPARE(view->palette().color(QPalette::Active, QPalette::Base).alpha(), 0);
        QVERIFY(view->palette().color(QPalette::Disabled, QPalette::Text)
                != view->palette().color(QPalette::Active, QPalette::Text));
    }

    void deadlineRequest_data()
    {
        addColumns<QTime, QString>("time", "sentTime");
        QTest::newRow("end of the day") << QTime(23, 59) << QString();
        QTest::newRow("evening") << QTime(18, 30) << s("18:30");
    }

    void deadlineRequest()
    {
        QFETCH(QTime, time);
        QFETCH(QString, sentTime);
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.orvana()->changeTask(s("17"), s("1701"));
        QVERIFY(bench.openWindow());
        const QDate wished(2031, 5, 7);
        whenOpen(bench.form.get(), [&](CalendarForm *form) {
            form->findChild<QCalendarWidget *>()->setSelectedDate(wished);
            form->findChild<QTimeEdit *>()->setTime(time);
            form->findChild<QPlainTextEdit *>(kReason)->setPlainText(s("жду & жду"));
            click(button(form, s("Ок")));
        });
        click(bench.child<QPushButton>("pbTimeExtend"));
        QTRY_VERIFY(TestClient::popups().contains(s("Запрос на продление задачи успешно отправлен")));
        const auto sent = bench.server().requestsTo(s("/api_task_deadline_request"));
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().formValue(s("dl_date")), s("2031-05-07"));
        QCOMPARE(sent.first().formValue(s("dl_time")), sentTime);
        QCOMPARE(sent.first().formValue(s("message")), s("жду & жду"));
    }

    void cancelledRequestSendsNothing()
    {
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.orvana()->changeTask(s("17"), s("1701"));
        QVERIFY(bench.openWindow());
        QPointer<CalendarForm> opened;
        whenOpen(bench.form.get(), [&](CalendarForm *form) {
            opened = form;
            form->findChild<QPlainTextEdit *>(kReason)->setPlainText(s("передумал"));
            QTest::keyClick(form, Qt::Key_Escape);
        });
        click(bench.child<QPushButton>("pbTimeExtend"));
        QTRY_VERIFY(opened.isNull());
        QVERIFY(bench.refresh());
        QVERIFY(bench.server().requestsTo(s("/api_task_deadline_request")).isEmpty());
    }

    void unlistedWorkHasNoDeadline()
    {
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.orvana()->changeTask(s("17"), s("0"));
        QVERIFY(bench.openWindow());
        QTimer::singleShot(0, bench.form.get(), [] {
            if (QWidget *dialog = QApplication::activeModalWidget()) {
                dialog->close();
                QFAIL("the calendar was opened");
            }
        });
        click(bench.child<QPushButton>("pbTimeExtend"));
        QVERIFY(TestClient::popups().contains(s("Для данной задачи невозможно выполнить перенос дедлайна.")));
    }

    void updateCheck_data()
    {
        addColumns<QStringList, bool, QString>("versions", "reachable", "told");
        QTest::newRow("newer") << QStringList{s("1.2.0")} << true << s("Доступно обновление 1.2.0");
        QTest::newRow("same") << QStringList{s("1.1.0")} << true << s("Установлена последняя версия");
        QTest::newRow("none") << QStringList() << true << s("Установлена последняя версия");
        QTest::newRow("unreachable") << QStringList() << false << s("Проверка обновления...");
    }

    void updateCheck()
    {
        QFETCH(QStringList, versions);
        QFETCH(bool, reachable);
        QFETCH(QString, told);
        TestClient client;
        QCoreApplication::setApplicationVersion(s("1.1.0"));
        client.server.edit([&](localservice::World &world) { world.setVersions(versions); });
        OrvanaUpdate::instance()->init(client.orvana.get());
        if (!reachable)
            client.server.stop();
        AboutForm about(client.orvana.get(), nullptr);
        QSignalSpy answered(client.orvana.get(), &Orvana::updateAvailable);
        QSignalSpy offline(client.orvana.get(), &Orvana::onlineChanged);
        const QLabel *info = about.findChild<QLabel *>(s("lbUpdateInfo"));
        about.update();
        QCOMPARE(info->text(), s("Проверка обновления..."));
        if (reachable)
            QTRY_COMPARE(answered.count(), 1);
        else
            QTRY_VERIFY(offline.count() > 0);
        QCOMPARE(info->text(), told);
    }

    void aboutLink()
    {
        TestClient client;
        UrlCatcher catcher;
        AboutForm about(client.orvana.get(), nullptr);
        about.show();
        QVERIFY(QTest::qWaitForWindowActive(&about));
        auto *link = about.findChild<QLabel *>(kLink);
        click(link);
        QCOMPARE(catcher.opened, QStringList{client.server.baseUrl()});
        link->setFocus();
        QTest::keyClick(link, Qt::Key_Return);
        QCOMPARE(catcher.opened.size(), 2);
        QVERIFY(about.isVisible());
        QTest::keyClick(&about, Qt::Key_Escape);
        QVERIFY(!about.isVisible());
    }
};

QTEST_MAIN(DialogsTest)
#include "tst_dialogs.moc"
