#include "texts.h"
#include "tracking/screengrab.h"
#include "windowbench.h"

#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QScreen>
#include <QtTest>

namespace {

// Covers its monitor with one colour.
class Cover final : public QRasterWindow
{
public:
    Cover(const QScreen *monitor, const QColor &colour)
        : m_colour(colour)
    {
        setFlags(Qt::BypassWindowManagerHint);
        setGeometry(monitor->geometry());
        show();
    }

protected:
    void paintEvent(QPaintEvent *) override { QPainter(this).fillRect(0, 0, width(), height(), m_colour); }

private:
    QColor m_colour;
};

} // namespace

class TestTwoMonitors final : public QObject
{
    Q_OBJECT

private slots:
    void oneImageOfAllMonitors()
    {
        QTRY_COMPARE(QGuiApplication::screens().size(), 2);
        Cover left(QGuiApplication::screens().at(0), Qt::red);
        Cover right(QGuiApplication::screens().at(1), Qt::blue);
        QVERIFY(QTest::qWaitForWindowExposed(&left) && QTest::qWaitForWindowExposed(&right));
        QTRY_COMPARE(grabDesktop().size(), QSize(1600, 600));
        QImage both(1600, 600, QImage::Format_RGB32);
        both.fill(Qt::red);
        QPainter(&both).fillRect(800, 0, 800, 600, Qt::blue);
        QTRY_COMPARE(grabDesktop().convertToFormat(both.format()), both);
        // One is unplugged between two screenshots.
        QCOMPARE(QProcess::execute(s("xrandr"), texts({"--output", "DUMMY1", "--off"})), 0);
        QTRY_COMPARE(grabDesktop().size(), QSize(800, 600));
        QTRY_COMPARE(grabDesktop().pixelColor(400, 300), QColor(Qt::red));
    }

    // The one with the window is unplugged while time is counted.
    void windowMovesToTheOtherMonitor()
    {
        QCOMPARE(QProcess::execute(s("xrandr"),
                                   texts({"--output", "DUMMY1", "--mode", "monitor", "--pos", "800x0"})),
                 0);
        QTRY_COMPARE(QGuiApplication::screens().size(), 2);
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.orvana()->changeTask(s("17"), s("1704"));
        QVERIFY(bench.openWindow());
        NotificationManager::instance()->addNotification(s("x"), TaskAdded, QString());
        const NotificationForm *popup = shownPopups().constFirst();
        QTRY_COMPARE(popup->geometry().right(), 799);
        bench.form->move(1200, 100);
        QTRY_COMPARE(popup->geometry().right(), 1599);
        bench.form->startTracking();
        QCOMPARE(QProcess::execute(s("xrandr"), texts({"--output", "DUMMY1", "--off"})), 0);
        QTRY_COMPARE(QGuiApplication::screens().size(), 1);
        QTRY_VERIFY(QRect(0, 0, 800, 600).contains(bench.form->frameGeometry()));
        QTRY_COMPARE(popup->geometry().right(), 799);
        QVERIFY(bench.form->isVisible());
        bench.form->sendActivity(true);
        QTRY_COMPARE(bench.server().screenshots().size(), 1);
        QCOMPARE(QImage::fromData(bench.server().screenshots().constFirst().jpeg, "JPG").size(),
                 QSize(800, 600));
        QCOMPARE(bench.server().reports().size(), 1);
        QVERIFY(bench.session()->isActive());
        QVERIFY(bench.settle());
    }
};

QTEST_MAIN(TestTwoMonitors)
#include "tst_twomonitors.moc"
