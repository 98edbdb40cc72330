#include "data.h"

#include "app/loghandler.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/mainform.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

// How long the window stands still for one reply, whatever is in it: the reply itself, what
// the windows and popups make of it, and the save at the end of the minute.

namespace {

using namespace std::chrono_literals;

constexpr auto kSettling = 300ms; // until the windows are made

using MakeBody = std::function<QByteArray(int bytes, int version)>;

// A list of elements, as many as fit.
QByteArray filled(const QByteArray &head, const std::function<QByteArray(int)> &element,
                  const QByteArray &tail, int bytes)
{
    QByteArray body = head;
    body.reserve(bytes + 1024);
    for (int i = 0; body.size() + tail.size() < bytes; ++i)
        body += (i > 0 ? "," : "") + element(i);
    return body + tail;
}

QByteArray oneTeam(const std::function<QByteArray(int)> &element, int bytes)
{
    return filled("[{\"id\":\"1\",\"name\":\"T\",\"tasks\":[", element, "]}]", bytes);
}

QByteArray task(int id, const QByteArray &deadline)
{
    return "{\"id\":\"" + QByteArray::number(id) + "\",\"title\":\"t\",\"deadline\":\"" + deadline
        + " 10:00:00\",\"block\":\"0\"}";
}

QByteArray usualTeams(int bytes, int version)
{
    QByteArray body = listBodyOfSize(bytes - bytes / 32);
    if (version == 1)
        body.replace(QByteArrayLiteral("\"deadline\":\"2026"), QByteArrayLiteral("\"deadline\":\"2030"));
    if (version == 2)
        body.replace(QByteArrayLiteral("\"id\":\""), QByteArrayLiteral("\"id\":\"x"));
    return body;
}

QByteArray smallTasks(int bytes, int version)
{
    return oneTeam(
        [&](int i) -> QByteArray {
            return "{\"id\":\"" + QByteArray::number(i + version * 10000000) + "\"}";
        },
        bytes);
}

QByteArray emptyTasks(int bytes, int version)
{
    return oneTeam([](int) { return QByteArrayLiteral("{}"); }, version == 0 ? 0 : bytes);
}

QByteArray movedTasks(int bytes, int version)
{
    return oneTeam(
        [&](int i) -> QByteArray { return task(i + 1, version % 2 ? "2026-01-01" : "2027-01-01"); }, bytes);
}

QByteArray smallTeams(int bytes, int version)
{
    return filled(
        "[",
        [&](int i) -> QByteArray { return "{\"id\":\"" + QByteArray::number(i + version * 1000000) + "\"}"; },
        "]", bytes);
}

// Every task in each of ten teams.
QByteArray sharedTasks(int bytes, int version)
{
    QByteArray tasks;
    for (int i = 1; tasks.size() < bytes / 10 - 60; ++i)
        tasks += (i > 1 ? "," : "") + task(i, version % 2 ? "2026-01-01" : "2027-01-01");
    return filled(
        "[",
        [&](int i) -> QByteArray {
            return "{\"id\":\"" + QByteArray::number(i) + "\",\"tasks\":[" + tasks + "]}";
        },
        "]", bytes - tasks.size() / 2);
}

// The same team again and again.
QByteArray repeatedTeam(int bytes, int version)
{
    return filled(
        "[",
        [&](int i) -> QByteArray {
            return "{\"id\":\"1\",\"tasks\":[" + task(i % 2 + version, "2026-01-01") + "]}";
        },
        "]", bytes);
}

QByteArray repeatedTask(int bytes, int version)
{
    return oneTeam([&](int) { return task(1, version % 2 ? "2026-01-01" : "2027-01-01"); }, bytes);
}

QByteArray longTitle(int bytes, int version)
{
    return "[{\"id\":\"1\",\"name\":\"T\",\"tasks\":[{\"id\":\"7\",\"title\":\""
        + QByteArray(bytes - 100, version % 2 ? 'a' : 'b') + "\"}]}]";
}

QByteArray escapes(int bytes, int version)
{
    return "[{\"id\":\"1\",\"name\":\"T\",\"tasks\":[{\"id\":\"7\",\"title\":\""
        + QByteArray(version % 2 ? "\\u0416" : "\\u0417").repeated((bytes - 100) / 6) + "\"}]}]";
}

QByteArray deep(int bytes, int)
{
    const QByteArray nest = QByteArray(990, '[') + QByteArray(990, ']');
    return filled(
        "[", [&](int) { return nest; }, "]", bytes - nest.size());
}

QByteArray details(int bytes, const QByteArray &list, const QByteArray &element)
{
    return filled(
        "{\"status\":\"ok\",\"message\":{\"id\":\"7\",\"title\":\"t\",\"" + list + "\":[",
        [&](int) { return element; }, "]}}", bytes);
}

QByteArray files(int bytes, int)
{
    return details(bytes, "files", "{\"id\":\"1\",\"filename\":\"a\"}");
}

QByteArray texts(int bytes, int)
{
    return details(
        bytes, "texts",
        "{\"id\":\"1\",\"page\":\"http://x/y?z=1\",\"keywords\":[{\"id\":\"1\",\"keyword\":\"k\"}]}");
}

QByteArray longText(int bytes, int)
{
    return "{\"status\":\"ok\",\"message\":{\"id\":\"7\",\"title\":\"t\",\"text\":\""
        + QByteArray(bytes - 100, 'x') + "\"}}";
}

struct Shape
{
    const char *name;
    Orvana::Stage stage;
    MakeBody make;
};

const std::vector<Shape> &shapes()
{
    static const std::vector<Shape> all{
        {"usual teams", Orvana::TeamsAndTasks, usualTeams},
        {"small tasks", Orvana::TeamsAndTasks, smallTasks},
        {"empty tasks", Orvana::TeamsAndTasks, emptyTasks},
        {"moved deadlines", Orvana::TeamsAndTasks, movedTasks},
        {"small teams", Orvana::TeamsAndTasks, smallTeams},
        {"tasks of ten teams", Orvana::TeamsAndTasks, sharedTasks},
        {"one team repeated", Orvana::TeamsAndTasks, repeatedTeam},
        {"one task repeated", Orvana::TeamsAndTasks, repeatedTask},
        {"long title", Orvana::TeamsAndTasks, longTitle},
        {"escapes", Orvana::TeamsAndTasks, escapes},
        {"nesting", Orvana::TeamsAndTasks, deep},
        {"files", Orvana::TaskDetails, files},
        {"texts", Orvana::TaskDetails, texts},
        {"long text", Orvana::TaskDetails, longText},
    };
    return all;
}

// The longest hold, ms.
double hold(const Shape &shape, int bytes)
{
    QTemporaryDir root;
    qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(root.path()));
    // Nobody listens.
    qputenv("ORVANA_SERVICE_URL", "https://127.0.0.1:9");
    double longest = 0;
    const auto timed = [&longest](const std::function<void()> &work) {
        QElapsedTimer timer;
        timer.start();
        work();
        longest = std::max(longest, static_cast<double>(timer.nsecsElapsed()) / 1e6);
    };
    Orvana orvana(NotificationManager::instance());
    openLogFile(orvana.storageDirectory().filePath(QStringLiteral("log.log")));
    Orvana::Session *session = orvana.session();
    session->init(QStringLiteral("user@orvana.example"), QStringLiteral("secret"));
    MainForm mainForm(&orvana);
    mainForm.show();
    orvana.changeTask(QStringLiteral("1"), QStringLiteral("7"));
    QTimer::singleShot(kSettling, &mainForm, &QCoreApplication::quit);
    QCoreApplication::exec();
    for (const int version : {0, 1, 1, 0, 2, 3}) {
        auto *reply = new ReadyReply(shape.stage, shape.make(bytes, version));
        timed([&] { orvana.replyFinished(reply); });
        timed([] { QCoreApplication::processEvents(); });
        timed([&] { session->addMinuteToWorktime(); });
    }
    NotificationManager::instance()->destroy();
    closeLogFile();
    return longest;
}

void longestHold(benchmark::State &state, int bytes)
{
    for (auto _ : state) {
        double longest = 0;
        for (const Shape &shape : shapes()) {
            const double ms = hold(shape, bytes);
            state.counters[shape.name] = ms;
            longest = std::max(longest, ms);
        }
        state.counters["hold_ms"] = longest;
    }
}

BENCHMARK_CAPTURE(longestHold, small, 1000 * 1000)->Iterations(1);
BENCHMARK_CAPTURE(longestHold, large, 32 * 1000 * 1000)->Iterations(1);

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    installLogHandler();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
