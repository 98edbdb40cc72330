// gallery FOLDER [SCENE...]: saves a picture of every window in every state, as it is on this
// display, with a little of the desktop around it. Fails when a state is not reached.
#include "scenes.h"

#include <QElapsedTimer>
#include <QScreen>

namespace {

constexpr int kMargin = 14;
constexpr int kTitleBar = 24;
constexpr int kSettled = 150; // ms

QRect boundsOf(const QWidgetList &windows)
{
    QRect bounds;
    for (const QWidget *window : windows)
        bounds |= window->geometry().adjusted(
            0, window->windowFlags() & Qt::FramelessWindowHint ? 0 : -kTitleBar, 0, 0);
    return bounds.adjusted(-kMargin, -kMargin, kMargin, kMargin);
}

bool areExposed(const QWidgetList &windows)
{
    return std::all_of(windows.begin(), windows.end(),
                       [](QWidget *w) { return w && QTest::qWaitForWindowExposed(w); });
}

// A picture that has stayed the same for a while and is not the bare wallpaper: the window
// manager and the compositor have no signal for "drawn".
QImage settledPicture(QScreen *screen, const QRect &place)
{
    QImage picture;
    QElapsedTimer unchanged;
    const bool settled = QTest::qWaitFor([&] {
        const QImage now =
            screen->grabWindow(0, place.x(), place.y(), place.width(), place.height()).toImage();
        if (now != picture)
            unchanged.start();
        picture = now;
        QImage plain(now.size(), now.format());
        plain.fill(now.pixelColor(0, now.height() - 1));
        return now != plain && unchanged.hasExpired(kSettled);
    });
    return settled ? picture : QImage();
}

bool photograph(const Scene &scene, const QString &path)
{
    QCursor::setPos(0, QGuiApplication::primaryScreen()->geometry().bottom());
    Stage stage;
    const QWidgetList windows = scene.open(stage);
    if (windows.isEmpty() || !areExposed(windows)) {
        qWarning("%s: not reached", scene.name);
        return false;
    }
    QScreen *screen = windows.first()->screen();
    const QImage picture = settledPicture(screen, boundsOf(windows) & screen->geometry());
    if (picture.isNull())
        qWarning("%s: not drawn", scene.name);
    return picture.save(path);
}

} // namespace

int main(int argc, char *argv[])
{
    prepareApplication();
    Application application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QCoreApplication::arguments();
    const QStringList wanted = arguments.mid(2);
    int failures = arguments.size() < 2 ? 1 : 0;
    int number = 0;
    for (const Scene &scene : scenes()) {
        const QString name = QString::fromLatin1(scene.name);
        ++number;
        if (!wanted.isEmpty() && !wanted.contains(name))
            continue;
        const QString path =
            arguments.value(1) + QStringLiteral("/%1-%2.png").arg(number, 2, 10, QLatin1Char('0')).arg(name);
        failures += photograph(scene, path) || photograph(scene, path) ? 0 : 1;
    }
    return failures;
}
