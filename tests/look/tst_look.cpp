#include "base/programstart.h"
#include "scenes.h"
#include "widgets/scrolltext.h"

namespace {

constexpr int kPlacing = 2000; // ms
constexpr int kRounding = 1; // of a font's height where the scale is no whole number

template <typename... Kinds>
bool isOneOf(const QWidget *widget)
{
    return (qobject_cast<const Kinds *>(widget) || ...);
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

    // Those that the sources name.
    void images()
    {
        int count = 0;
        const QRegularExpression name(s(R"(:/(?:[\w-]+/)+[\w-]+\.png)"));
        QDirIterator sources(s(ORVANA_SOURCES), texts({"*.cpp", "*.ui", "*.qss"}), QDir::Files,
                             QDirIterator::Subdirectories);
        while (sources.hasNext()) {
            QFile source(sources.next());
            QVERIFY(source.open(QIODevice::ReadOnly));
            auto found = name.globalMatch(QString::fromUtf8(source.readAll()));
            for (; found.hasNext(); ++count) {
                const QString path = found.next().captured();
                const QSize size = QImage(path).size();
                QVERIFY2(!size.isEmpty() && QImage(path.chopped(4) + s("@2x.png")).size() == size * 2,
                         qPrintable(path));
            }
        }
        QVERIFY(count > 50);
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
        WindowBench bench;
        const QWidgetList windows = scenes()[static_cast<std::size_t>(number)].open(bench);
        QVERIFY(!windows.isEmpty());
        m_problems.clear();
        for (QWidget *window : windows) {
            QVERIFY(window && QTest::qWaitForWindowExposed(window));
            // Popups take no focus by themselves, lists and menus are Qt's.
            const bool takesFocus =
                window == windows.last() && isOneOf<QDialog>(window) && !isOneOf<NotificationForm>(window);
            QVERIFY(!takesFocus || QTest::qWaitForWindowActive(window));
            QWidgetList widgets = window->findChildren<QWidget *>();
            widgets.prepend(window);
            for (QWidget *widget : qAsConst(widgets)) {
                // A window's child windows are scenes of their own.
                if (!widget->isVisible() || isInner(widget) || widget->window() != window)
                    continue;
                checkPlace(widget);
                checkForScreenReaders(widget);
                if (const auto *line = qobject_cast<ScrollText *>(widget))
                    expect(line->isMoving() == (line->sizeHint().width() > line->width()), line,
                           "moves or not");
                if (takesFocus && widget != window)
                    checkFocus(widget);
            }
        }
        QVERIFY2(m_problems.isEmpty(), qPrintable(m_problems.join(QLatin1Char('\n'))));
    }

private:
    void expect(bool isFine, const QWidget *widget, const char *problem)
    {
        if (!isFine)
            m_problems += widget->objectName() + QLatin1Char(' ') + s(problem);
    }

    void checkPlace(const QWidget *widget)
    {
        const auto [needed, given] = neededAndGiven(widget);
        expect(needed.width() <= given.width() && needed.height() <= given.height() + kRounding, widget,
               "is cut off");
        // The window manager may still be placing a window; the rims that Qt has read meanwhile may be
        // nonsense for good.
        const QWidget *parent = widget->parentWidget();
        const auto isInside = [&] {
            return widget->isWindow() ? widget->screen()->geometry().contains(widget->geometry())
                                      : parent->rect().contains(widget->geometry());
        };
        expect(QTest::qWaitFor(isInside, kPlacing), widget, "sticks out");
        if (widget->isWindow())
            return;
        const auto siblings = parent->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
        for (const QWidget *other : siblings) {
            const bool isSeen = other != widget && other->isVisible() && !other->isWindow();
            expect(!isSeen || !other->geometry().intersects(widget->geometry()), widget, "overlaps another");
        }
    }

    void checkForScreenReaders(QWidget *widget)
    {
        const QAccessibleInterface *spoken = QAccessible::queryAccessibleInterface(widget);
        const auto *button = qobject_cast<const QAbstractButton *>(widget);
        const bool isIconOnly = button && button->text().isEmpty();
        const bool isControl = !widget->isWindow() && (widget->focusPolicy() != Qt::NoFocus || isIconOnly);
        expect(!isControl || !spoken->text(QAccessible::Name).isEmpty(), widget, "has no name");
        const bool isText =
            spoken->role() == QAccessible::StaticText || spoken->role() == QAccessible::Client;
        expect(!isText || !(widget->focusPolicy() & Qt::TabFocus) || isOneOf<QAbstractScrollArea>(widget),
               widget, "takes the focus for nothing");
        expect(!isIconOnly || !widget->toolTip().isEmpty(), widget, "has no tool tip");
    }

    // A control that has the focus looks different.
    void checkFocus(QWidget *widget)
    {
        if (!widget->isEnabled() || !(widget->focusPolicy() & Qt::TabFocus))
            return;
        widget->clearFocus();
        const QImage before = widget->grab().toImage();
        expect(focus(widget) && widget->grab().toImage() != before, widget, "does not show its focus");
    }

    QStringList m_problems;
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
