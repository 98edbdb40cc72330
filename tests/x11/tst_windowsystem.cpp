#include "qxtwindowsystem.h"
#include "realinput.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QWidget>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>

namespace {

constexpr int kStartTimeout = 10000;
const QString kDescribe = QStringLiteral("--describe");

using Process = std::unique_ptr<QProcess>;

Process start(const QString &program, const QStringList &arguments,
              const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment);
    process->start(program, arguments);
    process->waitForStarted();
    return process;
}

Process startOtherWindow(const QString &title, const QString &geometry,
                         const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    return start(QStringLiteral("xev"),
                 {QStringLiteral("-name"), title, QStringLiteral("-geometry"), geometry}, environment);
}

QByteArray readLine(QProcess *process)
{
    while (!process->canReadLine() && process->waitForReadyRead(kStartTimeout)) { }
    return process->readLine().trimmed();
}

void stop(QProcess *process)
{
    process->kill();
    process->waitForFinished();
}

// This program, started once more on another server: the titles from the lowest to the uppermost window.
int describe()
{
    const QVector<WId> windows = QxtWindowSystem::windows();
    QStringList titles;
    std::transform(windows.begin(), windows.end(), std::back_inserter(titles), QxtWindowSystem::windowTitle);
    std::puts(qUtf8Printable(titles.join(QLatin1Char('|'))));
    return 0;
}

} // namespace

class WindowSystemTest final : public QObject
{
    Q_OBJECT

private slots:
    void knowsTheWindows();
    void listsInStackingOrder();
    void survivesBadWindows();
    void measuresIdleTime();
    void worksWithoutAWindowManager();
    void hasNothingWithoutX11();
};

void WindowSystemTest::knowsTheWindows()
{
    const QString title = QStringLiteral("Отчёт — «Ω» 漢字");
    QWidget own;
    own.setWindowTitle(title);
    own.setGeometry(300, 200, 321, 123);
    own.show();
    QVERIFY(QTest::qWaitForWindowActive(&own));
    QTRY_COMPARE(QxtWindowSystem::findWindow(title), own.winId());
    QTRY_COMPARE(QxtWindowSystem::activeWindow(), own.winId());
    QCOMPARE(QxtWindowSystem::windowTitle(own.winId()), title);
    QTRY_COMPARE(QxtWindowSystem::windowGeometry(own.winId()), own.geometry());
    QCOMPARE(own.size(), QSize(321, 123));

    const QString otherTitle = QStringLiteral("another program");
    const Process other = startOtherWindow(otherTitle, QStringLiteral("211x87"));
    QTRY_VERIFY_WITH_TIMEOUT(QxtWindowSystem::findWindow(otherTitle) != 0, kStartTimeout);
    const WId otherWindow = QxtWindowSystem::findWindow(otherTitle);
    QTRY_COMPARE(QxtWindowSystem::activeWindow(), otherWindow);
    QCOMPARE(QxtWindowSystem::windowGeometry(otherWindow).size(), QSize(211, 87));
    QCOMPARE(QxtWindowSystem::findWindow(QStringLiteral("another")), WId(0));

    stop(other.get());
    QTRY_COMPARE(QxtWindowSystem::findWindow(otherTitle), WId(0));
    QCOMPARE(QxtWindowSystem::windowTitle(otherWindow), QString());
    QCOMPARE(QxtWindowSystem::windowGeometry(otherWindow), QRect());
}

void WindowSystemTest::listsInStackingOrder()
{
    // Two with one title: the upper one is found.
    const QString title = QStringLiteral("twin");
    QWidget first;
    QWidget second;
    for (QWidget *widget : {&first, &second}) {
        widget->setWindowTitle(title);
        widget->resize(200, 150);
        widget->show();
        QVERIFY(QTest::qWaitForWindowExposed(widget));
    }
    QTRY_COMPARE(QxtWindowSystem::windows(), (QVector<WId>{first.winId(), second.winId()}));
    QCOMPARE(QxtWindowSystem::findWindow(title), second.winId());
    first.raise();
    QTRY_COMPARE(QxtWindowSystem::windows(), (QVector<WId>{second.winId(), first.winId()}));
    QCOMPARE(QxtWindowSystem::findWindow(title), first.winId());
    second.hide();
    QTRY_COMPARE(QxtWindowSystem::windows(), (QVector<WId>{first.winId()}));
}

