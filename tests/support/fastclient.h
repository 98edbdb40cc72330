#pragma once

#include "clientroom.h"

#include <QTcpSocket>
#include <QtCore>

#include <array>
#include <chrono>
#include <memory>

#include <sys/inotify.h>
#include <unistd.h>

// How a task service fails. In the weathers after Rejected it may accept a report and not say so.
enum class Weather { Fine, Slow, Unavailable, Dropped, Hanging, Rejected, Lost, Cut, Stopped, Count };

inline void setWeather(localservice::Server &service, Weather weather, QRandomGenerator &random)
{
    using localservice::Fault;
    using localservice::Outage;
    if (weather == Weather::Stopped)
        service.stop();
    else if (!service.start())
        qFatal("the service does not come back");
    service.setOutage(weather == Weather::Dropped           ? Outage::Dropped
                          : weather == Weather::Unavailable ? Outage::Unavailable
                                                            : Outage::None);
    service.clearFaults();
    // HTTP 200, but not the word that allows the record to be deleted: for a screenshot that is no JSON.
    const std::array<const char *, 4> refusals{R"({"status":"error"})", "\t<!DOCTYPE html>",
                                               R"({"status":"fail"})", R"({"status":"ok"})"};
    const QString all = s("*");
    if (weather == Weather::Slow) {
        service.setFault(all, Fault::delayed(std::chrono::milliseconds(random.bounded(150))));
    } else if (weather == Weather::Hanging) {
        service.setFault(all, Fault::hang());
    } else if (weather == Weather::Lost) {
        service.setFault(all, Fault::loseReply());
    } else if (weather == Weather::Cut) {
        service.setFault(all, Fault::truncate(random.bounded(20)));
    } else if (weather == Weather::Rejected) {
        service.setFault(s("/api_active2"), Fault::answer(200, refusals.at(random.bounded(3U))));
        service.setFault(s("/api_screenshot"), Fault::answer(200, refusals.at(random.bounded(4U))));
    }
}

// Notices every record that gets its final name in a folder.
class RecordWatch final
{
public:
    ~RecordWatch() { ::close(m_inotify); }
    RecordWatch() = default;
    Q_DISABLE_COPY_MOVE(RecordWatch)

    // Returns what identifies the folder, which has to stay.
    int add(const QString &folder)
    {
        QDir().mkpath(folder);
        return inotify_add_watch(m_inotify, QFile::encodeName(folder).constData(), IN_MOVED_TO);
    }

    // Calls arrived(folder, name) for each record since the last call.
    template <typename Arrived>
    void read(Arrived arrived)
    {
        alignas(inotify_event) std::array<char, 64 * 1024> buffer;
        for (ssize_t size; (size = ::read(m_inotify, buffer.data(), buffer.size())) > 0;) {
            for (ssize_t at = 0; at < size;) {
                const auto *event = reinterpret_cast<const inotify_event *>(buffer.data() + at);
                if (event->mask & IN_Q_OVERFLOW)
                    qFatal("records went unseen");
                const QString name = QFile::decodeName(event->name);
                if (name.startsWith(s("json")))
                    arrived(event->wd, name);
                at += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
    }

private:
    int m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

// The real client with a fast clock, in a room of its own, used by somebody at the keyboard.
class FastClient final
{
public:
    // Input arrives with this probability (percent) at each period of real time.
    FastClient(const localservice::Server::Options &options, int speed, std::chrono::milliseconds inputPeriod,
               int inputChance)
        : room(options)
        , m_speed(speed)
    {
        room.leaveUser(true);
        QObject::connect(&room.watcher, &QTcpServer::newConnection, &m_input,
                         [this] { m_watched.reset(room.watcher.nextPendingConnection()); });
        QObject::connect(&m_input, &QTimer::timeout, &m_input, [this, inputChance] {
            if (m_watched && m_watched->isOpen() && QRandomGenerator::global()->bounded(100) < inputChance)
                m_watched->write("a");
        });
        m_input.start(inputPeriod);
    }

    void start(const QString &program, const QDateTime &clock, const QMap<QString, QString> &variables = {})
    {
        auto environment = room.environment(clock.toString(s("@yyyy-MM-dd HH:mm:ss x%1")).arg(m_speed));
        for (auto it = variables.cbegin(); it != variables.cend(); ++it)
            environment.insert(it.key(), it.value());
        process.setProcessEnvironment(environment);
        process.setStandardOutputFile(room.path(s("output")));
        process.setStandardErrorFile(QProcess::nullDevice());
        process.setWorkingDirectory(room.path());
        process.start(program, QStringList());
        if (!process.waitForStarted())
            qFatal("the client does not start");
    }

    bool isRunning() const { return process.state() != QProcess::NotRunning; }

    // Handles events until the client has ended, at most so long; whether it has.
    bool ends(std::chrono::milliseconds limit)
    {
        QEventLoop loop;
        QObject::connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop,
                         &QEventLoop::quit);
        QTimer::singleShot(isRunning() ? limit : std::chrono::milliseconds(0), &loop, &QEventLoop::quit);
        loop.exec();
        return !isRunning();
    }

    // Ends it as a logout does; whether it ended well.
    bool quit()
    {
        process.terminate();
        return ends(std::chrono::seconds(60)) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    }

    ClientRoom room;
    QProcess process;

private:
    int m_speed;
    std::unique_ptr<QTcpSocket> m_watched; // the latest client
    QTimer m_input;
};
