#include "localservice/seed.h"
#include "localservice/server.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>

#include <csignal>
#include <cstdio>

#include <sys/stat.h>

namespace {

constexpr int kDefaultPort = 8443;
constexpr int kMaxPort = 65535;

// UTF-8 whatever the locale says: addresses and titles are Russian.
void print(std::FILE *stream, const QString &line)
{
    // Texts of clients must not start new lines nor control the terminal.
    constexpr int longest = 1000;
    static const QRegularExpression unprintable(QStringLiteral("[\\p{C}\\p{Zl}\\p{Zp}]"));
    const QByteArray bytes = line.left(longest).replace(unprintable, QStringLiteral(" ")).toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
}

int fail(const QString &reason)
{
    print(stderr, QStringLiteral("orvana-localservice: ") % reason);
    return 1;
}

void printHelp()
{
    std::fputs("Использование: orvana-localservice [--port N] [--data ПАПКА]\n"
               "Сервис задач на этом компьютере, чтобы пробовать клиент без настоящего сервиса.\n\n"
               "  --port N       порт на 127.0.0.1, по умолчанию 8443; 0 — любой свободный\n"
               "  --data ПАПКА   исходные данные (seed.json, создаётся при первом запуске) и всё\n"
               "                 полученное: reports.jsonl, screenshots/*.jpg и другое;\n"
               "                 без неё данные остаются в памяти\n"
               "  -h, --help     эта справка\n",
               stdout);
}

struct Arguments
{
    int port = kDefaultPort;
    QString folder;
    bool help = false;
};

bool readArguments(Arguments *arguments, QString *error)
{
    QCommandLineParser parser;
    const QCommandLineOption port(QStringLiteral("port"), QString(), QStringLiteral("N"),
                                  QString::number(kDefaultPort));
    const QCommandLineOption data(QStringLiteral("data"), QString(), QStringLiteral("FOLDER"));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    parser.addOptions({port, data, help});
    if (!parser.parse(QCoreApplication::arguments())) {
        *error = parser.errorText();
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("лишний аргумент «%1»").arg(parser.positionalArguments().constFirst());
        return false;
    }
    bool isNumber = false;
    arguments->port = parser.value(port).toInt(&isNumber);
    if (!isNumber || arguments->port < 0 || arguments->port > kMaxPort) {
        *error = QStringLiteral("«%1» — не номер порта").arg(parser.value(port));
        return false;
    }
    arguments->folder = parser.value(data);
    if (parser.isSet(data) && arguments->folder.isEmpty()) {
        *error = QStringLiteral("не указана папка данных");
        return false;
    }
    arguments->help = parser.isSet(help);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // Readers of a pipe get each line at once.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    Arguments arguments;
    QString error;
    if (!readArguments(&arguments, &error))
        return fail(error % QStringLiteral(" (справка: --help)"));
    if (arguments.help) {
        printHelp();
        return 0;
    }

    // Blocked before any thread starts, so that the signals come to sigwait() below and nowhere else.
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGINT);
    sigaddset(&endings, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr);
    // Screenshots are for the owner of the desktop only.
    ::umask(S_IRWXG | S_IRWXO);

    localservice::Server::Options options;
    options.port = arguments.port;
    options.dataFolder = arguments.folder;
    options.recordRequests = false;
    options.log = [](const QString &line) {
        print(stdout, QLocale::c().toString(QTime::currentTime(), QStringLiteral("HH:mm:ss ")) % line);
    };
    localservice::Server server(options);
    if (!server.start(&error))
        return fail(error);
    const localservice::World world = server.world();
    print(stdout,
          QStringLiteral("Сервис задач: %1 · страница: %1/ · вход: %2 / %3")
              .arg(server.baseUrl(), world.users.constFirst().login, world.users.constFirst().password));

    int signal = 0;
    sigwait(&endings, &signal);
    server.stop();
    print(stdout, QStringLiteral("Сервис остановлен"));
    return 0;
}
