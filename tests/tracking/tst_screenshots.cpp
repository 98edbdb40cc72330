#include "testclient.h"
#include "tracking/desktopscreenshot.h"
#include "tracking/trackingloop.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>

#include <algorithm>
#include <array>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr QSize kScreen(400, 300);
constexpr qint64 kHugeFile = 1024 * 1024 * 1024;
constexpr uid_t kOtherUser = 65534;

QImage screen(bool isDark)
{
    QImage image(kScreen, QImage::Format_RGB32);
    image.fill(isDark ? Qt::black : Qt::red);
    for (int y = 0; y < image.height() && !isDark; ++y)
        for (int x = image.width() / 2; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(0, 0, 255));
    return image;
}

QDBusConnection deskBus()
{
    static const QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, s("desk"));
    return bus;
}

} // namespace

// Each does as the row says.
class FakeKwin final : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.KWin.ScreenShot2")

public:
    QString way;
    bool isAsked = false; // and has not answered

public slots:
    QVariantMap CaptureWorkspace(const QVariantMap &, const QDBusUnixFileDescriptor &pipe)
    {
        isAsked = way == s("silent");
        setDelayedReply(isAsked || way == s("other"));
        if (way == s("other"))
            deskBus().send(message().createReply(QVariant::fromValue(QList<int>{1, 2})));
        if (way == s("refuses") || way == s("fails"))
            sendErrorReply(s("org.kde.KWin.ScreenShot2.Error.")
                               + (way == s("fails") ? s("Cancelled") : s("NoAuthorized")),
                           s("no"));
        const QImage image = screen(false);
        const auto size = static_cast<size_t>(image.sizeInBytes());
        [[maybe_unused]] const ssize_t written =
            write(pipe.fileDescriptor(), image.constBits(), way == s("cut") ? size / 2 : size);
        QVariantMap reply{{s("type"), s("raw")},
                          {s("width"), uint(image.width())},
                          {s("height"), uint(image.height())},
                          {s("stride"), uint(image.bytesPerLine())},
                          {s("format"), uint(image.format())}};
        if (const int equals = way.indexOf(QLatin1Char('=')); equals > 0)
            reply[way.left(equals)] = way.mid(equals + 1).toUInt();
        return reply;
    }
};

class FakePortal final : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Screenshot")

public:
    QString way;
    QString file;
    int calls = 0;
    bool isAsked = false; // and has not answered

    void answer()
    {
        const bool isRefused = way == s("refuses");
        isAsked = false;
        if (!isRefused)
            leaveFile();
        const QString uri = QUrl::fromLocalFile(file).toString(QUrl::FullyEncoded)
            + (way == s("no text") ? s("%FF") : QString());
        deskBus().send(
            QDBusMessage::createSignal(m_request, s("org.freedesktop.portal.Request"), s("Response"))
            << (isRefused ? 2U : 0U) << QVariantMap{{s("uri"), uri}});
    }

public slots:
    QDBusObjectPath Screenshot(const QString &, const QVariantMap &options)
    {
        ++calls;
        m_request = s("/org/freedesktop/portal/desktop/request/")
            + message().service().mid(1).replace(QLatin1Char('.'), QLatin1Char('_')) + QLatin1Char('/')
            + options.value(s("handle_token")).toString();
        isAsked = way == s("waits");
        if (!isAsked)
            answer();
        return QDBusObjectPath(m_request);
    }

