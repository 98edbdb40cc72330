#include "activityserver.h"
#include "idleclock.h"
#include "inputmeter.h"
#include "watcherport.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QTimer>

#include <chrono>
#include <cstdio>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds kInterval{1};

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
               "Сообщает программам на этом компьютере, что пользователь работает с клавиатурой\n"
               "или мышью: каждому подключённому к 127.0.0.1 — один байт за каждую такую секунду.\n"
               "\n"
               "  --port ПОРТ  порт; 0 — любой свободный. Без этого ключа порт берётся из\n"
               "               «watcher-port» в файле %1\n"
               "  --help       показать эту справку и выйти\n"
               "  --version    показать версию и выйти")
        .arg(systemConfigFile());
}

// Makes SIGTERM and SIGINT leave the event loop. Must come before anything that starts threads.
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
    const auto clock = IdleClock::open(&error);
    if (!clock)
        return fail(error);
    ActivityServer server;
    if (!server.listen(port, &error))
        return fail(error);
    print(stdout, QStringLiteral("orvana-watcher: 127.0.0.1:%1").arg(server.port()));

    InputMeter meter;
    QElapsedTimer monotonic;
    monotonic.start();
    const auto now = [&monotonic] { return std::chrono::milliseconds(monotonic.elapsed()); };
    const auto tick = [&] {
        const auto before = now();
        const auto idle = clock->idle();
        if (!idle) {
            QCoreApplication::exit(fail(QStringLiteral("потеряна связь с X-сервером")));
            return;
        }
        if (meter.isNewInput(before, now(), *idle))
            server.announce();
    };
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    timer.callOnTimeout(&application, tick);
    timer.start(kInterval);
    // The first reading, from which the first second counts.
    QTimer::singleShot(0, &application, tick);
    return QCoreApplication::exec();
}
