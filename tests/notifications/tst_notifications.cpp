#include "app/application.h"
#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"
#include "notifications/notificationmanager.h"
#include "rows.h"
#include "ui/autoscrolllineedit.h"

#include <QGraphicsOpacityEffect>
#include <QMap>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <memory>

namespace {

constexpr int kWidth = 179;
constexpr int kHeight = 107;
const QRect kArea(40, 30, 700, 500); // four popups below a window of 60
const NotificationType kAllKinds[] = {Plain,       TeamAdded,     TeamLeft,         TaskAdded,
                                      TaskGone,    CommentAdded,  UpdateAvailable,  DeadlineChanged,
                                      TaskBlocked, TaskUnblocked, BlockingTaskAdded};

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

QList<NotificationForm *> all()
{
    QList<NotificationForm *> found;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (auto *popup = qobject_cast<NotificationForm *>(window))
            found.append(popup);
    }
    return found;
}

QString textOf(const NotificationForm *popup)
{
    return popup->findChild<AutoScrollLineEdit *>(s("leMessage"))->toPlainText();
}

// Those on the screen by their texts, from the top down.
QStringList shown()
{
    QMap<int, QString> bySlot;
    const QList<NotificationForm *> popups = all();
    for (const NotificationForm *popup : popups) {
        if (popup->isVisible())
            bySlot.insert(popup->getPosition(), textOf(popup));
    }
    return bySlot.values();
}

NotificationForm *popup(const QString &text)
{
    const QList<NotificationForm *> popups = all();
    for (NotificationForm *candidate : popups) {
        if (candidate->isVisible() && textOf(candidate) == text)
            return candidate;
    }
    return nullptr;
}

QPoint slot(int position)
{
    return QPoint(kArea.x() + kArea.width() - kWidth, kArea.y() + 60 + position * kHeight);
}

QList<int> tops()
{
    QList<int> found;
    const QList<NotificationForm *> popups = all();
    for (const NotificationForm *form : popups) {
        if (form->isVisible())
            found.append(form->y());
    }
    std::sort(found.begin(), found.end());
    return found;
}

void add(const QString &text, NotificationType type = Plain, const QString &taskId = QString())
{
    NotificationManager::instance()->addNotification(text, type, taskId);
}

