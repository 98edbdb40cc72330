#include "texts.h"
#include "tracking/screengrab.h"
#include "windowbench.h"

#include <QPainter>
#include <QScreen>
#include <QtTest>

namespace {

bool xrandr(std::initializer_list<const char *> arguments)
{
    return QProcess::execute(s("xrandr"), texts({"--output", "DUMMY1"}) + texts(arguments)) == 0;
}

std::unique_ptr<QWidget> cover(const QScreen *monitor, const char *colour)
{
    auto cover = std::make_unique<QWidget>(nullptr, Qt::BypassWindowManagerHint);
    cover->setStyleSheet(s("background: ") + s(colour));
    cover->setGeometry(monitor->geometry());
    cover->show();
    return cover;
}

} // namespace

class TestTwoMonitors final : public QObject
{
    Q_OBJECT

private slots:
    void oneImageOfAllMonitors()
    {
        QTRY_COMPARE(QGuiApplication::screens().size(), 2);
        const auto left = cover(QGuiApplication::screens().at(0), "red");
        const auto right = cover(QGuiApplication::screens().at(1), "blue");
        QTRY_COMPARE(grabDesktop().size(), QSize(1600, 600));
        QImage both(1600, 600, QImage::Format_RGB32);
        both.fill(Qt::red);
        QPainter(&both).fillRect(800, 0, 800, 600, Qt::blue);
        QTRY_COMPARE(grabDesktop().convertToFormat(both.format()), both);
        QVERIFY(xrandr({"--off"}));
        QTRY_COMPARE(grabDesktop().size(), QSize(800, 600));
        QTRY_COMPARE(grabDesktop().pixelColor(400, 300), QColor(Qt::red));
    }

    void windowMovesToTheOtherMonitor()
    {
        QVERIFY(xrandr({"--mode", "monitor", "--pos", "800x0"}));
        QTRY_COMPARE(QGuiApplication::screens().size(), 2);
        WindowBench bench;
        QVERIFY(bench.openFor(s("1704")));
        NotificationManager::instance()->addNotification(s("x"), TaskAdded, s("1704"));
        const NotificationForm *popup = shownPopups().constFirst();
        QTRY_COMPARE(popup->geometry().right(), 799);
        bench.form->move(1200, 100);
        QTRY_COMPARE(popup->geometry().right(), 1599);
        bench.form->startTracking();
        QVERIFY(xrandr({"--off"}));
        QTRY_COMPARE(QGuiApplication::screens().size(), 1);
        QTRY_VERIFY(QRect(0, 0, 800, 600).contains(bench.form->frameGeometry()));
        QTRY_COMPARE(popup->geometry().right(), 799);
        bench.form->sendActivity(true);
        QTRY_COMPARE(bench.server().screenshots().size(), 1);
        QCOMPARE(QImage::fromData(bench.server().screenshots().constFirst().jpeg, "JPG").size(),
                 QSize(800, 600));
        QCOMPARE(bench.server().reports().size(), 1);
        QVERIFY(bench.settle());
    }
};

QTEST_MAIN(TestTwoMonitors)
#include "tst_twomonitors.moc"
