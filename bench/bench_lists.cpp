#include "data.h"

#include "model/json.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "service/replyparser.h"

#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <map>
#include <memory>

namespace {

// A client that has seen the list once and has the details of the first tasks.
class Client
{
public:
    Client(const QByteArray &body, int details)
    {
        qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(m_root.path()));
        m_orvana = std::make_unique<Orvana>(&m_silence);
        session()->init(QStringLiteral("user@orvana.example"), QStringLiteral("secret"));
        for (int id = 1; id <= details; ++id) {
            const TaskInfo info = parseTaskAnswer("{\"message\":" + taskInfoBody(id) + '}').task;
            session()->addTaskInfoData(info.id, info);
        }
        feed(body);
        feed(body);
        session()->save();
    }
    Q_DISABLE_COPY_MOVE(Client)

    void feed(const QByteArray &body)
    {
        auto *reply = new ReadyReply(Orvana::TeamsAndTasks, body);
        m_orvana->replyFinished(reply);
        delete reply;
    }
    Orvana::Session *session() const { return m_orvana->session(); }

private:
    QTemporaryDir m_root;
    Silence m_silence;
    std::unique_ptr<Orvana> m_orvana;
};

// Making a body takes longer than most of what is measured on it.
const QByteArray &bodyOf(const ListShape &shape)
{
    static std::map<const ListShape *, QByteArray> bodies;
    QByteArray &body = bodies[&shape];
    if (body.isEmpty())
        body = listBody(shape);
    return body;
}

constexpr int kTasks = 50000;
constexpr int kSavedDetails = 5000;
const ListShape kShape{200, 250};
const ListShape kSmallShape{200, 25};
const ListShape kChanged{200, 250, 100};
const ListShape kEmpty{200, 0};

void parseAlone(benchmark::State &state)
{
    const QByteArray &body = bodyOf(kShape);
    for (auto _ : state) {
        const QVariant value = QtJson::parse(textOfBody(body));
        benchmark::DoNotOptimize(value);
    }
}

// Each kept for all its runs: making one takes longer than measuring it. Never destroyed: at
// exit the statics that a client's end uses may be gone.
Client &clientWithAllDetails()
{
    static auto &client = *new Client(bodyOf(kShape), kTasks);
    return client;
}

Client &smallClientWithAllDetails()
{
    static auto &client = *new Client(bodyOf(kSmallShape), kTasks);
    return client;
}

Client &clientWithSomeDetails()
{
    static auto &client = *new Client(bodyOf(kShape), kSavedDetails);
    return client;
}

void listUnchanged(benchmark::State &state, const ListShape &shape, Client &(*clientOf)())
{
    const QByteArray &body = bodyOf(shape);
    Client &client = clientOf();
    client.feed(body);
    client.feed(body);
    for (auto _ : state)
        client.feed(body);
}

// What any client has to do: receive the list and see that it is the last one.
void compareWithLast(benchmark::State &state)
{
    const QByteArray &body = bodyOf(kShape);
    const QByteArray last(body.constData(), body.size());
    for (auto _ : state) {
        auto *reply = new ReadyReply(Orvana::TeamsAndTasks, body);
        const QByteArray bytes = reply->readAll();
        benchmark::DoNotOptimize(bytes == last);
        delete reply;
    }
}

void listChanged(benchmark::State &state, const ListShape &shape)
{
    const QByteArray &before = bodyOf(kShape);
    const QByteArray &after = bodyOf(shape);
    Client &client = clientWithAllDetails();
    client.feed(before);
    bool odd = false;
    for (auto _ : state) {
        odd = !odd;
        client.feed(odd ? after : before);
    }
}

// Between two lists, of both of which the yardstick parses half as often.
struct Change
{
    ListShape before;
    ListShape after;
};

void shape(benchmark::State &state, const Change &change)
{
    const QByteArray &before = bodyOf(change.before);
    const QByteArray &after = bodyOf(change.after);
    Client client(before, 0);
    bool odd = false;
    for (auto _ : state) {
        odd = !odd;
        client.feed(odd ? after : before);
    }
}

void parseShape(benchmark::State &state, const Change &change)
{
    const QByteArray &before = bodyOf(change.before);
    const QByteArray &after = bodyOf(change.after);
    bool odd = false;
    for (auto _ : state) {
        odd = !odd;
        const QVariant value = QtJson::parse(textOfBody(odd ? after : before));
        benchmark::DoNotOptimize(value);
    }
}

