#include "texts.h"
#include "tracking/screengrab.h"

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
    Cover(const QRect &place, const QColor &colour)
        : m_colour(colour)
    {
        setFlags(Qt::BypassWindowManagerHint);
        setGeometry(place);
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
        Cover left(QRect(0, 0, 800, 600), Qt::red);
        Cover right(QRect(800, 0, 800, 600), Qt::blue);
        QVERIFY(QTest::qWaitForWindowExposed(&left) && QTest::qWaitForWindowExposed(&right));
        QTRY_COMPARE(grabDesktop().size(), QSize(1600, 600));
        QTRY_COMPARE(grabDesktop().pixelColor(10, 300), QColor(Qt::red));
        QTRY_COMPARE(grabDesktop().pixelColor(1590, 300), QColor(Qt::blue));
        // One is unplugged between two pictures.
        QCOMPARE(QProcess::execute(s("xrandr"), texts({"--output", "DUMMY1", "--off"})), 0);
        QTRY_COMPARE(grabDesktop().size(), QSize(800, 600));
        QTRY_COMPARE(grabDesktop().pixelColor(400, 300), QColor(Qt::red));
    }
};

QTEST_MAIN(TestTwoMonitors)
#include "tst_twomonitors.moc"
