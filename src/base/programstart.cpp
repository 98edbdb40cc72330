#include "base/programstart.h"

#include "x11/rootwindow.h"

#include <QByteArray>
#include <QProcess>
#include <QStringList>

#include <csignal>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kFirstOtherStream = 3;
constexpr int kStartPatience = 30000; // ms

constexpr int kSmallestDpi = 96; // the windows are drawn for, at their smallest

struct OwnVariable
{
    const char *name;
    const char *value;
    bool (*isNeeded)() = nullptr; // without one: when the user has not set it
    bool isSet = false;
    std::optional<QByteArray> usersValue{};
};

struct OwnSignal
{
    int number;
    bool isIgnored = false;
    void (*usersHandler)(int) = SIG_DFL;
};

// A terminal may stop what writes to it in the background; a file may be at its allowed
// size. Qt itself restores what happens at a broken pipe.
OwnSignal s_signals[] = {{SIGTTOU}, {SIGXFSZ}};

// Qt would draw the windows smaller than their texts. Some desktops say it in the
// variable itself.
bool isDpiTooSmall()
{
    const int dpi = qEnvironmentVariableIsSet("QT_FONT_DPI") ? qEnvironmentVariableIntValue("QT_FONT_DPI")
                                                             : configuredDpi();
    return dpi > 0 && dpi < kSmallestDpi;
}

std::optional<mode_t> s_userUmask;
OwnVariable s_variables[] = {
    // Widgets need no OpenGL; loading it takes more memory than the client.
    {"QT_XCB_GL_INTEGRATION", "none"},
    // A failed request shows that the network is away, and one is sent every minute;
    // polling the interfaces every ten seconds would be wasted.
    {"QT_BEARER_POLL_TIMEOUT", "30000"},
    // Popups have no place of their own in Wayland; an X server runs there too.
    {"QT_QPA_PLATFORM", "xcb"},
    {"QT_FONT_DPI", "96", isDpiTooSmall},
};

// Survives the closing of the client's terminal.
class SessionLeader final : public QProcess
{
protected:
    void setupChildProcess() override { setsid(); }
};

} // namespace

void setOwnSurroundings()
{
    // The storage directory holds the password and pictures of the desktop.
    s_userUmask = umask(S_IRWXG | S_IRWXO);
    for (OwnSignal &own : s_signals) {
        own.usersHandler = std::signal(own.number, SIG_IGN);
        own.isIgnored = true;
    }
    for (OwnVariable &variable : s_variables) {
        const bool isUsers = qEnvironmentVariableIsSet(variable.name);
        if (isUsers)
            variable.usersValue = qgetenv(variable.name);
        variable.isSet = variable.isNeeded ? variable.isNeeded() : !isUsers;
        if (variable.isSet)
            qputenv(variable.name, variable.value);
    }
}

UserSurroundings::UserSurroundings()
    : m_umask(umask(0))
{
    for (const OwnSignal &own : s_signals) {
        if (own.isIgnored)
            std::signal(own.number, own.usersHandler);
    }
    umask(s_userUmask.value_or(m_umask));
    for (const OwnVariable &variable : s_variables) {
        if (variable.isSet && variable.usersValue)
            qputenv(variable.name, *variable.usersValue);
        else if (variable.isSet)
            qunsetenv(variable.name);
    }
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int stream = 0; stream < kFirstOtherStream; ++stream) {
        int &copy = m_streams.at(static_cast<size_t>(stream));
        copy = null < 0 ? -1 : fcntl(stream, F_DUPFD_CLOEXEC, kFirstOtherStream);
        if (copy >= 0)
            dup2(null, stream);
    }
    // One that was closed has just been opened as the null device.
    if (null >= kFirstOtherStream)
        close(null);
}

UserSurroundings::~UserSurroundings()
{
    for (int stream = 0; stream < kFirstOtherStream; ++stream) {
        const int copy = m_streams.at(static_cast<size_t>(stream));
        if (copy >= 0) {
            dup2(copy, stream);
            close(copy);
        }
    }
    for (const OwnVariable &variable : s_variables) {
        if (variable.isSet)
            qputenv(variable.name, variable.value);
    }
    umask(m_umask);
    for (const OwnSignal &own : s_signals) {
        if (own.isIgnored)
            std::signal(own.number, SIG_IGN);
    }
}

// Not by QProcess::startDetached(), which leaves the program ignoring broken pipes.
bool startProgram(const QString &name, const QStringList &arguments)
{
    // Deleting it would end the program.
    auto *program = new SessionLeader;
    QObject::connect(program, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), program,
                     &QObject::deleteLater);
    program->setInputChannelMode(QProcess::ForwardedInputChannel);
    program->setProcessChannelMode(QProcess::ForwardedChannels);
    {
        const UserSurroundings surroundings;
        program->start(name, arguments);
    }
    if (program->waitForStarted(kStartPatience))
        return true;
    program->deleteLater();
    return false;
}
