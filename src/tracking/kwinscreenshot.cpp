#include "tracking/kwinscreenshot.h"

#include "base/log.h"
#include "tracking/screenshotlimits.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusUnixFileDescriptor>
#include <QSocketNotifier>

#include <array>
#include <chrono>
#include <utility>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 10s;
constexpr int kPipeSize = 1024 * 1024;
constexpr int kPixelBits = 32;
constexpr int kBitsPerByte = 8;
constexpr qint64 kMaxLinePadding = 4096; // bytes

const QString kService = QStringLiteral("org.kde.KWin.ScreenShot2");
const QString kPath = QStringLiteral("/org/kde/KWin/ScreenShot2");
const QString kRefused = QStringLiteral("org.kde.KWin.ScreenShot2.Error.NoAuthorized");

} // namespace

KwinScreenshot::KwinScreenshot(QObject *parent)
    : QObject(parent)
{
    m_patience.setSingleShot(true);
    connect(&m_patience, &QTimer::timeout, this, [this] { fail(QStringLiteral("no answer")); });
}

KwinScreenshot::~KwinScreenshot()
{
    finish();
}

void KwinScreenshot::take()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail(QString::fromLocal8Bit(std::strerror(errno)));
        return;
    }
    m_pipe = ends[0];
    fcntl(m_pipe, F_SETFL, O_NONBLOCK);
    fcntl(m_pipe, F_SETPIPE_SZ, kPipeSize);
    QDBusUnixFileDescriptor writeEnd;
    writeEnd.giveFileDescriptor(ends[1]);
    QDBusMessage request =
        QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("CaptureWorkspace"));
    request.setAutoStartService(false);
    request << QVariantMap{{QStringLiteral("native-resolution"), true}} << QVariant::fromValue(writeEnd);
    m_patience.start(kPatience);
    m_call = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(request), this);
    connect(m_call, &QDBusPendingCallWatcher::finished, this,
            [this](const QDBusPendingCallWatcher *call) { onReply(call->reply()); });
}

void KwinScreenshot::onReply(const QDBusMessage &reply)
{
    dropCall();
    if (reply.type() == QDBusMessage::ErrorMessage) {
        const bool isKwins = reply.errorName().startsWith(kService) && reply.errorName() != kRefused;
        if (m_hasAnswered || isKwins || QDBusError(reply).type() == QDBusError::NoReply) {
            fail(reply.errorName() + QLatin1Char(' ') + reply.errorMessage());
            return;
        }
        qCDebug(lcTracking).noquote() << "No screenshots by KWin:" << reply.errorName();
        finish();
        emit unavailable();
        return;
    }
    // To read another type as a map is a crash.
    const auto description = reply.signature() == QLatin1String("a{sv}")
        ? qdbus_cast<QVariantMap>(reply.arguments().constFirst())
        : QVariantMap();
    if (!acceptImage(description)) {
        QString text;
        QDebug(&text) << "an image that cannot be used:" << description;
        fail(text);
        return;
    }
    m_hasAnswered = true;
    m_notifier = new QSocketNotifier(m_pipe, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { readPixels(); });
}

bool KwinScreenshot::acceptImage(const QVariantMap &description)
{
    const auto number = [&description](const QString &key) { return description.value(key).toLongLong(); };
    const qint64 width = number(QStringLiteral("width"));
    const qint64 height = number(QStringLiteral("height"));
    const qint64 line = number(QStringLiteral("stride"));
    const qint64 format = number(QStringLiteral("format"));
    if (description.value(QStringLiteral("type")) != QLatin1String("raw") || !isScreenshotSize(width, height)
        || format <= QImage::Format_Invalid || format >= QImage::NImageFormats)
        return false;
    m_format = static_cast<QImage::Format>(format);
    const qint64 shortestLine = width * kPixelBits / kBitsPerByte;
    if (QImage::toPixelFormat(m_format).bitsPerPixel() != kPixelBits || line < shortestLine
        || line > shortestLine + kMaxLinePadding)
        return false;
    m_width = static_cast<int>(width);
    m_height = static_cast<int>(height);
    m_line = static_cast<int>(line);
    m_size = static_cast<size_t>(line * height);
    m_received = 0;
    m_pixels.reset(static_cast<uchar *>(std::malloc(m_size)));
    return m_pixels != nullptr;
}

void KwinScreenshot::readPixels()
{
    const ssize_t count = read(m_pipe, m_pixels.get() + m_received, m_size - m_received);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count <= 0) {
        fail(QStringLiteral("the pipe ended after %1 of %2 bytes").arg(m_received).arg(m_size));
        return;
    }
    m_received += static_cast<size_t>(count);
    if (m_received < m_size)
        return;
    uchar *pixels = m_pixels.release();
    const QImage image(pixels, m_width, m_height, m_line, m_format, std::free, pixels);
    finish();
    emit taken(image);
}

// It holds the request, and with that an end of the pipe to write to.
void KwinScreenshot::dropCall()
{
    if (!m_call)
        return;
    m_call->disconnect(this);
    m_call->deleteLater();
    m_call.clear();
}

void KwinScreenshot::finish()
{
    m_patience.stop();
    dropCall();
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier->deleteLater();
        m_notifier.clear();
    }
    if (m_pipe >= 0)
        close(std::exchange(m_pipe, -1));
    m_pixels.reset();
}

void KwinScreenshot::fail(const QString &problem)
{
    qCWarning(lcTracking).noquote() << "No screenshot by KWin:" << problem;
    finish();
    emit failed(noScreenshotText());
}
