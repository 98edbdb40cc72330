// Lets the client work through hours at sixty times their speed while the service
// fails and its lists change every minute, and measures what grows:
// soak CLIENT HOURS
#include "fastclient.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QMap>

#include <algorithm>
#include <cstdio>

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
// A blocking task in the current team would stop the work.
const QString kOtherTeam = s("41");
const QString kPopupTitle = s("^Dialog$");

// KiB: the resident set and its anonymous part.
struct Memory
{
    qint64 rss = 0;
    qint64 own = 0;
};

struct Hour
{
    Memory memory;
    int fewestDescriptors = 0;
    int mostDescriptors = 0;
    QMap<QString, qint64> files; // largest sizes, without the log and waiting records
    qint64 log = 0;
};

class Soak final
{
public:
    Soak(const QString &client, int hours);
    Q_DISABLE_COPY_MOVE(Soak)

    bool run();

private:
    void minute();
    void changeLists();
    void startOutage();
    void countRecords();
    void sample();
    void closeHour();
    bool drained();
    bool report();

    FastClient m_client{[] {
                            localservice::Server::Options options;
                            options.recordRequests = false;
                            return options;
                        }(),
                        kSpeed, kInputPeriod, 100};
    ClientRoom &m_room = m_client.room;
    RecordWatch m_watch;
    QTimer m_minuteTimer;
    QTimer m_clearUp;
    QProcess m_popupCloser;
    QElapsedTimer m_passed;
    int m_hours;
    int m_minutes = 0;
    int m_records = 0;
    QVector<Memory> m_memory; // of this hour
    Hour m_hour;
    QVector<Hour> m_done;
};

Soak::Soak(const QString &client, int hours)
    : m_hours(hours)
{
    m_watch.add(m_room.ofUser(s("activity")));
    m_minuteTimer.setTimerType(Qt::PreciseTimer);
    m_minuteTimer.callOnTimeout(&m_minuteTimer, [this] { minute(); });
    m_clearUp.setSingleShot(true);
    m_clearUp.callOnTimeout(
        &m_clearUp, [this] { setWeather(m_room.server, Weather::Fine, *QRandomGenerator::global()); });
    m_client.start(QDir().absoluteFilePath(client), QDateTime(QDate(2026, 3, 2), QTime(8, 0)));
    m_minuteTimer.start(kMinute);
    m_passed.start();
}

// Always the same teams and tasks: what is gone stays in the session files.
void Soak::changeLists()
{
    const QDateTime now = QDateTime::currentDateTime();
    m_room.server.edit([step = m_minutes % 8, &now](World &world) {
        const QString task = s("9001");
        const QString team = s("99");
        switch (step) {
        case 0:
            return world.addTask(kOtherTeam, {task, s("Разобрать входящие")});
        case 1:
            return world.addTeam({team, s("Дежурные")});
        case 2:
        case 4:
            return world.setBlock(task, step == 2 ? s("1") : s("0"));
        case 3:
            return world.addComment(kTask, now);
        case 5:
            return world.setDeadline(kTask, now.addDays(1));
        case 6:
            return world.removeTeam(team);
        default:
            return world.removeTask(task);
        }
    });
}

// None of these accepts a report and fails to say so: each has to arrive exactly once.
void Soak::startOutage()
{
    auto &random = *QRandomGenerator::global();
    const int kinds = static_cast<int>(Weather::Rejected);
    setWeather(m_room.server, static_cast<Weather>(1 + random.bounded(kinds)), random);
    const bool isLong = m_minutes % kLongOutageEvery == 0;
    m_clearUp.start(isLong ? kMinute * kLongOutage : kMinute * 2 / 5);
}

void Soak::countRecords()
{
    m_watch.read([this](int, const QString &) { ++m_records; });
}

void Soak::sample()
{
    const QString process = s("/proc/%1/").arg(m_client.process.processId());
    QFile rollup(process + s("smaps_rollup"));
    Memory memory;
    if (rollup.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = rollup.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const qint64 value = line.simplified().split(' ').value(1).toLongLong();
            if (line.startsWith("Rss:"))
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
            // A save uses another name for a moment.
            const QString name = QDir(m_room.path(s(".orvana"))).relativeFilePath(file.filePath());
            const bool isPrevious = file.fileName().startsWith(QLatin1String(".old-"));
            if (!isPrevious
                && (name.endsWith(QLatin1String(".ini")) || name.endsWith(QLatin1String(".json"))))
                m_hour.files[name] = std::max(m_hour.files.value(name), file.fileInfo().size());
        }
    }
}

void Soak::closeHour()
{
    // The median of the last ones: a screenshot takes megabytes for a moment.
    const QVector<Memory> last = m_memory.mid(std::max(0, m_memory.size() - kSamplesAtTheHour));
    const auto middle = [&last](qint64 Memory::*kind) {
        QVector<qint64> values;
        for (const Memory &memory : last)
            values.append(memory.*kind);
        std::sort(values.begin(), values.end());
        return values.at(values.size() / 2);
    };
    m_hour.memory = {middle(&Memory::rss), middle(&Memory::own)};
    qint64 files = 0;
    for (const qint64 size : qAsConst(m_hour.files))
        files += size;
    m_done.append(m_hour);
    if (m_done.size() == 1)
        std::printf("hour  RSS KiB  own KiB  descriptors  session files  log KiB  counted  received "
                    " waiting\n");
    std::printf("%4d %8lld %8lld %6d to %2d %14lld %8lld %8d %9d %8d\n", static_cast<int>(m_done.size()),
                m_hour.memory.rss, m_hour.memory.own, m_hour.fewestDescriptors, m_hour.mostDescriptors, files,
                m_hour.log / 1024, m_records,
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
    // The user closes the popups.
    if (m_popupCloser.state() == QProcess::NotRunning)
        m_popupCloser.start(s("xdotool"),
                            {s("search"), s("--onlyvisible"), s("--name"), kPopupTitle, s("keydown"),
                             s("--window"), s("%@"), s("Escape")});
    if (m_minutes % kMinutesPerHour == 0)
        closeHour();
    if (m_done.size() == m_hours || !m_client.isRunning())
        QCoreApplication::quit();
}

bool Soak::drained()
{
    m_minuteTimer.stop();
    m_clearUp.stop();
    setWeather(m_room.server, Weather::Fine, *QRandomGenerator::global());
    QElapsedTimer passed;
    passed.start();
    // A later report has to be accepted before the waiting ones are sent.
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
    const bool stillRuns = m_client.isRunning();
    const qint64 passedMinutes = m_passed.elapsed() / kMinute.count();
    const bool isEmpty = stillRuns && drained();
    const bool endedWell = stillRuns && m_client.quit();
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
