// gallery FOLDER [SCENE...]: saves a picture of every window in every state, as it is on this
// display, with a little of the desktop around it. Fails when a state is not reached.
#include "scenes.h"

namespace {

constexpr int kMargin = 24; // a title bar fits
constexpr int kSettled = 150; // ms

// A picture that has stayed the same for a while and is not the bare wallpaper: the window
// manager and the compositor have no signal for "drawn".
QImage settledPicture(const QRect &place)
{
    QImage picture;
    QElapsedTimer unchanged;
    const bool settled = QTest::qWaitFor([&] {
        QScreen *screen = QGuiApplication::primaryScreen();
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
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    QCursor::setPos(0, screen.bottom());
    WindowBench bench;
    const QWidgetList windows = scene.open(bench);
    QRect bounds;
    for (QWidget *window : windows) {
        if (!window || !QTest::qWaitForWindowExposed(window))
            return false;
        bounds |= window->geometry();
    }
    bounds.adjust(-kMargin, -kMargin, kMargin, kMargin);
    return !windows.isEmpty() && settledPicture(bounds & screen).save(path);
}

} // namespace

int main(int argc, char *argv[])
{
    prepareApplication();
    Application application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList wanted = QCoreApplication::arguments().mid(2);
    int failures = argc < 2 ? 1 : 0;
    int number = 0;
    for (const Scene &scene : scenes()) {
        const QString name = s(scene.name);
        ++number;
        if (!wanted.isEmpty() && !wanted.contains(name))
            continue;
        const QString path =
            QString::fromLocal8Bit(argv[1]) + s("/%1-%2.png").arg(number, 2, 10, QLatin1Char('0')).arg(name);
        if (photograph(scene, path) || photograph(scene, path))
            continue;
        ++failures;
        qWarning("%s: not reached, or not drawn", scene.name);
    }
    return failures;
}
