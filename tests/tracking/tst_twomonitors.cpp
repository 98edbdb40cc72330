#include "texts.h"
#include "tracking/screengrab.h"

#include <QGuiApplication>
#include <QPainter>
#include <QProcess>
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
    void oneImageOfBothMonitors()
    {
        QTRY_COMPARE(QGuiApplication::screens().size(), 2);
        const Cover left(QRect(0, 0, 800, 600), Qt::red);
        const Cover right(QRect(800, 0, 800, 600), Qt::blue);
        QVERIFY(QTest::qWaitForWindowExposed(const_cast<Cover *>(&left)));
        QVERIFY(QTest::qWaitForWindowExposed(const_cast<Cover *>(&right)));
        QTRY_COMPARE(grabDesktop().size(), QSize(1600, 600));
        QTRY_COMPARE(grabDesktop().pixelColor(10, 300), QColor(Qt::red));
        QTRY_COMPARE(grabDesktop().pixelColor(1590, 300), QColor(Qt::blue));
    }

    void monitorUnpluggedBetweenTwoPictures()
    {
        const Cover left(QRect(0, 0, 800, 600), Qt::green);
        QVERIFY(QTest::qWaitForWindowExposed(const_cast<Cover *>(&left)));
        QCOMPARE(grabDesktop().size(), QSize(1600, 600));
        QCOMPARE(QProcess::execute(s("xrandr"), {s("--output"), s("DUMMY1"), s("--off")}), 0);
        QTRY_COMPARE(QGuiApplication::screens().size(), 1);
        QTRY_COMPARE(grabDesktop().size(), QSize(800, 600));
        QTRY_COMPARE(grabDesktop().pixelColor(400, 300), QColor(Qt::green));
    }
};

QTEST_MAIN(TestTwoMonitors)
#include "tst_twomonitors.moc"
