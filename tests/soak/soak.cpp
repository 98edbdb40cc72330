// Lets the client work through hours at sixty times their speed while the service
// fails and its lists change every minute, and looks at what grows:
// soak CLIENT HOURS
#include "clientroom.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QRandomGenerator>
#include <QSocketNotifier>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>

#include <sys/inotify.h>
#include <unistd.h>

using localservice::Fault;
using localservice::Outage;
using localservice::World;
using namespace std::chrono_literals;

namespace {

constexpr int kSpeed = 60;
constexpr auto kMinute = 1000ms; // of the client's time
constexpr int kMinutesPerHour = 60;
constexpr auto kInputPeriod = 40ms;
constexpr int kLongOutageEvery = 15; // minutes
constexpr int kLongOutage = 5; // minutes
constexpr auto kPatience = 30s;
constexpr double kMemoryGrowth = 1.05;
constexpr qint64 kFileGrowth = 256; // bytes: a date or a number may get longer
constexpr double kFewestMinutes = 0.95; // of those that have passed
constexpr int kSamplesAtTheHour = 10;
const QString kTask = s("1702");
// A blocking task in the team one works for would stop the work.
const QString kOtherTeam = s("41");
const QString kPopupTitle = s("^Dialog$");

// KiB. What is shared counts in the second in full, in the first by the number of
// programs that happen to share it, in the third not at all.
struct Memory
{
    qint64 pss = 0;
    qint64 rss = 0;
    qint64 own = 0;
};

struct Hour
{
    Memory memory;
    // Connections come and go.
    int fewestDescriptors = 0;
    int mostDescriptors = 0;
    QMap<QString, qint64> files; // largest sizes, but for the log and what waits to be sent
    qint64 log = 0;
};

class Soak final
{
public:
    Soak(const QString &client, int hours);
    Q_DISABLE_COPY_MOVE(Soak)
    ~Soak() { ::close(m_inotify); }

    bool run();

private:
    void startClient(const QString &program);
    void minute();
    void changeLists();
    void startOutage();
    void countRecords();
    void sample();
    void closeHour();
    bool drained();
    bool report();

    ClientRoom m_room{[] {
        localservice::Server::Options options;
        options.recordRequests = false;
        return options;
    }()};
    QTimer m_input;
    QTimer m_minuteTimer;
    QTimer m_clearUp;
    QProcess m_client;
    QProcess m_popupCloser;
    QElapsedTimer m_passed;
    int m_hours;
    int m_minutes = 0;
    int m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    int m_records = 0;
    QVector<Memory> m_memory; // of this hour
    Hour m_hour;
    QVector<Hour> m_done;
};

Soak::Soak(const QString &client, int hours)
    : m_hours(hours)
{
    m_room.leaveUser(true);
    const QByteArray cache = QFile::encodeName(m_room.ofUser(s("activity")));
    if (inotify_add_watch(m_inotify, cache.constData(), IN_MOVED_TO) < 0)
        qFatal("the folder cannot be watched");

    QObject::connect(&m_input, &QTimer::timeout, &m_room.watcher, [this] {
        const auto clients = m_room.watcher.findChildren<QTcpSocket *>();
        for (QTcpSocket *socket : clients)
            socket->write("a");
    });
    QObject::connect(&m_room.watcher, &QTcpServer::newConnection, &m_room.watcher, [this] {
        while (m_room.watcher.nextPendingConnection()) { }
    });
    m_minuteTimer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_minuteTimer, &QTimer::timeout, &m_room.watcher, [this] { minute(); });
    m_clearUp.setSingleShot(true);
    QObject::connect(&m_clearUp, &QTimer::timeout, &m_room.watcher, [this] {
        m_room.server.setOutage(Outage::None);
        m_room.server.clearFaults();
    });
    startClient(client);
    m_input.start(kInputPeriod);
    m_minuteTimer.start(kMinute);
    m_passed.start();
}

void Soak::startClient(const QString &program)
{
    m_client.setProcessEnvironment(m_room.environment(s("@2026-03-02 08:00:00 x%1").arg(kSpeed)));
    m_client.setStandardOutputFile(QProcess::nullDevice());
    m_client.setStandardErrorFile(QProcess::nullDevice());
    m_client.setWorkingDirectory(m_room.path());
    m_client.start(QDir().absoluteFilePath(program), QStringList());
    if (!m_client.waitForStarted())
        qFatal("the client does not start");
}

