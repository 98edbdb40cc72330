#include "data.h"

#include "model/json.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "service/replyparser.h"

#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

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

constexpr int kTasks = 50000;
constexpr int kSavedDetails = 5000;
const ListShape kShape{200, 250};
const ListShape kSmallShape{200, 25};
const ListShape kChanged{200, 250, 100};
const ListShape kEmpty{200, 0};

void parseAlone(benchmark::State &state)
{
    const QByteArray body = listBody(kShape);
    for (auto _ : state) {
        const QVariant value = QtJson::parse(textOfBody(body));
        benchmark::DoNotOptimize(value);
    }
}

// Each kept for all its runs: making one takes longer than measuring it.
Client &clientWithAllDetails()
{
    static Client client(listBody(kShape), kTasks);
    return client;
}

Client &smallClientWithAllDetails()
{
    static Client client(listBody(kSmallShape), kTasks);
    return client;
}

Client &clientWithSomeDetails()
{
    static Client client(listBody(kShape), kSavedDetails);
    return client;
}

void listUnchanged(benchmark::State &state, const ListShape &shape, Client &(*clientOf)())
{
    const QByteArray body = listBody(shape);
    Client &client = clientOf();
    client.feed(body);
    for (auto _ : state)
        client.feed(body);
}

void listChanged(benchmark::State &state, const ListShape &shape)
{
    const QByteArray before = listBody(kShape);
    const QByteArray after = listBody(shape);
    Client &client = clientWithAllDetails();
    client.feed(before);
    bool odd = false;
    for (auto _ : state) {
        odd = !odd;
        client.feed(odd ? after : before);
    }
}

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
BENCHMARK(saveUnchanged)->Unit(benchmark::kMillisecond);
BENCHMARK(saveOneSmallFile)->Unit(benchmark::kMillisecond);
BENCHMARK(saveOneTeamChanged)->Unit(benchmark::kMillisecond);
BENCHMARK(writeTaskFileOnce)->Unit(benchmark::kMillisecond);

} // namespace
