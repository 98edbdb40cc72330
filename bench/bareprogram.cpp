// bareprogram FILE LIST [REPORT BODY]: the least that the client's duties cost. Asks once a
// second when the file was changed, once a minute for the list, and posts the body as often.
// Without a window.
#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <chrono>
#include <cstdio>

#include <sys/stat.h>

using namespace std::chrono_literals;

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 5) {
        std::fputs("Usage: bareprogram FILE LIST [REPORT BODY]\n", stderr);
        return 1;
    }
    const QCoreApplication application(argc, argv);

    QNetworkAccessManager network;
    QObject::connect(&network, &QNetworkAccessManager::sslErrors, &network,
                     [](QNetworkReply *reply, const QList<QSslError> &) { reply->ignoreSslErrors(); });
    QObject::connect(&network, &QNetworkAccessManager::finished, &network, [](QNetworkReply *reply) {
        reply->readAll();
        reply->deleteLater();
    });
    const auto ask = [&network, argc, argv] {
        network.get(QNetworkRequest(QUrl(QString::fromLocal8Bit(argv[2]))));
        if (argc < 5)
            return;
        QNetworkRequest report(QUrl(QString::fromLocal8Bit(argv[3])));
        report.setHeader(QNetworkRequest::ContentTypeHeader,
                         QStringLiteral("application/x-www-form-urlencoded"));
        network.post(report, QByteArray(argv[4]));
    };

    QTimer second;
    second.setTimerType(Qt::PreciseTimer);
    QObject::connect(&second, &QTimer::timeout, &second, [argv] {
        struct stat info = {};
        stat(argv[1], &info);
    });
    second.start(1s);

    QTimer minute;
    QObject::connect(&minute, &QTimer::timeout, &minute, ask);
    minute.start(1min);
    ask();
    return QCoreApplication::exec();
}
