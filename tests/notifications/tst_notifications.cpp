#include "app/application.h"
#include "popups.h"
#include "rows.h"
#include "windowparts.h"

#include <QGraphicsEffect>
#include <QScrollBar>

#include <memory>

namespace {

const QList<int> kOpening{TaskAdded, CommentAdded, TaskBlocked, TaskUnblocked, BlockingTaskAdded};
constexpr int kUnknown = 11;
constexpr int kWidth = 179;
constexpr int kHeight = 107;
const QPoint kOnText(90, 40); // where people click
const QRect kArea(40, 30, 700, 500); // four popups below a window of 60

class Host final : public NotificationHost
{
public:
    int notificationOffset() const override { return offset; }
    QRect notificationArea() const override { return area; }
    void updateNotificationState() override { ++changes; }
    void openTask(const QString &taskId) override { opened.append(taskId); }
    bool installUpdate() override
    {
        ++installs;
        return installed;
    }

    int offset = 60;
    QRect area = kArea;
    int changes = 0;
    QStringList opened;
    int installs = 0;
    bool installed = true;
};

QStringList shown()
{
    return textsOf(shownPopups());
}

NotificationForm *popup(const QString &text)
{
    return shownPopups().value(shown().indexOf(text));
}

QPoint slot(int position)
{
    return QPoint(kArea.x() + kArea.width() - kWidth, kArea.y() + 60 + position * kHeight);
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
    const QStringList list = letters(text);
    for (const QString &letter : list)
        add(letter);
}

} // namespace

