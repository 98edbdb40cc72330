#include "app/application.h"
#include "realinput.h"
#include "rows.h"
#include "ui/accessiblecontrols.h"
#include "windowparts.h"

namespace {

const QList<int> kOpening{TaskAdded, CommentAdded, TaskBlocked, TaskUnblocked, BlockingTaskAdded};
const QSize kSize(179, 107);
const QPoint kMessage(90, 40);
const QRect kArea(40, 30, 700, 500); // four popups below a window of 60

class Host final : public NotificationHost
{
public:
    int notificationOffset() const override { return 60; }
    QRect notificationArea() const override { return area; }
    void updateNotificationState() override { ++changes; }
    void openTask(const QString &taskId) override { done += s(", opens ") + taskId; }
    bool installUpdate() override
    {
        done += s(", installs");
        return true;
    }

    QRect area = kArea;
    int changes = 0;
    QString done;
};

NotificationForm *popup(const QString &text)
{
    return shownPopups().value(popupTexts().indexOf(text));
}

QPoint slot(int position)
{
    return QPoint(kArea.x() + kArea.width() - kSize.width(), kArea.y() + 60 + position * kSize.height());
}

void add(const QString &text, NotificationType type = Plain, const QString &taskId = QString())
{
    NotificationManager::instance()->addNotification(text, type, taskId);
}

QStringList letters(const char *text)
{
    return s(text).split(QString(), Qt::SkipEmptyParts);
}

void addLetters(const char *text)
{
    for (const QString &letter : letters(text))
        add(letter);
}

} // namespace

