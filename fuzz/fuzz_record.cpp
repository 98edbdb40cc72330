// Records that wait in the activity folder: taken up, brought up to date and posted
// to nobody. Whatever they name, no file but the client's own pictures is deleted.
#include "client.h"

#include "cannedreply.h"
#include "service/ovsession.h"

#include <QDir>

#include <cstdlib>

namespace {

std::unique_ptr<FuzzClient> s_client;
QString s_bystander;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    startFuzzing(argc, argv);
    s_client = std::make_unique<FuzzClient>();
    std::atexit([] { s_client.reset(); });
    FuzzClient &client = *s_client;
    // The login opens the activity folder.
    client->session()->init(FuzzClient::user(), QStringLiteral("p"));
    client->session()->setLogged(true);
    client->session()->save();
    client.restart();
    // Inputs name it by this path: the working folder is where it lies.
    QDir::setCurrent(client.root());
    s_bystander = QStringLiteral("screenshot-of-another");
    client.put(s_bystander, "x");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzClient &client = *s_client;
    const QString record = client.activityFolder() + QStringLiteral("/json-record");
    const QString picture = client.activityFolder() + QStringLiteral("/screenshot.jpg");
    QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    bytes.replace("@picture@", picture.toUtf8());
    client.put(record, bytes);
    client.put(picture, "jpeg");
    client->sendCachedActivity();
    client.settle();
    // What is left was read and could not be delivered; once delivered it goes.
    if (QFile::exists(record)) {
        auto *reply = new CannedReply("{\"status\":\"ok\"}");
        reply->setAddress(QUrl(FuzzClient::serviceUrl() + QStringLiteral("/api_active2")));
        reply->setProperty("stage", static_cast<int>(Orvana::SendActivity));
        reply->setProperty("activityFile", record);
        client->sendCachedActivity();
        client->replyFinished(reply);
        if (QFile::exists(record))
            std::abort();
        client.settle();
    }
    if (!QFile::exists(s_bystander) || client->pendingActivityRequests() > 0)
        std::abort();
    return 0;
}
