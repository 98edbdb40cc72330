#include "data.h"

#include "model/json.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

namespace {

// A client that has seen the list once and has the details of every task.
class Client
{
public:
    explicit Client(const QByteArray &body)
    {
        qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(m_root.path()));
        m_orvana = std::make_unique<Orvana>();
        session()->init(QStringLiteral("user@orvana.example"), QStringLiteral("secret"));
        const QVariantList teams = QtJson::parse(QString::fromUtf8(body)).toList();
        for (const QVariant &team : teams) {
            const QVariantList tasks = team.toMap().value(QStringLiteral("tasks")).toList();
            for (const QVariant &task : tasks) {
                TaskInfo info;
                info.id = task.toMap().value(QStringLiteral("id")).toString();
                session()->addTaskInfoData(info.id, info);
            }
        }
        feed(body);
        feed(body);
        session()->save();
    }
    ~Client() { NotificationManager::instance()->destroy(); }
    Q_DISABLE_COPY_MOVE(Client)

    void feed(const QByteArray &body)
    {
        auto *reply = new ReadyReply(Orvana::TeamsAndTasks, body);
        m_orvana->replyFinished(reply);
        delete reply;
    }
    Orvana::Session *session() const { return m_orvana->session(); }
    QString path(const QString &name) const { return m_root.filePath(name); }

private:
    QTemporaryDir m_root;
    std::unique_ptr<Orvana> m_orvana;
};

const ListShape kShape {200, 250};
const ListShape kSmallShape {200, 25};
const ListShape kChanged {200, 250, 100};

void parseAlone(benchmark::State &state)
{
    const QByteArray body = listBody(kShape);
    for (auto _ : state) {
        const QVariant value = QtJson::parse(QString::fromUtf8(body));
        benchmark::DoNotOptimize(value);
    }
}

void listUnchanged(benchmark::State &state, const ListShape &shape)
{
    const QByteArray body = listBody(shape);
    Client client(body);
    for (auto _ : state)
        client.feed(body);
}

void listChanged(benchmark::State &state)
{
    const QByteArray before = listBody(kShape);
    const QByteArray after = listBody(kChanged);
    Client client(before);
    bool odd = false;
    for (auto _ : state) {
        odd = !odd;
        client.feed(odd ? after : before);
        state.PauseTiming();
        NotificationManager::instance()->destroy();
        state.ResumeTiming();
    }
}

void saveUnchanged(benchmark::State &state)
{
    Client client(listBody(kShape));
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
    const QByteArray body = listBody(kShape);
    Client client(body);
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
    const QByteArray body = listBody(kShape);
    Client client(body);
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
BENCHMARK_CAPTURE(listUnchanged, all, kShape)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(listUnchanged, tenth, kSmallShape)->Unit(benchmark::kMillisecond);
BENCHMARK(listChanged)->Unit(benchmark::kMillisecond);
BENCHMARK(saveUnchanged)->Unit(benchmark::kMillisecond);
BENCHMARK(saveOneSmallFile)->Unit(benchmark::kMillisecond);
BENCHMARK(saveOneTeamChanged)->Unit(benchmark::kMillisecond);
BENCHMARK(writeTaskFileOnce)->Unit(benchmark::kMillisecond);

// The log goes where the program's own goes, without a terminal behind it.
void swallow(QtMsgType, const QMessageLogContext &, const QString &) {}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    qInstallMessageHandler(swallow);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
