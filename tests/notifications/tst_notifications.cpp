#include "app/application.h"
#include "popups.h"
#include "rows.h"

#include <QElapsedTimer>
#include <QGraphicsOpacityEffect>
#include <QPushButton>
#include <QScrollBar>

#include <algorithm>
#include <memory>

namespace {

const QList<int> kOpening{TaskAdded, CommentAdded, TaskBlocked, TaskUnblocked, BlockingTaskAdded};
constexpr int kUnknown = 11;
constexpr int kWidth = 179;
constexpr int kHeight = 107;
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

    void messages()
    {
        const QString text = s("<b>Отчёт</b> %1 & \"всё\"");
        for (int kind = 0; kind <= kUnknown; ++kind) {
            const auto type = static_cast<NotificationType>(kind);
            const bool opensTask = kOpening.contains(kind);
            for (const auto button : {Qt::RightButton, Qt::LeftButton}) {
                m_host->opened.clear();
                add(text, type, s("a/b=1"));
                NotificationForm *form = shownPopups().constFirst();
                // Markup is shown, not followed.
                QVERIFY2(shown().constFirst().contains(text), qPrintable(shown().constFirst()));
                QCOMPARE(shown().constFirst() == text, kind == Plain || kind == kUnknown);
                QCOMPARE(form->pos(), slot(0));
                QCOMPARE(form->isPermanentNotification(),
                         opensTask || type == TeamAdded || type == UpdateAvailable);
                QSignalSpy closed(form, &NotificationForm::notificationClosed);
                // On the words, where people click.
                if (type == UpdateAvailable)
                    form->closeNotification();
                else
                    QTest::mouseClick(form->windowHandle(), button, {}, QPoint(90, 50));
                QVERIFY(form->isClosing());
                QCOMPARE(m_host->opened,
                         opensTask && button == Qt::LeftButton ? texts({"a/b=1"}) : QStringList());
                QVERIFY(closed.wait());
            }
        }
    }

