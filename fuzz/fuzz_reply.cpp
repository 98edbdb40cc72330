// Replies of every kind, several one after another: what one of them stored is what
// the next one is compared with. Each is its kind, what went wrong, and its body.
#include "client.h"

#include "cannedreply.h"
#include "service/ovsession.h"

namespace {

constexpr int kMaxReplies = 12;
constexpr size_t kPopupsShown = 16; // once in so many sizes
const QNetworkReply::NetworkError kErrors[] = {
    QNetworkReply::ConnectionRefusedError, QNetworkReply::HostNotFoundError,
    QNetworkReply::UnknownNetworkError,    QNetworkReply::ProtocolUnknownError,
    QNetworkReply::TimeoutError,           QNetworkReply::InternalServerError};

std::unique_ptr<FuzzClient> s_client;
int s_attempts = 0;

CannedReply *makeReply(FuzzClient &client, Input &input)
{
    const int stage = input.byte() % 9;
    const uint8_t what = input.byte();
    // Most replies arrive.
    const auto error = what < 200 ? QNetworkReply::NoError : kErrors[what % std::size(kErrors)];
    const QString path = what % 2 == 0 ? QStringLiteral("/api_active2") : QStringLiteral("/api_screenshot");
    auto *reply = new CannedReply(input.word(), error);
    reply->setAddress(QUrl(FuzzClient::serviceUrl() + path));
    reply->setProperty("stage", stage);
    if (stage == Orvana::CheckLogin) {
        client->requestCheckLogin(what % 2 == 0 ? FuzzClient::user() : QStringLiteral("../oleg"),
                                  QStringLiteral("p"));
        reply->setProperty("login_attempt", ++s_attempts);
    } else if (stage == Orvana::TaskDetails) {
        reply->setProperty("task_id", QStringLiteral("1"));
    } else if (stage == Orvana::SendActivity) {
        client->sendTaskActivity(what % 11);
    }
    return reply;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    startFuzzing(argc, argv);
    s_client = std::make_unique<FuzzClient>();
    std::atexit([] { s_client.reset(); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzClient &client = *s_client;
    FuzzClient::showPopups(size % kPopupsShown == 0);
    Orvana::Session *session = client->session();
    session->init(FuzzClient::user(), QStringLiteral("p"));
    session->setCurrentTeamID(QStringLiteral("17"));
    session->setCurrentTaskID(QStringLiteral("1"));
    Input input(data, size);
    for (int i = 0; i < kMaxReplies && !input.isEmpty(); ++i)
        client->replyFinished(makeReply(client, input));
    client.settle();
    session->tasks();
    session->overdueTime();
    session->clear();
    return 0;
}
