#include "localservice/server.h"
#include "servicecalls.h"

#include <QElapsedTimer>
#include <QSslSocket>
#include <QtTest>

#include <chrono>
#include <vector>

Q_DECLARE_METATYPE(localservice::Fault)

using namespace localservice;
using namespace std::chrono_literals;

class TestLocalServiceFaults final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void faults_data();
    void faults();
    void faultsTakeTurns();
    void hangingRequestsGoOn();
    void restartOnTheSamePort();
    void portIsNotShared();
    void survivesHostileConnections();

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

void TestLocalServiceFaults::init()
{
    m_server = std::make_unique<Server>();
    QString error;
    QVERIFY2(m_server->start(&error), qPrintable(error));
    m_calls = std::make_unique<ServiceCalls>(m_server->baseUrl());
}

void TestLocalServiceFaults::cleanup()
{
    m_calls.reset();
    m_server.reset();
}

void TestLocalServiceFaults::faults_data()
{
    struct Row
    {
        const char *name;
        Fault fault;
        QNetworkReply::NetworkError error;
        int status;
        QByteArray body;
        bool accepted;
    };
    Fault answeredAndAccepted = Fault::answer(500, "broken");
    answeredAndAccepted.process = true;
    using Reply = QNetworkReply;
    const QByteArray ok = "{\"status\":\"ok\"}";
    const Row rows[] = {
        {"refuse", Fault::refuse(), Reply::RemoteHostClosedError, 0, "", false},
        {"lose the reply", Fault::loseReply(), Reply::RemoteHostClosedError, 0, "", true},
        {"delay", Fault::delayed(300ms), Reply::NoError, 200, ok, true},
        {"status", Fault::answer(503, "down"), Reply::ServiceUnavailableError, 503, "down", false},
        {"strange body", Fault::answer(200, "\t<!DOCTYPE\xC0"), Reply::NoError, 200, "\t<!DOCTYPE\xC0",
         false},
        {"status but accepted", answeredAndAccepted, Reply::InternalServerError, 500, "broken", true},
        {"cut body", Fault::truncate(5), Reply::RemoteHostClosedError, 200, ok.left(5), true},
        {"cut before the body", Fault::truncate(0), Reply::RemoteHostClosedError, 200, "", true},
    };
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("accepted");
    for (const Row &row : rows) {
        QTest::newRow(row.name) << row.fault << static_cast<int>(row.error) << row.status << row.body
                                << row.accepted;
    }
}

void TestLocalServiceFaults::faults()
{
    QFETCH(Fault, fault);
    QFETCH(int, error);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(bool, accepted);
    const QString path = QStringLiteral("/api_active2");
    m_server->setFault(path, fault);
    QElapsedTimer timer;
    timer.start();
    const Answer answer = m_calls->post(path, uploadBody(report(5)));
    QCOMPARE(static_cast<int>(answer.error), error);
    QCOMPARE(answer.status, status);
    QCOMPARE(answer.body, body);
    QVERIFY(timer.elapsed() >= fault.delay.count());
    QCOMPARE(!m_server->reports().isEmpty(), accepted);
    for (const RecordedRequest &request : m_server->requestsTo(path)) {
        QCOMPARE(request.processed, accepted);
    }

    QCOMPARE(m_calls->get(QStringLiteral("/api_teams"), asAnna()).status, 200);
    m_server->clearFaults();
    QCOMPARE(m_calls->post(path, uploadBody(report(5))).body, "{\"status\":\"ok\"}");
}

void TestLocalServiceFaults::faultsTakeTurns()
{
    const QString path = QStringLiteral("/api_teams");
    Fault third = Fault::answer(404);
    third.skip = 1;
    m_server->setFault(path, Fault::answer(500), 2);
    m_server->appendFault(path, third, 1);
    m_server->setFault(QStringLiteral("*"), Fault::answer(503));
    QVector<int> seen;
    for (int i = 0; i < 5; ++i) {
        seen.append(m_calls->get(path, asAnna()).status);
    }
    m_server->clearFaults();
    seen.append(m_calls->get(path, asAnna()).status);
    QCOMPARE(seen, (QVector<int>{500, 500, 200, 404, 503, 200}));
}