class TestNotifications final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        registerResources();
        installAccessibleControls();
    }

    void init()
    {
        m_host = std::make_unique<Host>();
        manager()->setMainForm(m_host.get());
        m_host->changes = 0;
    }

    void cleanup()
    {
        manager()->destroy();
        manager()->setMainForm(nullptr);
        QTRY_VERIFY(QApplication::topLevelWidgets().isEmpty());
    }

    void kinds()
    {
        // Without the main window, a click only closes.
        manager()->setMainForm(nullptr);
        add(s("a"), TaskAdded, s("7"));
        click(shownPopups().constFirst());
        QTRY_VERIFY(popupTexts().isEmpty());
        manager()->setMainForm(m_host.get());
        const QString text = s("<b>Отчёт</b> %1 & \"всё\"");
        for (int kind = 0; kind <= BlockingTaskAdded + 1; ++kind) {
            const auto type = static_cast<NotificationType>(kind);
            const bool opensTask = kOpening.contains(kind);
            m_host->done.clear();
            add(text, type, s("a/b=1"));
            NotificationForm *form = shownPopups().constFirst();
            // Markup is shown, not followed.
            QVERIFY2(popupTexts().constFirst().contains(text), qPrintable(popupTexts().constFirst()));
            QCOMPARE(popupTexts().constFirst() == text, kind == Plain || kind > BlockingTaskAdded);
            QCOMPARE(QAccessible::queryAccessibleInterface(form)->role(), QAccessible::AlertMessage);
            QCOMPARE(form->pos(), slot(0));
            QTest::mouseClick(form->windowHandle(), Qt::LeftButton, {}, kMessage);
            QCOMPARE(form->isClosing(), type != UpdateAvailable);
            QCOMPARE(m_host->done, opensTask ? s(", opens a/b=1") : QString());
            manager()->destroy();
        }
    }

    // With a popup of a task, or of an update.
    void input_data()
    {
        addRows({{"task right", "closes"},
                 {"task press", "closes, opens 7"}, // by a screen reader
                 {"task Esc", "closes"},
                 {"task Tab Enter", "closes, opens 7"},
                 {"update Tab Space", "closes"},
                 {"update left Space", "closes, installs"},
                 // Typed for another window, when the window manager had just moved the focus.
                 {"task Enter", "stays"},
                 {"update Space", "stays"},
                 {"update left elsewhere Space", "stays"},
                 // A popup that fades out does nothing more.
                 {"update Обновить Позже Обновить Space", "closes, installs"},
                 {"task right left Enter Esc press", "closes"}});
    }

    void input()
    {
        static const QMap<QString, Qt::Key> keys{{s("Esc"), Qt::Key_Escape},
                                                 {s("Enter"), Qt::Key_Enter},
                                                 {s("Tab"), Qt::Key_Tab},
                                                 {s("Space"), Qt::Key_Space}};
        QFETCH(QString, input);
        QStringList steps = input.split(QLatin1Char(' '));
        add(s("t"), steps.takeFirst() == s("task") ? TaskAdded : UpdateAvailable, s("7"));
        NotificationForm *form = shownPopups().constFirst();
        QSignalSpy closed(form, &NotificationForm::notificationClosed);
        // Until the window manager has finished: it may take the focus away and give it back.
        QVERIFY(activateWindow(QString::number(form->winId())));
        QVERIFY(QTest::qWaitForWindowActive(form));
        for (const QString &step : qAsConst(steps)) {
            if (step == s("press"))
                press(form);
            else if (step == s("elsewhere"))
                QApplication::setActiveWindow(nullptr);
            else if (keys.contains(step))
                QTest::keyClick(form->windowHandle(), keys.value(step));
            else if (QPushButton *target = button(form, step))
                click(target);
            else
                QTest::mouseClick(form->windowHandle(), step == s("left") ? Qt::LeftButton : Qt::RightButton,
                                  {}, kMessage);
            QCoreApplication::processEvents();
        }
        QTEST(QString((form->isClosing() ? s("closes") : s("stays")) + m_host->done), "result");
        QVERIFY(!form->isClosing() || (closed.wait() && closed.count() == 1));
    }

    void onlySomeKindsGoAway()
    {
        m_host->area.setHeight(2000);
        add(s("hidden"));
        const QPointer<NotificationForm> hidden = shownPopups().constFirst();
        const QList<int> going{Plain, TeamLeft, TaskGone, DeadlineChanged};
        QStringList staying;
        for (int kind = Plain; kind <= BlockingTaskAdded; ++kind) {
            add(s("слово ").repeated(100), static_cast<NotificationType>(kind));
            if (!going.contains(kind))
                staying.append(popupTexts().constLast());
        }
        // Shown again they have their time once more.
        manager()->hideAll();
        manager()->restoreAll();
        hidden->hide(); // its time stands still
        QCOMPARE(popupTexts().size(), going.size() + staying.size());
        // The end is reached before the popup goes.
        const auto *message = shownPopups().constFirst()->findChild<AutoScrollLineEdit *>();
        QVERIFY(message->overhang() > 0);
        QTRY_COMPARE(message->offset(), message->overhang());
        QTRY_COMPARE(popupTexts(), staying);
        QVERIFY(hidden && !hidden->isClosing());
    }

    void gapsCloseAndOverflowWaits()
    {
        addLetters("abcdefg");
        QCOMPARE(popupTexts(), letters("abcd"));
        NotificationForm *last = popup(s("d"));
        QTest::mouseClick(popup(s("b")), Qt::RightButton);
        QCOMPARE(last->pos(), slot(3)); // not before the fade is over
        QTRY_COMPARE(popupTexts(), letters("acde"));
        QTRY_COMPARE(last->pos(), slot(2));
        popup(s("a"))->close(); // as a window manager does
        QTest::mouseClick(popup(s("e")), Qt::RightButton);
        QTRY_COMPARE(popupTexts(), letters("cdfg"));
        QCOMPARE(popup(s("g"))->pos(), slot(3));
    }

    void newestUpdateOnly()
    {
        addLetters("a");
        for (const char *version : {" 1.2", " 1.3", " 1.4"}) {
            add(s(version), UpdateAvailable);
            manager()->restoreAll();
            QCOMPARE(popupTexts().filter(s("Orvana Team")),
                     QStringList(s("Доступно новое обновление Orvana Team") + s(version)));
            QTRY_COMPARE(QApplication::topLevelWidgets().size(), 2);
            manager()->hideAll(); // the next one also replaces one that is hidden
        }
    }

    void hiddenOnesComeBack()
    {
        addLetters("abcx");
        popup(s("x"))->closeNotification();
        manager()->toggleVisible();
        QCOMPARE(popupTexts(), letters("x"));
        // When the one that fades out is gone, one that waits takes its place.
        QTRY_COMPARE(popupTexts(), letters("a"));
        manager()->toggleVisible();
        QVERIFY(popupTexts().isEmpty() && manager()->hasVisibleNotifications());
        addLetters("d");
        QCOMPARE(popupTexts(), letters("d"));
        QTRY_COMPARE(popup(s("d"))->pos(), slot(0));
        manager()->restoreAll();
        QCOMPARE(popupTexts(), letters("dbca"));
        QTRY_COMPARE(popup(s("a"))->pos(), slot(3));
        m_host->changes = 0;
        manager()->destroy();
        QVERIFY(popupTexts().isEmpty() && m_host->changes > 0);
    }

    // Those that are shown, the latest and the offer of an update stay.
    void floodIsBounded()
    {
        constexpr int count = 100000;
        for (int i = 0; i < count; ++i)
            add(QString::number(i), i == 4 ? UpdateAvailable : Plain);
        QCOMPARE(popupTexts(), letters("0123"));
        // The rest are words without windows.
        QCOMPARE(QApplication::topLevelWidgets().size(), 4);
        QCOMPARE(m_host->changes, 4);
        manager()->hideForm(shownPopups().constFirst());
        QVERIFY(popupTexts().last().endsWith(s("Orvana Team4")));
        manager()->hideForm(shownPopups().constFirst());
        QCOMPARE(popupTexts().last(), QString::number(count - 199));
    }

private:
    static NotificationManager *manager() { return NotificationManager::instance(); }

    std::unique_ptr<Host> m_host;
};

QTEST_MAIN(TestNotifications)
#include "tst_notifications.moc"