void WindowSystemTest::survivesBadWindows()
{
    QWindow living;
    living.setTitle(QStringLiteral("living"));
    living.create();
    const WId beyondX11 = (WId(1) << 32) + living.winId();
    QWindow destroyed;
    destroyed.setTitle(QStringLiteral("destroyed"));
    destroyed.create();
    const WId gone = destroyed.winId();
    destroyed.destroy();
    for (const WId window : {WId(0), WId(1), gone, beyondX11, std::numeric_limits<WId>::max()}) {
        QCOMPARE(QxtWindowSystem::windowTitle(window), QString());
        QCOMPARE(QxtWindowSystem::windowGeometry(window), QRect());
    }
}

void WindowSystemTest::measuresIdleTime()
{
    using namespace std::chrono_literals;
    const auto idle = [] { return QxtWindowSystem::idleTime().value_or(-1ms); };
    QElapsedTimer sinceInput;
    QVERIFY(xdotool(QStringLiteral("mousemove_relative"), {QStringLiteral("3"), QStringLiteral("3")}));
    sinceInput.start();
    QTRY_VERIFY(idle() >= 400ms);
    QVERIFY(sinceInput.elapsed() >= 300);
    QVERIFY(pressKeys(QStringLiteral("a")));
    QVERIFY2(idle() >= 0ms && idle() < 400ms, qPrintable(QString::number(idle().count())));
}

void WindowSystemTest::worksWithoutAWindowManager()
{
    const Process server =
        start(QStringLiteral("Xvfb"),
              {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
               QStringLiteral("tcp"), QStringLiteral("-noreset")});
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"),
                       QLatin1Char(':') + QString::fromLatin1(readLine(server.get())));
    const auto titles = [&environment] {
        const Process process = start(QCoreApplication::applicationFilePath(), {kDescribe}, environment);
        process->waitForFinished();
        return readLine(process.get());
    };
    QCOMPARE(titles(), QByteArray());
    const Process lower = startOtherWindow(QStringLiteral("lower"), QStringLiteral("100x100"), environment);
    QTRY_COMPARE(titles(), QByteArray("lower"));
    const Process upper = startOtherWindow(QStringLiteral("upper"), QStringLiteral("100x100"), environment);
    QTRY_COMPARE(titles(), QByteArray("lower|upper"));

    // A window manager that was killed leaves its lists on the root window.
    const Process manager = start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")}, environment);
    const auto managedCount = [&environment] {
        const Process process =
            start(QStringLiteral("xprop"),
                  {QStringLiteral("-root"), QStringLiteral("_NET_CLIENT_LIST_STACKING")}, environment);
        process->waitForFinished();
        return process->readAll().count("0x");
    };
    QTRY_COMPARE_WITH_TIMEOUT(managedCount(), 2, kStartTimeout);
    QTRY_COMPARE(titles().split('|').size(), 2);
    stop(manager.get());
    stop(lower.get());
    QCOMPARE(managedCount(), 2);
    QTRY_COMPARE(titles(), QByteArray("upper"));
    for (const Process *process : {&upper, &server})
        stop(process->get());
}

void WindowSystemTest::hasNothingWithoutX11()
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    const Process process = start(QCoreApplication::applicationFilePath(), {kDescribe}, environment);
    QTRY_COMPARE(process->state(), QProcess::NotRunning);
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->readAll().trimmed(), QByteArray());
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == kDescribe)
        return describe();
    WindowSystemTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_windowsystem.moc"
