// What earlier runs left on the disk: the stream form of the records, and every
// settings file as a start of the client reads it and its end writes it back. A seed is a byte
// for the kind (modulo 8: 0 and 1 stream form, 2 config.ini, 3 update.json, else none of these)
// and texts that end with NUL: the named file, if any, session, teams, tasks and taskInfo.ini.
#include "client.h"

#include "model/records.h"
#include "service/ovsession.h"
#include "storage/settingslines.h"
#include "update/orvanaupdate.h"

#include <QDataStream>
#include <QDir>

#include <cstdlib>

namespace {

std::unique_ptr<FuzzClient> s_client;
const char *const kFiles[] = {"session.ini", "teams.ini", "tasks.ini", "taskInfo.ini"};

// Reading what was written and writing it again gives the same bytes.
template <typename T>
void readStream(const QByteArray &bytes, int version)
{
    T first;
    QDataStream input(bytes);
    input.setVersion(version);
    input >> first;
    if (input.status() != QDataStream::Ok)
        return;
    QByteArray written;
    QDataStream output(&written, QIODevice::WriteOnly);
    output.setVersion(version);
    output << first;
    T second;
    QDataStream again(written);
    again.setVersion(version);
    again >> second;
    QByteArray rewritten;
    QDataStream last(&rewritten, QIODevice::WriteOnly);
    last.setVersion(version);
    last << second;
    if (again.status() != QDataStream::Ok || rewritten != written)
        std::abort();
}

void readStreams(Input &input)
{
    const int version = input.byte() % 2 == 0 ? QDataStream::Qt_4_0 : QDataStream::Qt_DefaultCompiledVersion;
    const int kind = input.byte() % 3;
    const QByteArray bytes = input.rest();
    if (kind == 0)
        readStream<Task>(bytes, version);
    else if (kind == 1)
        readStream<QList<Task>>(bytes, version);
    else
        readStream<TaskInfo>(bytes, version);
}

// An empty checksum is filled in: no mutation would find the right one.
QByteArray iniFile(Input &input)
{
    QByteArray lines = input.word();
    const QByteArray mark = "\n;checksum=";
    if (!lines.endsWith(mark))
        return lines;
    lines.chop(mark.size() - 1);
    return lines + checksumLine(lines);
}

void useEverything(FuzzClient &client)
{
    Orvana::Session *session = client->session();
    for (const Team &team : session->teams())
        session->tasks(team.id);
    session->tasks();
    session->taskInfo(session->currentTaskID());
    session->overdueTime();
    session->todayActiveTime(session->currentTaskID());
    session->addMinuteToActiveTime();
    session->addMinuteToWorktime();
    session->incrementTodayTime();
    OrvanaUpdate *update = OrvanaUpdate::instance();
    update->availableUpdateVersion();
    update->isUpdateAtStartup();
    update->isForceUpdate();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    startFuzzing(argc, argv);
    s_client = std::make_unique<FuzzClient>();
    std::atexit([] { s_client.reset(); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzClient &client = *s_client;
    Input input(data, size);
    const int kind = input.byte() % 8;
    if (kind < 2) {
        readStreams(input);
        return 0;
    }
    // Before the damaged files: this client's end saves its own.
    QDir(client.userFolder()).removeRecursively();
    client->setCleanMode(true);
    const QString storage = client->storageDirectory().path();
    QDir().mkpath(client.activityFolder());
    const QByteArray config =
        kind == 2 ? iniFile(input) : "[General]\nlastLogin=" + FuzzClient::user().toUtf8() + '\n';
    client.put(storage + QStringLiteral("/config.ini"), config);
    client.put(storage + QStringLiteral("/update.json"), kind == 3 ? iniFile(input) : QByteArray());
    for (const char *name : kFiles)
        client.put(client.userFolder() + QLatin1Char('/') + QLatin1String(name), iniFile(input));
    client.restart();
    useEverything(client);
    client.settle();
    client.restart();
    useEverything(client);
    client.settle();
    return 0;
}
