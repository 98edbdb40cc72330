#include "tracking/portalscreenshot.h"

#include "base/log.h"
#include "storage/storagefolder.h"
#include "tracking/screenshotlimits.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QFile>
#include <QGuiApplication>
#include <QImageReader>
#include <QRandomGenerator>
#include <QUrl>
#include <QWindow>

#include <chrono>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 30s;
constexpr auto kPatienceWithUser = 2min;
constexpr qint64 kMaxFile = 256 * 1024 * 1024; // bytes
constexpr uint kSuccess = 0;
constexpr int kHexadecimal = 16;

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kScreenshotInterface = QStringLiteral("org.freedesktop.portal.Screenshot");
const QString kRequestInterface = QStringLiteral("org.freedesktop.portal.Request");

const QString kNoPortal = QStringLiteral(
    "Рабочий стол не умеет передавать снимки экрана. Установите пакет xdg-desktop-portal и его "
    "дополнение для вашего рабочего стола или войдите в сеанс Xorg (X11).");
const QString kRefused = QStringLiteral(
    "Рабочий стол не разрешил снимок экрана. Нажмите в окне программы «Стоп» и «Старт» и согласитесь на "
    "снимки; если вопроса нет, разрешите программе снимки экрана в настройках рабочего стола.");
const QString kNotAsked = QStringLiteral("Снимки экрана ещё не разрешены. Нажмите в окне программы «Стоп» и "
                                         "«Старт» и согласитесь на снимки, если появится вопрос.");

// The window that the question belongs to, as portals name it.
QString focusWindow()
{
    const QWindow *window = QGuiApplication::focusWindow();
    if (!window || QGuiApplication::platformName() != QLatin1String("xcb"))
        return {};
    return QStringLiteral("x11:") + QString::number(window->winId(), kHexadecimal);
}

// The image in a file of this user's, which is deleted first; null with a reason otherwise.
QImage takeImageFile(const QUrl &url, QString *problem)
{
    // Not by way of text: its bytes need not be those of this locale.
    const QByteArray name = QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
    const int descriptor = open(name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        *problem = QString::fromLocal8Bit(std::strerror(errno));
        return {};
    }
    QFile file;
    file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    struct stat found = {};
    if (fstat(descriptor, &found) != 0 || !S_ISREG(found.st_mode) || found.st_uid != geteuid()) {
        *problem = QStringLiteral("no file of this user's");
        return {};
    }
    if (unlink(name.constData()) != 0)
        qCWarning(lcTracking).noquote() << "A screenshot is left in" << url.toString();
    QImageReader reader(&file);
    const QSize size = reader.size();
    if (found.st_size > kMaxFile || (size.isValid() && !isScreenshotSize(size.width(), size.height()))) {
        *problem = QStringLiteral("too large");
        return {};
    }
    QImage image = size.isValid() ? reader.read() : QImage();
    if (image.isNull())
        *problem = QStringLiteral("no image ") + reader.errorString();
    return image;
}

} // namespace

PortalScreenshot::PortalScreenshot(const StorageFolder &storage, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_reason(kNotAsked)
{
    m_patience.setSingleShot(true);
    connect(&m_patience, &QTimer::timeout, this, &PortalScreenshot::giveUp);
}

PortalScreenshot::~PortalScreenshot()
{
    if (m_patience.isActive())
        QDBusConnection::sessionBus().send(
            QDBusMessage::createMethodCall(kService, m_request, kRequestInterface, QStringLiteral("Close")));
}

void PortalScreenshot::take(bool mayAsk)
{
    if (!mayAsk && !QFile::exists(consentFile())) {
        fail(QStringLiteral("the user has not consented yet"), m_reason);
        return;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString token =
        QStringLiteral("orvana") + QString::number(QRandomGenerator::system()->generate64(), kHexadecimal);
    // An answer that came too late has been waited for until now, because of its file.
    listen(false);
    m_request = kPath + QStringLiteral("/request/")
        + bus.baseService().mid(1).replace(QLatin1Char('.'), QLatin1Char('_')) + QLatin1Char('/') + token;
    listen(true);
    QDBusMessage request =
        QDBusMessage::createMethodCall(kService, kPath, kScreenshotInterface, QStringLiteral("Screenshot"));
    request << focusWindow()
            << QVariantMap{{QStringLiteral("handle_token"), token}, {QStringLiteral("interactive"), false}};
    m_patience.start(mayAsk ? kPatienceWithUser : kPatience);
    auto *call = new QDBusPendingCallWatcher(bus.asyncCall(request), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this, call, path = m_request] {
        call->deleteLater();
        if (path == m_request && m_patience.isActive())
            onReply(*call);
    });
}

// By the path, which nobody can guess: to connect by the portal's name waits for the bus.
void PortalScreenshot::listen(bool doListen)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString response = QStringLiteral("Response");
    if (doListen)
        bus.connect(QString(), m_request, kRequestInterface, response, this,
                    SLOT(onResponse(uint, QVariantMap)));
    else if (!m_request.isEmpty())
        bus.disconnect(QString(), m_request, kRequestInterface, response, this,
                       SLOT(onResponse(uint, QVariantMap)));
}

void PortalScreenshot::onReply(const QDBusPendingCallWatcher &call)
{
    if (!call.isError())
        return;
    const QDBusError error = call.error();
    const bool isMissing = error.type() != QDBusError::Other && error.type() != QDBusError::NoReply
        && error.type() != QDBusError::AccessDenied;
    fail(error.name() + QLatin1Char(' ') + error.message(), isMissing ? kNoPortal : noScreenshotText());
}

void PortalScreenshot::onResponse(uint code, const QVariantMap &results)
{
    listen(false);
    const bool isAwaited = m_patience.isActive();
    const QUrl url(results.value(QStringLiteral("uri")).toString());
    QString problem = QStringLiteral("no local file");
    const QImage image = url.isLocalFile() ? takeImageFile(url, &problem) : QImage();
    if (!isAwaited)
        return;
    if (code != kSuccess) {
        fail(QStringLiteral("refused, code %1").arg(code), kRefused);
        return;
    }
    if (image.isNull()) {
        fail(url.toDisplayString() + QStringLiteral(": ") + problem, noScreenshotText());
        return;
    }
    m_patience.stop();
    if (m_storage.isUsable() && !QFile::exists(consentFile()))
        QFile(consentFile()).open(QIODevice::WriteOnly);
    emit taken(image);
}

void PortalScreenshot::giveUp()
{
    QDBusConnection::sessionBus().send(
        QDBusMessage::createMethodCall(kService, m_request, kRequestInterface, QStringLiteral("Close")));
    fail(QStringLiteral("no answer"), noScreenshotText());
}

QString PortalScreenshot::consentFile() const
{
    return m_storage.dir().filePath(QStringLiteral("screenshots-allowed"));
}

void PortalScreenshot::fail(const QString &problem, const QString &reason)
{
    m_patience.stop();
    qCWarning(lcTracking).noquote() << "No screenshot through the desktop portal:" << problem;
    m_reason = reason;
    emit failed(reason);
}
