// soak CLIENT HOURS: lets the client work through hours at sixty times their speed while the service
// fails and its lists change every minute, and measures what grows.
#include "fastclient.h"
#include "files.h"

#include <cstdio>

using namespace std::chrono_literals;

namespace {

constexpr int kSpeed = 60;
constexpr auto kMinute = 1000ms; // of the client's time
constexpr int kMinutesPerHour = 60;
constexpr auto kPatience = 30s;
constexpr double kMemoryGrowth = 1.05;
constexpr qint64 kFileGrowth = 256; // bytes: a date or a number may get longer
constexpr double kFewestMinutes = 0.95; // of those that have passed

struct Hour
{
    // KiB, the least of the last minutes: a screenshot takes megabytes for a moment.
    qint64 resident = INT64_MAX;
    qint64 own = INT64_MAX;
    int fewestDescriptors = INT_MAX;
    int mostDescriptors = 0;
    qint64 fileBytes = 0; // of settings and lists, the most
    int files = 0;
};

class Soak final
{
public:
    Soak(const QString &client, int hours)
        : m_hours(hours)
    {
        m_watch.add(m_room.ofUser(s("activity")));
        m_minuteTimer.setTimerType(Qt::PreciseTimer);
        m_minuteTimer.callOnTimeout(&m_minuteTimer, [this] { minute(); });
        m_clearUp.setSingleShot(true);
        m_clearUp.callOnTimeout(&m_clearUp, [this] { setFine(); });
        m_client.start(QDir().absoluteFilePath(client), QDateTime(QDate(2026, 3, 2), QTime(8, 0)));
        m_minuteTimer.start(kMinute);
        m_passed.start();
        std::puts("hour  RSS KiB  own KiB  descriptors  session files  log KiB  counted  received  waiting");
    }

    bool report()
    {
        const bool stillRuns = m_client.isRunning();
        const qint64 passedMinutes = m_passed.elapsed() / kMinute.count();
        const bool isEmpty = stillRuns && drained();
        const bool endedWell = stillRuns && m_client.quit();
        countRecords();
        const int reports = m_room.server.reports().size();
        std::printf("%lld minutes passed; %d reports and pictures counted, %d + %d received, %d waiting\n",
                    passedMinutes, m_records, reports, received() - reports, m_room.waiting());

        const Hour first = m_done.value(0);
        const Hour last = m_done.value(m_done.size() - 1);
        // In the first hour, or soon after it, the heap grows once by half a megabyte.
        const Hour second = m_done.value(1);
        const double resident = static_cast<double>(last.resident) / static_cast<double>(second.resident);
        const double own = static_cast<double>(last.own) / static_cast<double>(second.own);
        std::printf("memory at the end, of that after the second hour: RSS %.1f %%, own %.1f %%\n",
                    100 * resident, 100 * own);
        const QMap<QString, bool> rules{
            {s("the client runs to the end"), stillRuns && m_done.size() > 2},
            {s("the client ends well"), endedWell},
            {s("everything is delivered in the end"), isEmpty},
            {s("what was counted arrives, once"), m_records == received()},
            {s("journal and service agree in every minute"), journalAgrees()},
            {s("every minute is counted"), reports >= static_cast<double>(passedMinutes) * kFewestMinutes},
            {s("memory stays"), std::max(resident, own) <= kMemoryGrowth},
            {s("descriptors stay"), last.fewestDescriptors <= first.mostDescriptors},
            {s("no file comes or goes"), last.files == first.files},
            {s("no file but the log grows"), last.fileBytes <= first.fileBytes + kFileGrowth}};
        const QStringList broken = rules.keys(false);
        for (const QString &rule : broken)
            std::printf("FAILED: %s\n", qPrintable(rule));
        return broken.isEmpty();
    }

private:
    // Of each task and activity: the clocks run at different speeds.
    bool journalAgrees() const
    {
        QProcess minutes;
        const QString journal = m_room.path(s("minutes.json"));
        minutes.setProcessEnvironment(m_room.environment());
        minutes.setStandardOutputFile(journal);
        minutes.start(s(ORVANA_MINUTES_EXECUTABLE), texts({"--month=2026-03", "--json", "--check"}));
        minutes.waitForFinished();
        QProcess comparison;
        comparison.setProcessChannelMode(QProcess::ForwardedChannels);
        comparison.start(s(COMPARE_MINUTES),
                         {s("--counts"), journal, m_room.server.baseUrl() + s("/minutes")});
        comparison.waitForFinished();
        return minutes.exitCode() == 0 && comparison.exitCode() == 0;
    }

    void setFine() { setWeather(m_room.server, Weather::Fine, *QRandomGenerator::global()); }