const Change kOneTeam{{1, 50000}, {1, 50000, 100}};
const Change kOneTeamTenth{{1, 5000}, {1, 5000, 100}};
const Change kManyTeams{{5000, 10}, {5000, 10, 100}};
const Change kManyTeamsTenth{{500, 10}, {500, 10, 100}};
const Change kShared{{10, 5000, 0, 0, 1, true}, {10, 5000, 100, 0, 1, true}};
const Change kSharedTenth{{10, 500, 0, 0, 1, true}, {10, 500, 100, 0, 1, true}};
const Change kMoved{{200, 250}, {200, 250, 1}};
const Change kMovedTenth{{200, 25}, {200, 25, 1}};
const Change kHalf{{200, 250}, {200, 250, 0, 2}};
const Change kHalfTenth{{200, 25}, {200, 25, 0, 2}};
const Change kNew{{200, 250}, {200, 250, 0, 0, 100001}};
const Change kNewTenth{{200, 25}, {200, 25, 0, 0, 100001}};

void saveUnchanged(benchmark::State &state)
{
    Client &client = clientWithSomeDetails();
    client.session()->save();
    for (auto _ : state)
        client.session()->addMinuteToWorktime();
}

void saveOneSmallFile(benchmark::State &state)
{
    QTemporaryDir folder;
    QSettings settings(folder.filePath(QStringLiteral("small.ini")), QSettings::IniFormat);
    int minute = 0;
    for (auto _ : state) {
        for (int i = 0; i < 10; ++i)
            settings.setValue(QStringLiteral("key%1").arg(i), ++minute);
        settings.sync();
    }
}

void saveOneTeamChanged(benchmark::State &state)
{
    Client &client = clientWithSomeDetails();
    const QString teamId = QStringLiteral("10007");
    for (auto _ : state) {
        state.PauseTiming();
        QList<Task> tasks = client.session()->tasks(teamId);
        tasks.first().title += QLatin1Char('x');
        client.session()->addTasksData(tasks, teamId);
        state.ResumeTiming();
        client.session()->addMinuteToWorktime();
    }
}

void writeTaskFileOnce(benchmark::State &state)
{
    const Client &client = clientWithSomeDetails();
    QTemporaryDir folder;
    QSettings settings(folder.filePath(QStringLiteral("tasks.ini")), QSettings::IniFormat);
    const QList<Team> teams = client.session()->teams();
    for (const Team &team : teams)
        settings.setValue(team.id, QVariant::fromValue(client.session()->tasks(team.id)));
    settings.sync();
    for (auto _ : state) {
        settings.setValue(teams.first().id, QVariant::fromValue(client.session()->tasks(teams.first().id)));
        settings.sync();
    }
}

BENCHMARK(parseAlone)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(listUnchanged, all, kShape, clientWithAllDetails)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(listUnchanged, tenth, kSmallShape, smallClientWithAllDetails)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(listChanged, hundredth, kChanged)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(listChanged, all, kEmpty)->Unit(benchmark::kMillisecond);
BENCHMARK(compareWithLast)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, oneTeam, kOneTeam)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, oneTeamTenth, kOneTeamTenth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseShape, oneTeam, kOneTeam)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, manyTeams, kManyTeams)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, manyTeamsTenth, kManyTeamsTenth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseShape, manyTeams, kManyTeams)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, shared, kShared)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, sharedTenth, kSharedTenth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseShape, shared, kShared)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, moved, kMoved)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, movedTenth, kMovedTenth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseShape, moved, kMoved)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, half, kHalf)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, halfTenth, kHalfTenth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseShape, half, kHalf)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, new, kNew)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shape, newTenth, kNewTenth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseShape, new, kNew)->Unit(benchmark::kMillisecond);
BENCHMARK(saveUnchanged)->Unit(benchmark::kMillisecond);
BENCHMARK(saveOneSmallFile)->Unit(benchmark::kMillisecond);
BENCHMARK(saveOneTeamChanged)->Unit(benchmark::kMillisecond);
BENCHMARK(writeTaskFileOnce)->Unit(benchmark::kMillisecond);

} // namespace
