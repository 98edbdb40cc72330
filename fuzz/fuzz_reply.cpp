// Replies of every kind, several one after another: what one of them stored is what
// the next one is compared with. Each is its kind, what went wrong, and its body. What a
// body costs in time and memory must be in proportion to its length, whatever its shape.
#include "client.h"

#include "cannedreply.h"
#include "service/ovsession.h"

#include <QElapsedTimer>
#include <QFile>

#include <sanitizer/allocator_interface.h>

#include <algorithm>
#include <atomic>

namespace {

constexpr int kMaxReplies = 12;
constexpr char kRepeats = '\x01'; // starts a body of this shape
constexpr int kLongest = 1024 * 1024; // of the bodies of one input, about
// Details are stored as one group of values. QSettings reallocates its text at each value,
// and the sanitizers copy it each time, which takes long once they map it.
constexpr int kLongestDetails = 4 * 1024;
// Under the sanitizers, on a busy machine.
constexpr double kMillisecondsPerByte = 0.02;
constexpr double kAnyTime = 5000; // a thousand requests for details among it
constexpr double kLarge = 64 * 1024; // bytes
constexpr double kMemoryPerByte = 10;
constexpr double kAnyMemory = 32 * 1024 * 1024;
std::atomic<qint64> s_allocated{0};
std::atomic<qint64> s_peak{0};
const QNetworkReply::NetworkError kErrors[] = {
    QNetworkReply::ConnectionRefusedError, QNetworkReply::HostNotFoundError,
    QNetworkReply::UnknownNetworkError,    QNetworkReply::ProtocolUnknownError,
    QNetworkReply::TimeoutError,           QNetworkReply::InternalServerError};

std::unique_ptr<FuzzClient> s_client;
int s_attempts = 0;

void noteAllocation(const volatile void *, size_t size)
{
    const qint64 now = s_allocated += static_cast<qint64>(size);
    if (now > s_peak)
        s_peak = now;
}

void noteRelease(const volatile void *block)
{
    if (block)
        s_allocated -= static_cast<qint64>(__sanitizer_get_allocated_size(const_cast<const void *>(block)));
}

// A word may stand for a long body: a power of two, the head, an element that is repeated
// with a number of its own in the place of each '#', and the tail.
QByteArray makeBody(Input &input, int room)
{
    const QByteArray word = input.word();
    if (!word.startsWith(kRepeats) || word.size() < 2)
        return word;
    const QList<QByteArray> parts = word.mid(2).split(kRepeats);
    const int count = 1 << (word.at(1) & 0x0F);
    QByteArray body = parts.first();
    for (int i = 0; i < count && parts.size() > 1 && body.size() < room; ++i) {
        body += QByteArray(parts.at(1)).replace('#', QByteArray::number(i));
        body += ',';
    }
    return body + (parts.size() > 2 ? parts.at(2) : QByteArray());
}

CannedReply *makeReply(FuzzClient &client, Input &input, QByteArray *body, int room)
{
    const int stage = input.byte() % 9;
    const uint8_t what = input.byte();
    // Most replies arrive.
    const auto error = what < 200 ? QNetworkReply::NoError : kErrors[what % std::size(kErrors)];
    const QString path = what % 2 == 0 ? QStringLiteral("/api_active2") : QStringLiteral("/api_screenshot");
    *body = makeBody(input, stage == Orvana::TaskDetails ? std::min(room, kLongestDetails) : room);
    auto *reply = new CannedReply(*body, error);
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
    __sanitizer_install_malloc_and_free_hooks(noteAllocation, noteRelease);
    startFuzzing(argc, argv);
    s_client = std::make_unique<FuzzClient>();
    std::atexit([] { s_client.reset(); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzClient &client = *s_client;
    Orvana::Session *session = client->session();
    session->init(FuzzClient::user(), QStringLiteral("p"));
    session->setCurrentTeamID(QStringLiteral("17"));
    session->setCurrentTaskID(QStringLiteral("1"));
    Input input(data, size);
    double bytes = 0;
    QElapsedTimer passed;
    passed.start();
    const qint64 before = s_allocated;
    s_peak = before;
    for (int i = 0; i < kMaxReplies && !input.isEmpty(); ++i) {
        QByteArray body;
        CannedReply *reply = makeReply(client, input, &body, kLongest - static_cast<int>(bytes));
        bytes += body.size();
        client->replyFinished(reply);
    }
    client.settle();
    const double memory = static_cast<double>(s_peak - before);
    if (static_cast<double>(passed.elapsed()) > kAnyTime + bytes * kMillisecondsPerByte
        || memory > kAnyMemory + bytes * kMemoryPerByte) {
        fprintf(stderr, "%.0f bytes took %lld ms and %.0f bytes of memory\n", bytes, passed.elapsed(),
                memory);
        std::abort();
    }
    session->tasks();
    session->overdueTime();
    session->clear();
    // What a large input left on the disk is not for the next ones to read.
    for (const char *name : {"tasks.ini", "taskInfo.ini", "teams.ini"}) {
        if (bytes > kLarge)
            QFile::remove(client.userFolder() + QLatin1Char('/') + QLatin1String(name));
    }
    return 0;
}