private:
    void leaveFile() const
    {
        const QByteArray name = QFile::encodeName(file);
        if (way == s("pipe")) {
            mkfifo(name.constData(), S_IRUSR | S_IWUSR);
            return;
        }
        screen(way == s("dark")).save(file, "PNG");
        if (way == s("link"))
            QVERIFY(QFile::rename(file, file + s(".png")) && QFile::link(file + s(".png"), file));
        else if (way == s("no text"))
            QCOMPARE(std::rename(name.constData(), QByteArray(name).append('\xff').constData()), 0);
        else if (way == s("foreign"))
            QCOMPARE(chown(name.constData(), kOtherUser, kOtherUser), 0);
        else if (way == s("huge"))
            QVERIFY(QFile::resize(file, kHugeFile));
        else if (way == s("wide"))
            QImage(20000, 10000, QImage::Format_Mono).save(file, "PNG");
        else if (way == s("garbage"))
            QVERIFY(QFile::resize(file, 40));
    }

    QString m_request;
};

class TestScreenshots final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("WAYLAND_DISPLAY", "left-over"); }

    // Steps: x in an X11 session, s start, p stop, r go on by itself after a restart, f a minute with a
    // screenshot, u another user, a the portal answers, z patience ends. The outcome: calls of the portal,
    // images that the service got, whether a file is left, and the first word of each notice after the start.
    void desktops_data()
    {
        addColumns<QString, QString, QString, QString>("kwin", "portal", "steps", "result");
        const std::initializer_list<std::array<const char *, 4>> rows{
            {"works", "works", "sff", "0 calls, 2 images"},
            {"works", "", "rf", "0 calls, 1 images"},
            {"works", "works", "xsf", "0 calls, 0 images"},
            {"refuses", "works", "sff", "3 calls, 2 images"},
            {"", "works", "spsf", "2 calls, 1 images"},
            {"", "works", "sprf", "2 calls, 1 images"},
            {"", "works", "rff", "0 calls, 0 images, ещё не разрешены"},
            {"", "", "sff", "0 calls, 0 images, не умеет"},
            {"refuses", "", "sff", "0 calls, 0 images, не умеет"},
            {"fails", "works", "sff", "0 calls, 0 images, не передал"},
            {"silent", "works", "szfz", "0 calls, 0 images, не передал"},
            {"cut", "works", "sf", "0 calls, 0 images, не передал"},
            {"width=0", "works", "sf", "0 calls, 0 images, не передал"},
            {"width=4294967295", "works", "sf", "0 calls, 0 images, не передал"},
            {"height=250001", "works", "sf", "0 calls, 0 images, не передал"},
            {"stride=1596", "works", "sf", "0 calls, 0 images, не передал"},
            {"stride=4294967295", "works", "sf", "0 calls, 0 images, не передал"},
            {"format=3", "works", "sf", "0 calls, 0 images, не передал"},
            {"format=4000", "works", "sf", "0 calls, 0 images, не передал"},
            {"other", "works", "sf", "0 calls, 0 images, не передал"},
            {"type=1", "works", "sf", "0 calls, 0 images, не передал"},
            {"", "refuses", "sff", "1 calls, 0 images, не разрешил"},
            {"", "waits", "sfa", "1 calls, 1 images"},
            {"", "waits", "safa", "2 calls, 1 images"},
            {"", "waits", "saffpa", "2 calls, 0 images"},
            {"", "waits", "safua", "2 calls, 0 images"},
            {"", "waits", "safza", "2 calls, 0 images, не передал"},
            {"", "dark", "sff", "3 calls, 2 images, ничего не видно"},
            {"", "no text", "sff", "3 calls, 2 images"},
            {"", "link", "s", "1 calls, 0 images, file, не передал"},
            {"", "foreign", "s", "1 calls, 0 images, file, не передал"},
            {"", "pipe", "s", "1 calls, 0 images, file, не передал"},
            {"", "huge", "s", "1 calls, 0 images, не передал"},
            {"", "wide", "s", "1 calls, 0 images, не передал"},
            {"", "garbage", "s", "1 calls, 0 images, не передал"},
        };
        for (const auto &[kwin, portal, steps, result] : rows)
            QTest::addRow("%s/%s/%s", kwin, portal, steps) << s(kwin) << s(portal) << s(steps) << s(result);
    }

    void desktops()
    {
        QFETCH(QString, kwin);
        QFETCH(QString, portal);
        QFETCH(QString, steps);
        QFETCH(QString, result);
        if (portal == s("foreign") && geteuid() != 0)
            QSKIP("needs root");
        const QTemporaryDir folder;
        FakeKwin fakeKwin;
        FakePortal fakePortal;
        fakeKwin.way = kwin;
        fakePortal.way = portal;
        fakePortal.file = folder.filePath(s("out put.png"));
        QDBusConnection bus = deskBus();
        bus.registerObject(s("/org/kde/KWin/ScreenShot2"), &fakeKwin, QDBusConnection::ExportAllSlots);
        bus.registerObject(s("/org/freedesktop/portal/desktop"), &fakePortal,
                           QDBusConnection::ExportAllSlots);
        const QString names[]{s("org.kde.KWin.ScreenShot2"), s("org.freedesktop.portal.Desktop")};
        QVERIFY((kwin.isEmpty() || bus.registerService(names[0]))
                && (portal.isEmpty() || bus.registerService(names[1])));

        qputenv("XDG_SESSION_TYPE", steps.startsWith(QLatin1Char('x')) ? "x11" : "wayland");
        TestClient client;
        QVERIFY(client.logIn());
        auto loop = std::make_unique<TrackingLoop>(client.orvana.get());
        client.notices.take();
        for (const QChar step : qAsConst(steps)) {
            const QMap<char, std::function<void()>> actions{
                {'x', [] {}},
                {'s', [&] { loop->startTracking(); }},
                {'p', [&] { loop->stopTracking(); }},
                {'r',
                 [&] {
                     loop = std::make_unique<TrackingLoop>(client.orvana.get());
                     client.session()->setActive(true);
                     loop->startTracking();
                 }},
                {'f', [&] { loop->sendActivity(true); }},
                {'u', [&] { QVERIFY(client.logIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"))); }},
                {'a', [&] { fakePortal.answer(); }},
                {'z', [&] { patience(*loop)->start(0), fakeKwin.isAsked = fakePortal.isAsked = false; }}};
            actions.value(step.toLatin1())();
            QTRY_VERIFY(!patience(*loop) || fakeKwin.isAsked || fakePortal.isAsked);
        }
        QString outcome;
        QStringList notices;
        const auto look = [&] {
            notices += client.notices.take();
            const int images = client.server.screenshots().size() + client.pictures().size();
            outcome = QString::number(fakePortal.calls) + s(" calls, ") + QString::number(images)
                + s(" images") + (QFileInfo::exists(fakePortal.file) ? s(", file") : QString());
            for (const QString &notice : qAsConst(notices))
                for (const char *words :
                     {"не умеет", "не передал", "не разрешил", "ещё не разрешены", "ничего не видно"})
                    outcome += notice.contains(s(words)) ? s(", ") + s(words) : QString();
            return outcome;
        };
        for (const QString &name : names)
            bus.unregisterService(name);
        QTRY_COMPARE_WITH_TIMEOUT(look(), result, TestClient::waitLimit);
        const auto screenshots = client.server.screenshots();
        for (const auto &screenshot : screenshots) {
            const QImage image = QImage::fromData(screenshot.jpeg, "JPG");
            QCOMPARE(image.size(), kScreen);
            QCOMPARE(qRed(image.pixel(100, 150)) > 200 && qBlue(image.pixel(300, 150)) > 200,
                     portal != s("dark"));
        }
    }

private:
    // The timer of a request under way.
    static QTimer *patience(const TrackingLoop &loop)
    {
        const auto timers = loop.findChild<DesktopScreenshot *>()->findChildren<QTimer *>();
        const auto running =
            std::find_if(timers.begin(), timers.end(), [](QTimer *t) { return t->isActive(); });
        return running == timers.end() ? nullptr : *running;
    }
};

QTEST_GUILESS_MAIN(TestScreenshots)
#include "tst_screenshots.moc"
