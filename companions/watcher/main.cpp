#include "activityserver.h"
#include "keptsockets.h"
#include "sourcechoice.h"
#include "watcherport.h"
#include "waylandconnection.h"
#include "waylandkeeper.h"
#include "x11source.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <cstdio>
#include <optional>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

enum ExitCode { Success = 0, Failure = 1, WrongUsage = 2, Unsupported = 3 };

void print(std::FILE *stream, const QString &text)
{
    std::fputs(qUtf8Printable(text % QChar(QLatin1Char('\n'))), stream);
    std::fflush(stream);
}

ExitCode fail(const QString &text, ExitCode code = Failure)
{
    print(stderr, QStringLiteral("orvana-watcher: ") % text);
    return code;
}

QString helpText()
{
    return QStringLiteral(
               "Использование: orvana-watcher [--port ПОРТ] [--source ИСТОЧНИК]\n"
               "Сообщает программам того же пользователя, что он работает с клавиатурой или мышью:\n"
               "каждой подключённой к 127.0.0.1 — один байт за каждую такую секунду.\n"
               "\n"
               "  --port ПОРТ        порт; 0 — любой свободный. Без этого ключа порт берётся из\n"
               "                     «watcher-port» в файле %1\n"
               "  --source ИСТОЧНИК  откуда узнавать об активности: x11, ext-idle, kwin-idle или\n"
               "                     mutter. Без этого ключа — что есть в сеансе: в сеансе X11 —\n"
               "                     x11, в сеансе Wayland — первый из остальных\n"
               "  --help             показать эту справку и выйти\n"
               "  --version          показать версию и выйти")
        .arg(systemConfigFile());
}

// Makes SIGTERM and SIGINT quit the event loop. Must be called before any thread starts.
void quitOnTermination(QCoreApplication *application)
{
    sigset_t signalSet;
    sigemptyset(&signalSet);
    sigaddset(&signalSet, SIGTERM);
    sigaddset(&signalSet, SIGINT);
    const int descriptor = ::signalfd(-1, &signalSet, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0)
        return;
    ::sigprocmask(SIG_BLOCK, &signalSet, nullptr);
    auto *notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, application);
    QObject::connect(notifier, &QSocketNotifier::activated, application, &QCoreApplication::quit);
}

void say(const QString &text)
{
    print(stdout, QStringLiteral("orvana-watcher: ") % text);
}

void sayListening(const ActivityServer &server)
{
    say(QStringLiteral("127.0.0.1:%1").arg(server.port()));
}

bool isX11(std::optional<SourceKind> wanted)
{
    Session session;
    session.wanted = wanted;
    session.type = qEnvironmentVariable("XDG_SESSION_TYPE");
    // One that hangs would hold up the start: asked only where the answer counts.
    const bool isKnown = session.type == QStringLiteral("wayland") || session.type == QStringLiteral("x11");
    session.hasCompositor =
        !wanted && !isKnown && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") && WaylandConnection::open();
    return chooseSource(session) == SourceKind::X11;
}

// In an X11 session there is nothing to wait for: its server was there first, and ends last.
int watchX11(ActivityServer &server, quint16 port)
{
    QString error;
    const auto source = X11Source::open(&error);
    if (!source || !server.listen(port, &error))
        return fail(error);
    QObject::connect(source.get(), &X11Source::active, &server, &ActivityServer::announce);
    QObject::connect(source.get(), &X11Source::lost, qApp,
                     [] { QCoreApplication::exit(fail(QStringLiteral("потеряна связь с X-сервером"))); });
    sayListening(server);
    say(source->name());
    return QCoreApplication::exec();
}

// Clients are accepted at once: they do not try again.
int watchWayland(ActivityServer &server, quint16 port, std::optional<SourceKind> wanted)
{
    QString error;
    if (!server.listen(port, &error))
        return fail(error);
    sayListening(server);
    WaylandKeeper keeper(wanted);
    QObject::connect(&keeper, &WaylandKeeper::active, &server, &ActivityServer::announce);
    QObject::connect(&keeper, &WaylandKeeper::found, &server, say);
    QObject::connect(&keeper, &WaylandKeeper::waiting, &server,
                     [] { say(QStringLiteral("ожидание композитора Wayland")); });
    QObject::connect(&keeper, &WaylandKeeper::unsupported, qApp, [] {
        QCoreApplication::exit(
            fail(QStringLiteral("композитор этого сеанса Wayland не сообщает об активности"), Unsupported));
    });
    keeper.start();
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    quitOnTermination(&application);

    QCommandLineParser parser;
    const QCommandLineOption portOption(QStringLiteral("port"), QString(), QStringLiteral("port"));
    const QCommandLineOption sourceOption(QStringLiteral("source"), QString(), QStringLiteral("source"));
    const QCommandLineOption helpOption(QStringLiteral("help"));
    const QCommandLineOption versionOption(QStringLiteral("version"));
    parser.addOptions({portOption, sourceOption, helpOption, versionOption});
    if (!parser.parse(QCoreApplication::arguments()) || !parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("неверные аргументы; справка: orvana-watcher --help"), WrongUsage);
    if (parser.isSet(helpOption)) {
        print(stdout, helpText());
        return Success;
    }
    if (parser.isSet(versionOption)) {
        print(stdout, QStringLiteral("orvana-watcher " ORVANA_VERSION));
        return Success;
    }

    std::optional<SourceKind> source;
    if (parser.isSet(sourceOption)) {
        source = sourceNamed(parser.value(sourceOption));
        if (!source)
            return fail(QStringLiteral("неизвестный источник «%1»").arg(parser.value(sourceOption)),
                        WrongUsage);
    }

    quint16 port = 0;
    if (parser.isSet(portOption)) {
        bool ok = false;
        port = parser.value(portOption).toUShort(&ok);
        if (!ok)
            return fail(QStringLiteral("неверный порт «%1»").arg(parser.value(portOption)), WrongUsage);
    } else {
        port = configuredPort();
        if (port == 0)
            return fail(
                QStringLiteral("неверное значение «watcher-port» в файле %1").arg(systemConfigFile()));
    }

    ActivityServer server;
    server.restore(port, takeKeptSockets());
    return isX11(source) ? watchX11(server, port) : watchWayland(server, port, source);
}