void TestLocalServiceFaults::hangingRequestsGoOn()
{
    const QString path = QStringLiteral("/api_active2");
    m_server->setFault(path, Fault::hang());
    const auto patient = m_calls->startPost(path, uploadBody(report(2)));
    auto impatient = m_calls->startPost(path, uploadBody(report(4)));
    QTRY_COMPARE(m_server->requests().size(), 2);
    impatient->abort();
    QCOMPARE(m_calls->get(QStringLiteral("/api_teams"), asAnna()).status, 200);
    QVERIFY(!patient->isFinished());
    QVERIFY(m_server->reports().isEmpty());
    m_server->clearFaults();
    QCOMPARE(ServiceCalls::finish(*patient).body, "{\"status\":\"ok\"}");
    QCOMPARE(m_server->reports().size(), 1);
    QCOMPARE(m_server->reports().first().active, 2);
}

void TestLocalServiceFaults::restartOnTheSamePort()
{
    constexpr int promptly = 1000;
    const int port = m_server->port();
    m_calls->post(QStringLiteral("/api_active2"), uploadBody(report(5)));
    m_server->setFault(QStringLiteral("/api_get_task"), Fault::delayed(1h));
    m_server->setFault(QStringLiteral("/api_get_active"), Fault::hang());
    const auto delayed = m_calls->startGet(QStringLiteral("/api_get_task"), asAnna());
    const auto hanging = m_calls->startGet(QStringLiteral("/api_get_active"), asAnna());
    QTRY_COMPARE(m_server->requests().size(), 3);

    QElapsedTimer timer;
    timer.start();
    m_server->stop();
    QVERIFY2(timer.elapsed() < promptly, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(ServiceCalls::finish(*delayed).error != QNetworkReply::NoError);
    QVERIFY(ServiceCalls::finish(*hanging).error != QNetworkReply::NoError);
    QCOMPARE(m_calls->get(QStringLiteral("/api_teams"), asAnna()).error,
             QNetworkReply::ConnectionRefusedError);

    QVERIFY(m_server->start());
    QCOMPARE(m_server->port(), port);
    QCOMPARE(m_calls->get(QStringLiteral("/api_teams"), asAnna()).array().size(), 3);
    QCOMPARE(m_server->reports().size(), 1);
}

void TestLocalServiceFaults::portIsNotShared()
{
    Server::Options options;
    options.port = m_server->port();
    Server second(options);
    QString error;
    QVERIFY(!second.start(&error));
    QVERIFY2(error.contains(QString::number(options.port)), qPrintable(error));
    m_server->stop();
    QVERIFY2(second.start(&error), qPrintable(error));
}

void TestLocalServiceFaults::survivesHostileConnections()
{
    std::vector<std::unique_ptr<QSslSocket>> sockets;
    const QList<QByteArray> openings{"",
                                     "GET",
                                     "\r\n\r\n",
                                     QByteArray(20000, 'x') + "\r\n\r\n",
                                     "GET /%00%ff%zz?%=&&=%& HTTP/1.1\r\nHost: x\r\n\r\n",
                                     "POST /api_active2 HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\ndata",
                                     "POST /api_active2 HTTP/1.1\r\nContent-Length: -5\r\n\r\ndata",
                                     "PUT / HTTP/1.1\r\nContent-Length: 2\r\n\r\nab"};
    for (const QByteArray &opening : openings) {
        auto socket = std::make_unique<QSslSocket>();
        socket->setPeerVerifyMode(QSslSocket::VerifyNone);
        socket->connectToHostEncrypted(QStringLiteral("127.0.0.1"), static_cast<quint16>(m_server->port()));
        QVERIFY(socket->waitForEncrypted());
        socket->write(opening);
        socket->flush();
        sockets.push_back(std::move(socket));
    }
    auto plain = std::make_unique<QTcpSocket>();
    plain->connectToHost(QStringLiteral("127.0.0.1"), static_cast<quint16>(m_server->port()));
    QVERIFY(plain->waitForConnected());
    plain->write("GET / HTTP/1.0\r\n\r\n");
    QVERIFY(plain->waitForDisconnected());
    QCOMPARE(m_calls->get(QStringLiteral("/api_teams"), asAnna()).array().size(), 3);
    QElapsedTimer timer;
    timer.start();
    m_server->stop();
    QVERIFY(timer.elapsed() < 1000);
}

QTEST_GUILESS_MAIN(TestLocalServiceFaults)
#include "tst_localservicefaults.moc"
