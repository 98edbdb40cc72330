// A window with one label, with the client's platform settings: the least that a Qt
// Widgets program costs.
//   --defaults      Qt's own platform settings instead
//   --clock         the label shows the time, once a second
//   --request URL   one request to the service, of which nothing is made
#include <QApplication>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTime>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <memory>

namespace {

using namespace std::chrono_literals;

constexpr int kWidth = 352;
constexpr int kHeight = 148;

void useClientSettings()
{
    if (!qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION"))
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}

bool hasFlag(int argc, char **argv, const char *flag)
{
    return std::any_of(argv + 1, argv + argc,
                       [flag](const char *argument) { return qstrcmp(argument, flag) == 0; });
}

} // namespace

int main(int argc, char **argv)
{
    if (!hasFlag(argc, argv, "--defaults"))
        useClientSettings();
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();

    QLabel label(QStringLiteral("00:00:00"));
    label.setWindowTitle(QStringLiteral("Trivial"));
    label.setAlignment(Qt::AlignCenter);
    label.setFixedSize(kWidth, kHeight);
    label.show();

    QTimer timer;
    if (arguments.contains(QLatin1String("--clock"))) {
        QObject::connect(&timer, &QTimer::timeout, &label, [&label] {
            label.setText(QTime::currentTime().toString(QStringLiteral("hh:mm:ss")));
        });
        timer.setTimerType(Qt::PreciseTimer);
        timer.start(1s);
    }

    const int request = arguments.indexOf(QStringLiteral("--request"));
    std::unique_ptr<QNetworkAccessManager> network;
    if (request > 0 && request + 1 < arguments.size()) {
        network = std::make_unique<QNetworkAccessManager>();
        QObject::connect(network.get(), &QNetworkAccessManager::sslErrors, network.get(),
                         [](QNetworkReply *reply, const QList<QSslError> &) { reply->ignoreSslErrors(); });
        QObject::connect(network.get(), &QNetworkAccessManager::finished, network.get(),
                         [](QNetworkReply *reply) {
                             reply->readAll();
                             reply->deleteLater();
                         });
        network->get(QNetworkRequest(QUrl(arguments.at(request + 1))));
    }
    return QApplication::exec();
}
