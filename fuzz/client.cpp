#include "client.h"

#include "base/notificationsink.h"
#include "service/ovsession.h"
#include "update/orvanaupdate.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <netdb.h>
#include <sys/socket.h>

namespace {

constexpr int kPatience = 10000; // ms

class Silence final : public NotificationSink
{
    Q_DISABLE_COPY_MOVE(Silence)

public:
    Silence() = default;

    void addNotification(const QString &, NotificationType, const QString &) override { }
    void clearForNextUser() override { }
};

// Outlives the clients, which say good-bye through it.
Silence s_silence;

} // namespace

// In the place of the system's own: whatever address an input names, nothing of it
// leaves this process.
extern "C" int socket(int, int, int) noexcept
{
    errno = EACCES;
    return -1;
}

extern "C" int getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **)
{
    return EAI_FAIL;
}

QByteArray Input::bytes(int count)
{
    const QByteArray taken(m_at, std::min(count, m_left));
    m_at += taken.size();
    m_left -= taken.size();
    return taken;
}

QByteArray Input::word()
{
    const auto *end =
        static_cast<const char *>(m_left > 0 ? std::memchr(m_at, 0, static_cast<size_t>(m_left)) : nullptr);
    const QByteArray taken = bytes(end ? static_cast<int>(end - m_at) : m_left);
    bytes(1);
    return taken;
}

FuzzClient::FuzzClient()
    : m_root((QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm") : QDir::tempPath())
             + QStringLiteral("/orvana-fuzz.XXXXXX"))
{
    qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(m_root.path()));
    qputenv("ORVANA_CONFIG", QFile::encodeName(m_root.filePath(QStringLiteral("orvanx.conf"))));
    qputenv("ORVANA_SERVICE_URL", serviceUrl().toLatin1());
    restart();
}

FuzzClient::~FuzzClient() = default;

QString FuzzClient::userFolder() const
{
    return StorageFolder::ofUser(m_orvana->storageDirectory(), user());
}

void FuzzClient::put(const QString &path, const QByteArray &bytes) const
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        std::abort();
}

void FuzzClient::settle() const
{
    QElapsedTimer passed;
    passed.start();
    do {
        if (passed.elapsed() > kPatience)
            std::abort();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    } while (m_orvana->pendingActivityRequests() > 0);
}

void FuzzClient::restart()
{
    m_orvana.reset();
    m_orvana = std::make_unique<Orvana>(&s_silence);
    OrvanaUpdate::instance()->init(m_orvana.get());
}

void startFuzzing(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // A log line for every input would be most of the work.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtFatalMsg) {
            fprintf(stderr, "%s\n", qPrintable(text));
            std::abort();
        }
    });
    static QGuiApplication application(*argc, *argv);
    QCoreApplication::setApplicationVersion(QStringLiteral("1.1.0"));
}