    void keysAndMissingIds_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QList<int>>("keys"); // Select stands for a click on the text
        QTest::addColumn<QString>("outcome");
        const QString id = s("7");
        const auto row = [](const char *name, int type, const QString &task, const QList<int> &keys,
                            const char *outcome) { QTest::newRow(name) << type << task << keys << s(outcome); };
        row("Esc", TaskAdded, id, {Qt::Key_Escape}, "closes");
        row("Enter", TaskAdded, id, {Qt::Key_Tab, Qt::Key_Enter}, "closes, opens 7");
        row("Enter, no id", TaskAdded, QString(), {Qt::Key_Tab, Qt::Key_Enter}, "closes");
        row("Space after Tab", UpdateAvailable, id, {Qt::Key_Tab, Qt::Key_Space}, "closes");
        row("Space after a click", UpdateAvailable, id, {Qt::Key_Select, Qt::Key_Space}, "closes, installs");
        // Typed for another window, when the window manager had just moved the focus.
        row("stray Enter", TaskAdded, id, {Qt::Key_Enter}, "stays");
        row("stray Space", UpdateAvailable, id, {Qt::Key_Space}, "stays");
    }

    void keysAndMissingIds()
    {
        QFETCH(int, type);
        QFETCH(QString, id);
        QFETCH(QList<int>, keys);
        add(s("t"), static_cast<NotificationType>(type), id);
        NotificationForm *form = shownPopups().constFirst();
        form->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(form));
        for (const int key : keys) {
            if (key == Qt::Key_Select)
                QTest::mouseClick(form->windowHandle(), Qt::LeftButton, {}, QPoint(90, 40));
            else
                QTest::keyClick(form->windowHandle(), Qt::Key(key));
        }
        QString outcome = form->isClosing() ? s("closes") : s("stays");
        if (!m_host->opened.isEmpty())
            outcome += s(", opens ") + m_host->opened.join(QLatin1Char(' '));
        if (m_host->installs > 0)
            outcome += s(", installs");
        QTEST(outcome, "outcome");
    }

    void onlySomeKindsGoAway()
    {
        m_host->area.setHeight(2000);
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
            connect(bar, &QScrollBar::valueChanged, this, [&unread, text, bar, form](int value) {
                if (value == bar->maximum() && !form->isClosing())
                    unread.removeAll(text);
            });
        }
        QCOMPARE(shown().size(), 11);
        QVERIFY(!unread.isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(shown(), staying, 10000);
        QCOMPARE(unread, QStringList());
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
            const auto isTaken = [](int place) {
                const auto popups = popupForms();
                return std::any_of(popups.cbegin(), popups.cend(),
                                   [place](const auto *each) { return each->pos() == slot(place); });
            };
            QTRY_VERIFY(isTaken(0) && isTaken(1) && isTaken(2));
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

    void updateButtons()
    {
        const auto click = [this](const char *button, bool installed) {
            m_host->installed = installed;
            m_host->installs = 0;
            add(s(" 2.0"), UpdateAvailable, s("1"));
            NotificationForm *form = popup(shown().constFirst());
            QWidget *target = form;
            const auto buttons = form->findChildren<QPushButton *>();
            for (QPushButton *candidate : buttons)
                target = candidate->text() == s(button) ? candidate : target;
            QTest::mouseClick(target, Qt::LeftButton, {}, target == form ? QPoint(90, 40) : QPoint());
            return s("%1 %2").arg(m_host->installs).arg(form->isClosing() ? s("closes") : s("stays"));
        };
        QCOMPARE(click("next to the buttons", true), s("0 stays"));
        QCOMPARE(click("Обновить", false), s("1 stays"));
        QCOMPARE(click("Обновить", true), s("1 closes"));
        QCOMPARE(click("Позже", true), s("0 closes"));
        QVERIFY(m_host->opened.isEmpty());
        // While it fades, neither button does anything more.
        for (const char *first : {"Обновить", "Позже"}) {
            click(first, true);
            const int installed = m_host->installs;
            const auto buttons = shownPopups().last()->findChildren<QPushButton *>();
            for (QPushButton *button : buttons) {
                QTest::mouseClick(button, Qt::LeftButton);
                QTest::keyClick(button, Qt::Key_Space);
            }
            QCOMPARE(m_host->installs, installed);
        }
    }

    void fadeIgnoresInput()
    {
        const QString text = NotificationForm::getMessage(s("t"), TaskAdded);
        add(s("t"), TaskAdded, s("1"));
        NotificationForm *form = popup(text);
        QSignalSpy closed(form, &NotificationForm::notificationClosed);
        QTest::mouseClick(form, Qt::RightButton);
        const QGraphicsEffect *fade = form->graphicsEffect();
        QVERIFY(qobject_cast<const QGraphicsOpacityEffect *>(fade));
        QTest::mouseClick(form, Qt::LeftButton);
        QTest::keyClick(form, Qt::Key_Return);
        form->onPbLateClicked();
        QCOMPARE(form->graphicsEffect(), fade);
        QVERIFY(m_host->opened.isEmpty());
        QVERIFY(closed.wait());
        QTRY_VERIFY(popupForms().isEmpty());
        QCOMPARE(closed.count(), 1);
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

    // As many as the service likes to raise; those that were seen and the latest stay.
    void floodIsBounded()
    {
        constexpr int count = 100000;
        const auto message = [](int number) {
            return NotificationForm::getMessage(QString::number(number), TaskAdded);
        };
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < count; ++i)
            add(QString::number(i), TaskAdded, QString::number(i));
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(shown(), QStringList({message(0), message(1), message(2), message(3)}));
        // The rest are words without windows.
        QCOMPARE(popupForms().size(), 4);
        QCOMPARE(m_host->changes, 4);
        manager()->hideForm(shownPopups().constFirst());
        QCOMPARE(shown().last(), message(count - 1000));
    }

private:
    static NotificationManager *manager() { return NotificationManager::instance(); }

    std::unique_ptr<Host> m_host;
};

QTEST_MAIN(TestNotifications)
#include "tst_notifications.moc"