// Over and over the same teams and tasks: what is gone stays in the session files.
void Soak::changeLists()
{
    const int step = m_minutes;
    const QDateTime now = QDateTime::currentDateTime();
    m_room.server.edit([step, &now](World &world) {
        localservice::Task task;
        task.id = s("9001");
        task.title = s("Разобрать входящие");
        localservice::Team team;
        team.id = s("99");
        team.name = s("Дежурные");
        const std::array<
            bool (*)(World &, const localservice::Task &, const localservice::Team &, const QDateTime &), 8>
            changes{
                [](World &w, const auto &t, const auto &, const auto &) { return w.addTask(kOtherTeam, t); },
                [](World &w, const auto &, const auto &g, const auto &) { return w.addTeam(g); },
                [](World &w, const auto &t, const auto &, const auto &) { return w.setBlock(t.id, s("1")); },
                [](World &w, const auto &, const auto &, const auto &when) {
                    return w.addComment(kTask, when);
                },
                [](World &w, const auto &t, const auto &, const auto &) { return w.setBlock(t.id, s("0")); },
                [](World &w, const auto &, const auto &, const auto &when) {
                    return w.setDeadline(kTask, when.addDays(1));
                },
                [](World &w, const auto &, const auto &g, const auto &) { return w.removeTeam(g.id); },
                [](World &w, const auto &t, const auto &, const auto &) { return w.removeTask(t.id); },
            };
        changes.at(static_cast<size_t>(step) % changes.size())(world, task, team, now);
    });
}

// None of these takes a report and fails to say so: each is to arrive exactly once.
void Soak::startOutage()
{
    const QString all = s("*");
    switch (QRandomGenerator::global()->bounded(6)) {
    case 0:
        m_room.server.setOutage(Outage::Unavailable);
        break;
    case 1:
        m_room.server.setOutage(Outage::Dropped);
        break;
    case 2:
        m_room.server.setFault(all, Fault::hang());
        break;
    case 3:
        m_room.server.setFault(all, Fault::answer(500, "oops"));
        break;
    case 4:
        m_room.server.setFault(all, Fault::delayed(100ms));
        break;
    default:
        m_room.server.setFault(s("/api_active2"), Fault::answer(200, "\t<!DOCTYPE html>"));
    }
    const bool isLong = m_minutes % kLongOutageEvery == 0;
    m_clearUp.start(isLong ? kMinute * kLongOutage : kMinute * 2 / 5);
}

void Soak::countRecords()
{
    alignas(inotify_event) std::array<char, 64 * 1024> buffer;
    for (ssize_t size; (size = read(m_inotify, buffer.data(), buffer.size())) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer.data() + at);
            if (event->mask & IN_Q_OVERFLOW)
                qFatal("records went unseen");
            m_records += std::strncmp(event->name, "json", 4) == 0 ? 1 : 0;
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
}

void Soak::sample()
{
    const QString process = s("/proc/%1/").arg(m_client.processId());
    QFile rollup(process + s("smaps_rollup"));
    Memory memory;
    if (rollup.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = rollup.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const qint64 value = line.simplified().split(' ').value(1).toLongLong();
            if (line.startsWith("Pss:"))
                memory.pss = value;
            else if (line.startsWith("Rss:"))
                memory.rss = value;
            else if (line.startsWith("Anonymous:"))
                memory.own = value;
        }
    }
    m_memory.append(memory);
    const int open = QDir(process + s("fd")).entryList(QDir::AllEntries | QDir::System).size();
    m_hour.fewestDescriptors =
        m_hour.fewestDescriptors == 0 ? open : std::min(m_hour.fewestDescriptors, open);
    m_hour.mostDescriptors = std::max(m_hour.mostDescriptors, open);
    QDirIterator file(m_room.path(s(".orvana")), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (file.hasNext()) {
        file.next();
        if (file.fileName() == QLatin1String("log.log"))
            m_hour.log = file.fileInfo().size();
        else if (!file.filePath().contains(QLatin1String("/activity/"))) {
            // A save replaces the whole file under a name that is gone at once.
            const QString name = QDir(m_room.path(s(".orvana"))).relativeFilePath(file.filePath());
            const bool isPrevious = file.fileName().startsWith(QLatin1String(".old-"));
            if (!isPrevious && (name.endsWith(QLatin1String(".ini")) || name.endsWith(QLatin1String(".json"))))
                m_hour.files[name] = std::max(m_hour.files.value(name), file.fileInfo().size());
        }
    }
}