    void minute()
    {
        ++m_minutes;
        countRecords();
        sample();
        m_room.server.edit([this](localservice::World &world) { changeLists(world); });
        if (!m_clearUp.isActive())
            startOutage();
        // The user closes the popups.
        if (m_popupCloser.state() == QProcess::NotRunning)
            m_popupCloser.start(
                s("xdotool"),
                s("search --onlyvisible --name ^Dialog$ keydown --window %@ Escape").split(QLatin1Char(' ')));
        if (m_minutes % kMinutesPerHour == 0)
            closeHour();
        if (m_done.size() == m_hours || !m_client.isRunning())
            QCoreApplication::quit();
    }

    // Always the same teams and tasks: what is gone stays in the session files.
    void changeLists(localservice::World &world) const
    {
        const QDateTime now = QDateTime::currentDateTime();
        world.addComment(s("1702"), now);
        world.setDeadline(s("1702"), now.addDays(m_minutes % 2 + 1));
        if (m_minutes % 2 == 0) {
            world.addTeam({s("99"), s("Дежурные")});
            world.addTask(s("41"), {s("9001"), s("Разобрать входящие")});
        } else {
            world.removeTeam(s("99"));
            world.removeTask(s("9001"));
        }
    }

    // None of these accepts a report and fails to say so: each has to arrive exactly once.
    void startOutage()
    {
        auto &random = *QRandomGenerator::global();
        setWeather(m_room.server,
                   static_cast<Weather>(1 + random.bounded(static_cast<int>(Weather::Rejected))), random);
        m_clearUp.start(m_minutes % 15 == 0 ? kMinute * 5 : kMinute * 2 / 5);
    }

    void countRecords()
    {
        m_watch.read([this](int, const QString &) { ++m_records; });
    }

    int received() const { return m_room.server.reports().size() + m_room.server.screenshots().size(); }

    void sample()
    {
        const QString process = s("/proc/%1/").arg(m_client.process.processId());
        const QList<QByteArray> lines = contentsOf(process + s("smaps_rollup")).split('\n');
        const bool isLate = m_minutes % kMinutesPerHour > 50;
        for (const QByteArray &line : isLate ? lines : QList<QByteArray>()) {
            const qint64 value = line.simplified().split(' ').value(1).toLongLong();
            if (line.startsWith("Rss:"))
                m_hour.resident = std::min(m_hour.resident, value);
            else if (line.startsWith("Anonymous:"))
                m_hour.own = std::min(m_hour.own, value);
        }
        const int open = QDir(process + s("fd")).entryList(QDir::AllEntries | QDir::System).size();
        m_hour.fewestDescriptors = std::min(m_hour.fewestDescriptors, open);
        m_hour.mostDescriptors = std::max(m_hour.mostDescriptors, open);
        // A save uses hidden names for a moment.
        QDirIterator file(m_room.stored(QString()), {s("*.ini"), s("*.json")}, QDir::Files,
                          QDirIterator::Subdirectories);
        qint64 bytes = 0;
        int files = 0;
        for (; file.hasNext(); ++files) {
            file.next();
            bytes += file.fileInfo().size();
        }
        m_hour.fileBytes = std::max(m_hour.fileBytes, bytes);
        m_hour.files = std::max(m_hour.files, files);
    }

    void closeHour()
    {
        m_done.append(m_hour);
        std::printf("%4d %8lld %8lld %6d to %2d %14lld %8lld %8d %9d %8d\n", static_cast<int>(m_done.size()),
                    m_hour.resident, m_hour.own, m_hour.fewestDescriptors, m_hour.mostDescriptors,
                    m_hour.fileBytes, QFileInfo(m_room.stored(s("log.log"))).size() / 1024, m_records,
                    received(), m_room.waiting());
        std::fflush(stdout);
        m_hour = {};
    }

    bool drained()
    {
        m_minuteTimer.stop();
        m_clearUp.stop();
        setFine();
        // A later report has to be accepted before the waiting ones are sent.
        const QDeadlineTimer late(kPatience);
        for (const int before = m_records; m_records == before || m_room.waiting() > 0; countRecords()) {
            if (late.hasExpired() || m_client.ends(10ms))
                return false;
        }
        return true;
    }

    FastClient m_client{{0, {}, false}, kSpeed, 40ms, 100}; // requests are not recorded
    ClientRoom &m_room = m_client.room;
    RecordWatch m_watch;
    QTimer m_minuteTimer;
    QTimer m_clearUp;
    QProcess m_popupCloser;
    QElapsedTimer m_passed;
    int m_hours;
    int m_minutes = 0;
    int m_records = 0;
    Hour m_hour;
    QVector<Hour> m_done;
};

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    Soak soak(arguments.value(1), std::max(3, arguments.value(2, s("24")).toInt()));
    QCoreApplication::exec();
    return soak.report() ? 0 : 1;
}