QStringList letters(const char *text)
{
    return QString::fromLatin1(text).split(QString(), Qt::SkipEmptyParts);
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
        QTRY_VERIFY(all().isEmpty());
    }

    void messages_data()
    {
        addColumns<int, QString, bool, bool>("kind", "message", "stays", "opensTask");
        const struct
        {
            int kind;
            const char *message;
            bool stays;
            bool opensTask;
        } rows[] = {
            {0, "%1", false, false},
            {1, "Добавлена новая команда \"%1\"", true, false},
            {2, "Вы больше не являетесь членом команды \"%1\"", false, false},
            {3, "Добавлена новая задача \"%1\"", true, true},
            {4, "Задача \"%1\" более недоступна", false, false},
            {5, "К задаче \"%1\" добавлен новый комментарий", true, true},
            {6, "Доступно новое обновление Orvana Team%1", true, false},
            {7, "Дедлайн задачи \"%1\" был изменён", false, false},
            {8, "Задача \"%1\" помечена как блокирующая", true, true},
            {9, "Задача \"%1\" более не является блокирующей", true, true},
            {10, "Добавлена новая блокируюшая задача \"%1\"", true, true},
            {11, "%1", false, false},
            {-1, "%1", false, false},
        };
        for (const auto &row : rows)
            QTest::addRow("kind %d", row.kind)
                << row.kind << QString::fromUtf8(row.message) << row.stays << row.opensTask;
    }

    void messages()
    {
        QFETCH(int, kind);
        QFETCH(QString, message);
        const auto type = static_cast<NotificationType>(kind);
        const QString text = s("<b>Отчёт</b> %1 & \"всё\"");
        message.replace(QLatin1String("%1"), text);
        QCOMPARE(NotificationForm::getMessage(text, type), message);
        add(text, type);
        // Markup is shown, not followed.
        QCOMPARE(shown(), QStringList{message});
        const NotificationForm *form = popup(message);
        QCOMPARE(form->pos(), slot(0));
        QTEST(form->isPermanentNotification(), "stays");
        QTEST(form->isTaskNotify(), "opensTask");
        const QRect box = form->findChild<QWidget *>(s("leMessage"))->geometry();
        QCOMPARE(box, QRect(10, 20, 161, type == UpdateAvailable ? 40 : 70));
        int buttons = 0;
        const auto children = form->findChildren<QPushButton *>(s("pbOrvana"));
        for (const QPushButton *button : children)
            buttons += button->isVisible() ? 1 : 0;
        QCOMPARE(buttons, type == UpdateAvailable ? 2 : 0);
    }

    void onlySomeKindsGoAway()
    {
        m_host->area.setHeight(2000);
        QStringList staying;
        for (const NotificationType kind : kAllKinds) {
            add(QString::number(kind), kind);
            if (popup(NotificationForm::getMessage(QString::number(kind), kind))->isPermanentNotification())
                staying.append(NotificationForm::getMessage(QString::number(kind), kind));
        }
        QCOMPARE(shown().size(), 11);
        QTRY_COMPARE_WITH_TIMEOUT(shown(), staying, 10000);
    }

    void gapCloses()
    {
        addLetters("abc");
        QCOMPARE(shown(), letters("abc"));
        QCOMPARE(m_host->changes, 3);
        NotificationForm *last = popup(s("c"));
        QTest::mouseClick(popup(s("b")), Qt::LeftButton);
        QCOMPARE(last->pos(), slot(2)); // not before the fade is over
        QTRY_COMPARE(last->pos(), slot(1));
        QCOMPARE(last->getPosition(), 1);
        QCOMPARE(shown(), letters("ac"));
    }

    void overflowWaits()
    {
        addLetters("abcdefg");
        QCOMPARE(shown(), letters("abcd"));
        QCOMPARE(popup(s("d"))->pos(), slot(3));
        QTest::mouseClick(popup(s("b")), Qt::RightButton);
        QTRY_COMPARE(shown(), letters("acde"));
        QTest::mouseClick(popup(s("a")), Qt::RightButton);
        QTest::mouseClick(popup(s("e")), Qt::RightButton);
        QTRY_COMPARE(shown(), letters("cdfg"));
        QCOMPARE(popup(s("g"))->pos(), slot(3));
    }

    void newestUpdateOnly_data()
    {
        QTest::addColumn<bool>("hiddenBefore");
        QTest::newRow("shown") << false;
        QTest::newRow("hidden") << true;
    }

    void newestUpdateOnly()
    {
        QFETCH(bool, hiddenBefore);
        addLetters("a");
        add(s(" 1.2"), UpdateAvailable);
        addLetters("b");
        if (hiddenBefore)
            manager()->hideAll();
        add(s(" 1.3"), UpdateAvailable);
        manager()->restoreAll();
        QStringList updates = shown().filter(s("Orvana Team"));
        QCOMPARE(updates, QStringList{s("Доступно новое обновление Orvana Team 1.3")});
        QCOMPARE(shown().size(), 3);
        QTRY_COMPARE(all().size(), 3);
        QTRY_COMPARE(tops(), (QList<int>{slot(0).y(), slot(1).y(), slot(2).y()}));
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
        addLetters("abc");
        popup(s("b"))->closeNotification();
        manager()->hideAll();
        QCOMPARE(shown(), letters("b"));
        // When it is gone, the first that waits takes its place.
        QTRY_COMPARE(shown(), letters("a"));
        QTRY_COMPARE(popup(s("a"))->pos(), slot(0));
    }

    void clicks_data()
    {
        addColumns<int, QString, int, bool>("kind", "taskId", "input", "opens"); // a mouse button or a key
        const QString id = s("a/b=1");
        for (const NotificationType kind : kAllKinds) {
            if (kind == UpdateAvailable)
                continue;
            const bool isTask = kind == TaskAdded || kind == CommentAdded || kind >= TaskBlocked;
            QTest::addRow("%d left", kind) << int(kind) << id << int(Qt::LeftButton) << isTask;
            QTest::addRow("%d right", kind) << int(kind) << id << int(Qt::RightButton) << false;
        }
        QTest::newRow("no id") << int(TaskAdded) << QString() << int(Qt::LeftButton) << false;
        QTest::newRow("middle") << int(TaskAdded) << id << int(Qt::MiddleButton) << false;
        QTest::newRow("Enter") << int(TaskAdded) << id << int(Qt::Key_Enter) << true;
        QTest::newRow("Esc") << int(TaskAdded) << id << int(Qt::Key_Escape) << false;
    }

    void clicks()
    {
        QFETCH(int, kind);
        QFETCH(QString, taskId);
        QFETCH(int, input);
        QFETCH(bool, opens);
        const QString text = s("t");
        add(text, static_cast<NotificationType>(kind), taskId);
        NotificationForm *form =
            popup(NotificationForm::getMessage(text, static_cast<NotificationType>(kind)));
        QSignalSpy closed(form, &NotificationForm::notificationClosed);
        if (input >= Qt::Key_Escape)
            QTest::keyClick(form, static_cast<Qt::Key>(input));
        else // on the words, where people click
            QTest::mouseClick(form->windowHandle(), static_cast<Qt::MouseButton>(input), {}, QPoint(90, 50));
        QVERIFY(form->isClosing());
        QCOMPARE(m_host->opened, opens ? QStringList{taskId} : QStringList());
        QVERIFY(closed.wait());
        QVERIFY(!manager()->hasVisibleNotifications());
    }

    void updateButtons_data()
    {
        addColumns<QString, bool, int, bool>("button", "installed", "installs", "closes");
        QTest::newRow("install") << s("Обновить") << true << 1 << true;
        QTest::newRow("nothing to install") << s("Обновить") << false << 1 << false;
        QTest::newRow("later") << s("Позже") << true << 0 << true;
        QTest::newRow("beside the buttons") << QString() << true << 0 << false;
    }

    void updateButtons()
    {
        QFETCH(QString, button);
        QFETCH(bool, installed);
        m_host->installed = installed;
        add(s(" 2.0"), UpdateAvailable, s("1"));
        NotificationForm *form = popup(shown().constFirst());
        QWidget *target = form;
        const auto buttons = form->findChildren<QPushButton *>();
        for (QPushButton *candidate : buttons) {
            if (candidate->text() == button)
                target = candidate;
        }
        QCOMPARE(target == form, button.isEmpty());
        QTest::mouseClick(target, Qt::LeftButton, {}, button.isEmpty() ? QPoint(90, 40) : QPoint());
        QTEST(m_host->installs, "installs");
        QTEST(form->isClosing(), "closes");
        QVERIFY(m_host->opened.isEmpty());
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
        QTRY_VERIFY(all().isEmpty());
        QCOMPARE(closed.count(), 1);
    }

    void windowManagerCloses()
    {
        addLetters("abc");
        popup(s("a"))->close();
        QTRY_COMPARE(shown(), letters("bc"));
        QCOMPARE(popup(s("b"))->pos(), slot(0));
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

    void popupsFollowTheWindow()
    {
        addLetters("ab");
        m_host->offset = 0;
        manager()->repaint();
        QTRY_COMPARE(popup(s("b"))->pos(), slot(1) - QPoint(0, 60));
    }

    void nothingFits()
    {
        m_host->area.setHeight(kHeight);
        addLetters("a");
        QVERIFY(shown().isEmpty());
        QVERIFY(manager()->hasVisibleNotifications());
        QVERIFY(m_host->changes > 0);
        manager()->toggleVisible();
        QCOMPARE(shown(), letters("a"));
    }

    void hundredsStayCheap()
    {
        constexpr int count = 500;
        for (int i = 0; i < count; ++i)
            add(QString::number(i), TaskAdded, QString::number(i));
        QCOMPARE(all().size(), count);
        QCOMPARE(shown().size(), 4);
        int windows = 0;
        const QList<NotificationForm *> popups = all();
        for (const NotificationForm *form : popups)
            windows += form->children().isEmpty() ? 0 : 1;
        QCOMPARE(windows, 4);
        QCOMPARE(m_host->changes, 4);
        manager()->hideForm(popups.constFirst());
        QCOMPARE(shown().size(), 4);
    }

private:
    static NotificationManager *manager() { return NotificationManager::instance(); }

    std::unique_ptr<Host> m_host;
};

QTEST_MAIN(TestNotifications)
#include "tst_notifications.moc"