void Soak::closeHour()
{
    // The middle one of the last: a picture of the desktop takes megabytes for a moment.
    const QVector<Memory> last = m_memory.mid(std::max(0, m_memory.size() - kSamplesAtTheHour));
    const auto middle = [&last](qint64 Memory::*kind) {
        QVector<qint64> values;
        for (const Memory &memory : last)
            values.append(memory.*kind);
        std::sort(values.begin(), values.end());
        return values.at(values.size() / 2);
    };
    m_hour.memory = {middle(&Memory::pss), middle(&Memory::rss), middle(&Memory::own)};
    qint64 files = 0;
    for (const qint64 size : qAsConst(m_hour.files))
        files += size;
    m_done.append(m_hour);
    if (m_done.size() == 1)
        std::printf("hour  Pss KiB  RSS KiB  own KiB  descriptors  session files  log KiB  counted  received "
                    " waiting\n");
    std::printf("%4d %8lld %8lld %8lld %6d to %2d %14lld %8lld %8d %9d %8d\n",
                static_cast<int>(m_done.size()), m_hour.memory.pss, m_hour.memory.rss, m_hour.memory.own,
                m_hour.fewestDescriptors, m_hour.mostDescriptors, files, m_hour.log / 1024, m_records,
                static_cast<int>(m_room.server.reports().size() + m_room.server.screenshots().size()),
                m_room.waiting());
    std::fflush(stdout);
    m_hour = {};
    m_memory.clear();
}

void Soak::minute()
{
    ++m_minutes;
    countRecords();
    sample();
    changeLists();
    if (!m_clearUp.isActive())
        startOutage();
    // Somebody reads the popups and closes them.
    if (m_popupCloser.state() == QProcess::NotRunning)
        m_popupCloser.start(s("xdotool"),
                            {s("search"), s("--onlyvisible"), s("--name"), kPopupTitle, s("keydown"),
                             s("--window"), s("%@"), s("Escape")});
    if (m_minutes % kMinutesPerHour == 0)
        closeHour();
    if (m_done.size() == m_hours || m_client.state() == QProcess::NotRunning)
        QCoreApplication::quit();
}

bool Soak::drained()
{
    m_minuteTimer.stop();
    m_clearUp.stop();
    m_room.server.setOutage(Outage::None);
    m_room.server.clearFaults();
    QElapsedTimer passed;
    passed.start();
    // A later report has to get through before what waits is taken up.
    const int before = m_records;
    while (passed.elapsed() < std::chrono::milliseconds(kPatience).count()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        countRecords();
        if (m_records > before && m_room.waiting() == 0)
            return true;
    }
    return false;
}

bool Soak::run()
{
    QCoreApplication::exec();
    return report();
}

bool Soak::report()
{
    const bool stillRuns = m_client.state() == QProcess::Running;
    const qint64 passedMinutes = m_passed.elapsed() / kMinute.count();
    const bool isEmpty = stillRuns && drained();
    m_client.terminate();
    const bool endedWell = stillRuns && m_client.waitForFinished()
        && m_client.exitStatus() == QProcess::NormalExit && m_client.exitCode() == 0;
    countRecords();
    const int reports = m_room.server.reports().size();
    const int pictures = m_room.server.screenshots().size();
    std::printf("%lld minutes passed; %d reports and pictures counted, %d + %d received, %d waiting\n",
                passedMinutes, m_records, reports, pictures, m_room.waiting());

    bool good = true;
    const auto check = [&good](bool holds, const char *what) {
        if (!holds)
            std::printf("FAILED: %s\n", what);
        good = good && holds;
    };
    check(stillRuns, "the client runs to the end");
    check(endedWell, "the client ends well");
    check(isEmpty, "everything is delivered in the end");
    check(m_records == reports + pictures, "what was counted arrives, once");
    check(reports >= static_cast<double>(passedMinutes) * kFewestMinutes, "every minute is counted");
    if (m_done.size() < 2)
        return false;
    const Hour &first = m_done.constFirst();
    const Hour &last = m_done.constLast();
    const auto growth = [&](qint64 Memory::*kind) {
        return static_cast<double>(last.memory.*kind) / static_cast<double>(first.memory.*kind);
    };
    std::printf("memory at the end, of that after the first hour: RSS %.1f %%, own %.1f %%\n",
                100 * growth(&Memory::rss), 100 * growth(&Memory::own));
    check(growth(&Memory::rss) <= kMemoryGrowth && growth(&Memory::own) <= kMemoryGrowth, "memory stays");
    check(last.fewestDescriptors <= first.mostDescriptors, "descriptors stay");
    check(last.files.keys() == first.files.keys(), "no file comes or goes");
    for (auto it = last.files.cbegin(); it != last.files.cend(); ++it) {
        if (it.value() <= first.files.value(it.key()) + kFileGrowth)
            continue;
        std::printf("%s: %lld bytes, then %lld\n", qPrintable(it.key()), first.files.value(it.key()),
                    it.value());
        check(false, "no file but the log grows");
    }
    return good;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2)
        qFatal("soak CLIENT [HOURS]");
    const int hours = std::max(2, arguments.value(2, s("24")).toInt());
    return Soak(arguments.at(1), hours).run() ? 0 : 1;
}