class TestNotifications final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerResources(); }

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
        QVERIFY(!manager()->hasVisibleNotifications());
        QTRY_VERIFY(popupForms().isEmpty());
    }

    void messages_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("button");
        for (int kind = 0; kind <= kUnknown; ++kind) {
            for (const int button : {Qt::LeftButton, Qt::RightButton})
                QTest::addRow("%d %d", kind, button) << kind << button;
        }
    }

    void messages()
    {
        QFETCH(int, kind);
        QFETCH(int, button);
        const QString text = s("<b>Отчёт</b> %1 & \"всё\"");
        const auto type = static_cast<NotificationType>(kind);
        const bool opensTask = kOpening.contains(kind);
        add(text, type, s("a/b=1"));
        NotificationForm *form = shownPopups().constFirst();
        // Markup is shown, not followed.
        QVERIFY2(shown().constFirst().contains(text), qPrintable(shown().constFirst()));
        QCOMPARE(shown().constFirst() == text, kind == Plain || kind == kUnknown);
        QCOMPARE(form->pos(), slot(0));
        QCOMPARE(form->isPermanentNotification(), opensTask || type == TeamAdded || type == UpdateAvailable);
        QTest::mouseClick(form->windowHandle(), Qt::MouseButton(button), {}, kOnText);
        QCOMPARE(form->isClosing(), type != UpdateAvailable);
        QCOMPARE(m_host->opened, opensTask && button == Qt::LeftButton ? texts({"a/b=1"}) : QStringList());
    }

    void input_data()
    {
        addColumns<int, QString, QString, QString>("type", "id", "steps", "outcome");
        const auto row = [](const char *name, int type, const char *id, const char *steps,
                            const char *outcome) {
            QTest::newRow(name) << type << s(id) << s(steps) << s(outcome);
        };
        row("Esc", TaskAdded, "7", "Esc", "closes");
        row("Enter", TaskAdded, "7", "Tab Enter", "closes, opens 7");
        row("Enter, no id", TaskAdded, "", "Tab Enter", "closes");
        row("Space after Tab", UpdateAvailable, "7", "Tab Space", "closes");
        row("Space after a click", UpdateAvailable, "7", "left Space", "closes, installs");
        // Typed for another window, when the window manager had just moved the focus.
        row("stray Enter", TaskAdded, "7", "Enter", "stays");
        row("stray Space", UpdateAvailable, "7", "Space", "stays");
        row("next to the buttons", UpdateAvailable, "7", "left", "stays");
        row("update", UpdateAvailable, "7", "Обновить", "closes, installs");
        row("update refused", UpdateAvailable, "7", "refuse Обновить", "stays, installs");
        row("later", UpdateAvailable, "7", "Позже", "closes");
        // A popup that fades out does nothing more.
        row("updated already", UpdateAvailable, "7", "Обновить Позже Обновить Space", "closes, installs");
        row("put off already", UpdateAvailable, "7", "Позже Обновить Space", "closes");
        row("closed already", TaskAdded, "7", "right left Enter Esc", "closes");
    }

    void input()
    {
        static const QMap<QString, Qt::Key> keys{{s("Esc"), Qt::Key_Escape},
                                                 {s("Enter"), Qt::Key_Enter},
                                                 {s("Tab"), Qt::Key_Tab},
                                                 {s("Space"), Qt::Key_Space}};
        QFETCH(int, type);
        QFETCH(QString, id);
        QFETCH(QString, steps);
        add(s("t"), static_cast<NotificationType>(type), id);
        NotificationForm *form = shownPopups().constFirst();
        QSignalSpy closed(form, &NotificationForm::notificationClosed);
        form->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(form));
        const QGraphicsEffect *fade = nullptr;
        for (const QString &step : steps.split(QLatin1Char(' '))) {
            if (step == s("refuse"))
                m_host->installed = false;
            else if (keys.contains(step))
                QTest::keyClick(form->windowHandle(), keys.value(step));
            else if (QPushButton *target = button(form, step))
                click(target);
            else
                QTest::mouseClick(form->windowHandle(), step == s("left") ? Qt::LeftButton : Qt::RightButton,
                                  {}, kOnText);
            fade = fade ? fade : form->graphicsEffect();
        }
        QString outcome = form->isClosing() ? s("closes") : s("stays");
        if (!m_host->opened.isEmpty())
            outcome += s(", opens ") + m_host->opened.join(QLatin1Char(' '));
        outcome += s(", installs").repeated(m_host->installs);
        QTEST(outcome, "outcome");
        QCOMPARE(form->graphicsEffect(), fade); // it does not start again
        QVERIFY(!form->isClosing() || (closed.wait() && closed.count() == 1));
    }

    void onlySomeKindsGoAway()
    {
        m_host->area.setHeight(2000);
        add(s("again"));
        NotificationForm *again = popup(s("again"));
        QStringList staying;
        QStringList unread;
        const QMap<int, int> words{{Plain, 30}, {TeamLeft, 400}, {DeadlineChanged, 15}};
        for (int kind = Plain; kind <= BlockingTaskAdded; ++kind) {
            const auto type = static_cast<NotificationType>(kind);
            const QString text = s("слово ").repeated(words.value(kind)) + QString::number(kind);
            add(text, type);
            const NotificationForm *form = shownPopups().last();
            if (form->isPermanentNotification()) {
                staying.append(NotificationForm::getMessage(text, type));
                continue;
            }
            // The end is reached before the popup goes.
            const QScrollBar *bar = form->findChild<AutoScrollLineEdit *>()->verticalScrollBar();
            if (bar->maximum() == 0)
                continue;
            unread.append(text);
            connect(bar, &QScrollBar::valueChanged, this, [&unread, text, bar, form, again](int value) {
                if (value != bar->maximum() || form->isClosing() || !unread.removeOne(text)
                    || !unread.isEmpty())
                    return;
                // Shown again after most of its time, a popup has all of it once more.
                again->hide();
                again->show();
            });
        }
        QCOMPARE(shown().size(), 12);
        QVERIFY(!unread.isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(shown(), QStringList(s("again")) + staying, 10000);
        QCOMPARE(unread, QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(shown(), staying, 10000);
    }

    void gapsCloseAndOverflowWaits()
    {
        addLetters("abcdefg");
        QCOMPARE(shown(), letters("abcd"));
        NotificationForm *last = popup(s("d"));
        QCOMPARE(last->pos(), slot(3));
        QTest::mouseClick(popup(s("b")), Qt::RightButton);
        QCOMPARE(last->pos(), slot(3)); // not before the fade is over
        QTRY_COMPARE(shown(), letters("acde"));
        QTRY_COMPARE(last->pos(), slot(2));
        popup(s("a"))->close(); // as a window manager does
        QTest::mouseClick(popup(s("e")), Qt::RightButton);
        QTRY_COMPARE(shown(), letters("cdfg"));
        QCOMPARE(popup(s("g"))->pos(), slot(3));
        m_host->offset = 0;
        manager()->repaint();
        QTRY_COMPARE(popup(s("d"))->pos(), slot(1) - QPoint(0, 60));
    }

    void newestUpdateOnly()
    {
        addLetters("a");
        add(s(" 1.2"), UpdateAvailable);
        addLetters("b");
        for (const char *version : {" 1.3", " 1.4"}) {
            add(s(version), UpdateAvailable);
            manager()->restoreAll();
            QCOMPARE(shown().filter(s("Orvana Team")),
                     QStringList(s("Доступно новое обновление Orvana Team") + s(version)));
            QTRY_COMPARE(popupForms().size(), 3);
            QTRY_VERIFY(shownPopups().size() == 3 && shownPopups().constFirst()->pos() == slot(0)
                        && shownPopups().last()->pos() == slot(2));
            manager()->hideAll(); // the next one also replaces one that is hidden
        }
    }

    void hiddenOnesComeBack()
    {
        addLetters("abc");
        QVERIFY(manager()->hasShownNotifications());
        manager()->toggleVisible();
        QVERIFY(shown().isEmpty());
        QVERIFY(manager()->hasVisibleNotifications() && !manager()->hasShownNotifications());
        addLetters("d");
        QCOMPARE(shown(), letters("d"));
        QTRY_COMPARE(popup(s("d"))->pos(), slot(0));
        manager()->restoreAll();
        QCOMPARE(shown(), letters("dabc"));
        QTRY_COMPARE(popup(s("c"))->pos(), slot(3));
        manager()->toggleVisible();
        manager()->toggleVisible();
        QCOMPARE(shown(), letters("dabc"));
        m_host->changes = 0;
        manager()->destroy();
        QVERIFY(shown().isEmpty() && !manager()->hasVisibleNotifications());
        QVERIFY(m_host->changes > 0);
    }

    void fadingOnesAreNotHidden()
    {
        addLetters("ab");
        popup(s("b"))->closeNotification();
        manager()->hideAll();
        QCOMPARE(shown(), letters("b"));
        // When it is gone, the one that waits takes its place.
        QTRY_COMPARE(shown(), letters("a"));
        QTRY_COMPARE(popup(s("a"))->pos(), slot(0));
        // Nothing fits any more.
        m_host->area.setHeight(kHeight);
        addLetters("c");
        QVERIFY(manager()->hasVisibleNotifications() && shown() == letters("a"));
    }

    void hostComesAndGoes()
    {
        manager()->setMainForm(nullptr);
        add(s("a"), TaskAdded, s("7"));
        NotificationForm *form = popup(shown().constFirst());
        manager()->setMainForm(m_host.get());
        QVERIFY(m_host->changes > 0);
        QCOMPARE(form->pos(), slot(0));
        manager()->setMainForm(nullptr);
        QTest::mouseClick(form, Qt::LeftButton);
        QVERIFY(m_host->opened.isEmpty());
        QTRY_VERIFY(shown().isEmpty());
        manager()->repaint();
    }

    // Those that are shown and the latest stay.
    void floodIsBounded()
    {
        constexpr int count = 100000;
        for (int i = 0; i < count; ++i)
            add(QString::number(i));
        QCOMPARE(shown(), letters("0123"));
        // The rest are words without windows.
        QCOMPARE(popupForms().size(), 4);
        QCOMPARE(m_host->changes, 4);
        manager()->hideForm(shownPopups().constFirst());
        QCOMPARE(shown().last(), QString::number(count - 1000));
    }

private:
    static NotificationManager *manager() { return NotificationManager::instance(); }

    std::unique_ptr<Host> m_host;
};

QTEST_MAIN(TestNotifications)
#include "tst_notifications.moc"
