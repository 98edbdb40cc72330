#include "base/programstart.h"
#include "scenes.h"
#include "widgets/autoscrolllineedit.h"
#include "widgets/scrolltext.h"

namespace {

constexpr int kPlacing = 2000; // ms
constexpr int kRounding = 1; // of a font's height where the scale is no whole number

template <typename... Kinds>
bool isOneOf(const QWidget *widget)
{
    return (qobject_cast<const Kinds *>(widget) || ...);
}

QString nameOf(const QWidget *widget)
{
    return QString::fromLatin1(widget->metaObject()->className()) + QLatin1Char(' ') + widget->objectName();
}

QString size(const QSize &size)
{
    return s("%1x%2").arg(size.width()).arg(size.height());
}

// Qt's own inner widgets, and rows that scroll in and out of sight.
bool isInner(const QWidget *widget)
{
    const QWidget *above = widget->parentWidget();
    return above
        && (isOneOf<QCalendarWidget, QAbstractScrollArea, QComboBox, QAbstractSpinBox>(above)
            || isInner(above));
}

// What a text needs, and where it is drawn; nothing for widgets that scroll or that elide what a
// user wrote, with the whole in a tool tip.
std::pair<QSize, QSize> neededAndGiven(const QWidget *widget)
{
    const auto *label = qobject_cast<const QLabel *>(widget);
    if (label && label->wordWrap())
        return {QSize(label->minimumSizeHint().width(), label->heightForWidth(label->width())),
                label->size()};
    if (label && !label->text().isEmpty())
        return {label->sizeHint(), label->size()};
    if (const auto *button = qobject_cast<const QPushButton *>(widget)) {
        QStyleOptionButton option;
        option.initFrom(button);
        option.text = button->text();
        const QRect face = button->style()->subElementRect(QStyle::SE_PushButtonContents, &option, button);
        return {button->fontMetrics().size(Qt::TextShowMnemonic, button->text()), face.size()};
    }
    if (isOneOf<QLineEdit, QComboBox, ScrollText>(widget))
        return {QSize(0, widget->fontMetrics().height()), widget->contentsRect().size()};
    return {};
}

bool isIconOnly(const QWidget *widget)
{
    const auto *button = qobject_cast<const QAbstractButton *>(widget);
    return button && button->text().isEmpty();
}

// Role, name, state, what a screen reader can do apart from focusing, and the captions.
QString spoken(QWidget *widget)
{
    QAccessibleInterface *control = QAccessible::queryAccessibleInterface(widget);
    QStringList words{QString::fromLatin1(qAccessibleRoleString(control->role())),
                      control->text(QAccessible::Name)};
    if (control->state().checkable)
        words.append(control->state().checked ? s("checked") : s("unchecked"));
    if (QAccessibleActionInterface *actions = control->actionInterface())
        words += actions->actionNames();
    words.removeAll(QAccessibleActionInterface::setFocusAction());
    const auto captions = control->relations(QAccessible::Label);
    for (const auto &caption : captions)
        words.append(s("of ") + caption.first->text(QAccessible::Name));
    return words.join(QLatin1Char('|'));
}

QStringList checkPlace(const QWidget *widget)
{
    const auto [needed, given] = neededAndGiven(widget);
    QStringList problems;
    if (needed.width() > given.width() || needed.height() > given.height() + kRounding)
        problems.append(nameOf(widget) + s(" needs ") + size(needed) + s(", has ") + size(given));
    const QWidget *parent = widget->parentWidget();
    // The window manager may still be placing a window; the rims that Qt has read meanwhile may be
    // nonsense for good.
    const auto isInside = [&] {
        return widget->isWindow() ? widget->screen()->geometry().contains(widget->geometry())
                                  : parent->rect().contains(widget->geometry());
    };
    if (!QTest::qWaitFor(isInside, kPlacing))
        problems.append(nameOf(widget) + s(" sticks out"));
    if (widget->isWindow())
        return problems;
    const auto siblings = parent->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    for (const QWidget *other : siblings) {
        if (other != widget && other->isVisible() && !other->isWindow()
            && other->geometry().intersects(widget->geometry()))
            problems.append(nameOf(widget) + s(" overlaps ") + nameOf(other));
    }
    return problems;
}

QStringList checkForScreenReaders(QWidget *widget)
{
    QStringList problems;
    const QAccessibleInterface *spoken = QAccessible::queryAccessibleInterface(widget);
    const bool isControl = widget->focusPolicy() != Qt::NoFocus || isIconOnly(widget);
    if (isControl && !widget->isWindow() && spoken->text(QAccessible::Name).isEmpty())
        problems.append(nameOf(widget) + s(" has no name for screen readers"));
    const bool isText = spoken->role() == QAccessible::StaticText || spoken->role() == QAccessible::Client;
    if ((widget->focusPolicy() & Qt::TabFocus) && isText && !isOneOf<QAbstractScrollArea>(widget))
        problems.append(nameOf(widget) + s(" takes the focus for nothing"));
    if (isIconOnly(widget) && widget->toolTip().isEmpty())
        problems.append(nameOf(widget) + s(" has no tool tip"));
    return problems;
}

QStringList checkMotion(QWidget *widget)
{
    const auto *line = qobject_cast<ScrollText *>(widget);
    const auto *message = qobject_cast<AutoScrollLineEdit *>(widget);
    const bool isNeeded = line ? line->sizeHint().width() > line->width()
                               : message && message->document()->size().height() > message->height();
    const bool moves = (line && line->isMoving()) || (message && message->isMoving());
    return moves && !isNeeded ? QStringList{nameOf(widget) + s(" moves though it fits")} : QStringList();
}

// A control that has the focus looks different.
QStringList checkFocus(QWidget *window)
{
    QStringList problems;
    for (QWidget *widget = window->nextInFocusChain(); widget != window;
         widget = widget->nextInFocusChain()) {
        if (!widget->isVisible() || !widget->isEnabled() || !(widget->focusPolicy() & Qt::TabFocus)
            || isInner(widget))
            continue;
        widget->clearFocus();
        const QImage before = widget->grab().toImage();
        if (!Stage::focus(widget))
            problems.append(nameOf(widget) + s(" takes no focus"));
        else if (widget->grab().toImage() == before)
            problems.append(nameOf(widget) + s(" does not show its focus"));
    }
    return problems;
}

} // namespace

