#include "activityserver.h"
#include "inputwatch.h"
#include "watcherport.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <cstdio>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

enum ExitCode { Success = 0, Failure = 1, WrongUsage = 2 };

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
               "Использование: orvana-watcher [--port ПОРТ]\n"
               "Сообщает программам того же пользователя, что он работает с клавиатурой или мышью:\n"
               "каждой подключённой к 127.0.0.1 — один байт за каждую такую секунду.\n"
               "\n"
               "  --port ПОРТ  порт; 0 — любой свободный. Без этого ключа порт берётся из\n"
               "               «watcher-port» в файле %1\n"
               "  --help       показать эту справку и выйти\n"
               "  --version    показать версию и выйти")
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

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    quitOnTermination(&application);

    QCommandLineParser parser;
    const QCommandLineOption portOption(QStringLiteral("port"), QString(), QStringLiteral("port"));
    const QCommandLineOption helpOption(QStringLiteral("help"));
    const QCommandLineOption versionOption(QStringLiteral("version"));
    parser.addOptions({portOption, helpOption, versionOption});
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

    QString error;
    const auto input = InputWatch::open(&error);
    if (!input)
        return fail(error);
    ActivityServer server;
    if (!server.listen(port, &error))
        return fail(error);
    QObject::connect(input.get(), &InputWatch::active, &server, &ActivityServer::announce);
    QObject::connect(input.get(), &InputWatch::lost, &application,
                     [] { QCoreApplication::exit(fail(QStringLiteral("потеряна связь с X-сервером"))); });
    print(stdout, QStringLiteral("orvana-watcher: 127.0.0.1:%1").arg(server.port()));
    return QCoreApplication::exec();
}