class TestLook final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(qApp->devicePixelRatio() >= 1, "nothing is drawn smaller than its texts");
        WindowBench::applyStyle();
    }

    void images()
    {
        QDirIterator all(s(":/"), {s("*.png")}, QDir::Files, QDirIterator::Subdirectories);
        int count = 0;
        while (all.hasNext()) {
            const QString path = all.next();
            if (path.startsWith(s(":/qt-project.org")) || path.contains(s("@2x")))
                continue;
            const QImage fine(path.chopped(4) + s("@2x.png"));
            QVERIFY2(!fine.isNull() && fine.size() == QImage(path).size() * 2, qPrintable(path));
            ++count;
        }
        QVERIFY(count > 50);
    }

    void namedImages()
    {
        QStringList images;
        const QRegularExpression name(s(R"(:/(?:[\w-]+/)+[\w-]+\.png)"));
        QDirIterator sources(s(ORVANA_SOURCES), texts({"*.cpp", "*.ui", "*.qss"}), QDir::Files,
                             QDirIterator::Subdirectories);
        while (sources.hasNext()) {
            QFile source(sources.next());
            QVERIFY(source.open(QIODevice::ReadOnly));
            auto found = name.globalMatch(QString::fromUtf8(source.readAll()));
            while (found.hasNext())
                images.append(found.next().captured());
        }
        QVERIFY(images.size() > 50);
        // Put together in code.
        for (const char *button : {"pbPlay_Online", "pbPlay_Offline", "pbPause_Online", "pbPause_Offline"}) {
            for (const char *look : {"", "_hovered", "_hovered_clicked"})
                images.append(s(":/images/") + s(button) + s(look) + s(".png"));
        }
        for (const QString &image : qAsConst(images))
            QVERIFY2(QFile::exists(image), qPrintable(image));
    }

    void scene_data()
    {
        QTest::addColumn<int>("number");
        for (std::size_t i = 0; i < scenes().size(); ++i)
            QTest::newRow(scenes()[i].name) << static_cast<int>(i);
    }

    void scene()
    {
        QFETCH(int, number);
        Stage stage;
        const QWidgetList windows = scenes()[static_cast<std::size_t>(number)].open(stage);
        QVERIFY(!windows.isEmpty());
        QStringList problems;
        for (QWidget *window : windows) {
            QVERIFY(window && QTest::qWaitForWindowExposed(window));
            QWidgetList widgets = window->findChildren<QWidget *>();
            widgets.prepend(window);
            for (QWidget *widget : qAsConst(widgets)) {
                // A window's child windows are scenes of their own.
                if (widget->isVisible() && !isInner(widget) && widget->window() == window)
                    problems += checkPlace(widget) + checkForScreenReaders(widget) + checkMotion(widget);
            }
        }
        QWidget *last = windows.last();
        // Popups take no focus by themselves, lists and menus are Qt's.
        if (isOneOf<QDialog>(last) && !isOneOf<NotificationForm>(last)) {
            QVERIFY(QTest::qWaitForWindowActive(last));
            problems += checkFocus(last);
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    }

    void screenReaders_data()
    {
        QTest::addColumn<QString>("widget");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *scene, const char *widget, const char *expected) {
            QTest::newRow(scene) << QString::fromLatin1(widget) << QString::fromUtf8(expected);
        };
        row("main-no-task", "lbTask", "Button|Выбрать задачу|Press");
        row("main-stopped", "pbPlay", "CheckBox|Запись времени|unchecked|Toggle");
        row("main-running", "pbPlay", "CheckBox|Запись времени|checked|Toggle");
        row("main-stopped-hovered", "lbActivity", "Button|Сегодня: |Press");
        row("main-running-focused", "lbClock", "StaticText|00:00:00|of Сегодня: ");
        row("main-overdue-active-time", "lbOverdueTime", "StaticText|1д. *|of Просрочено:");
        row("login", "lbEmail", "EditableText|E-mail|of E-mail:");
        row("chooser", "cbTeam", "ComboBox|*|of Команда");
        row("calendar", "reasonTextEdit", "EditableText|Причина для переноса|of Причина для переноса:");
        row("description", "lbAttachmentsNumber", "StaticText|[0-9]");
        row("description-texts", "lbUrl", "Link|URL: https://*/*/*|Press");
        row("about", "lbUrl", "Link|Открыть https://*|Press");
        row("popups", "", "AlertMessage|К задаче *|Press");
        row("popups", "", "AlertMessage|Доступно новое обновление *9.9.9");
        row("popups", "leMessage", "StaticText|К задаче *");
    }

    void screenReaders()
    {
        QFETCH(QString, widget);
        QFETCH(QString, expected);
        const auto isAsked = [](const Scene &scene) {
            return qstrcmp(scene.name, QTest::currentDataTag()) == 0;
        };
        Stage stage;
        const QWidgetList windows = std::find_if(scenes().begin(), scenes().end(), isAsked)->open(stage);
        QVERIFY(!windows.isEmpty());
        QStringList heard;
        for (QWidget *window : windows) {
            if (QWidget *found = widget.isEmpty() ? window : window->findChild<QWidget *>(widget))
                heard.append(spoken(found));
        }
        const QRegularExpression pattern(QRegularExpression::wildcardToRegularExpression(expected));
        QVERIFY2(heard.indexOf(pattern) >= 0, qPrintable(heard.join(QLatin1Char('\n'))));
    }

    void screenReadersPress()
    {
        Stage stage;
        MainForm *form = stage.openMain(QString());
        WindowBench::press(stage.bench.child<QWidget>("lbActivity"));
        QTRY_COMPARE(stage.bench.child<QLabel>("lbActivity")->text(), s("Активного:"));
        WindowBench::press(stage.bench.child<QWidget>("lbTask"));
        QTRY_VERIFY(form->findChild<TaskForm *>()->isVisible());
        NotificationManager::instance()->addNotification(s("Новая команда"), TeamAdded, QString());
        WindowBench::press(shownPopups().constFirst());
        QTRY_VERIFY(WindowBench::popupTexts().isEmpty());
    }
};

int main(int argc, char *argv[])
{
    setOwnSurroundings();
    prepareApplication();
    Application application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    TestLook test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_look.moc"
