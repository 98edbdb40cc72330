#include "app/singleinstance.h"

#include "base/log.h"

#include <QCoreApplication>
#include <QFile>
#include <QSharedMemory>
#include <QThread>

#include <algorithm>
#include <functional>
#include <memory>

#include <sys/ipc.h>

namespace {

constexpr int kAttempts = 2;
constexpr int kSize = 1; // bytes
constexpr unsigned long kLockTimeout = 3000; // ms

// Any user of the machine can hold the semaphore around the segment for ever. False when
// the work still waits for it; its thread is then abandoned.
bool endsInTime(std::function<void()> work)
{
    QThread *helper = QThread::create(std::move(work));
    helper->start();
    if (!helper->wait(kLockTimeout))
        return false;
    delete helper;
    return true;
}

struct Release
{
    void operator()(QSharedMemory *lock) const
    {
        endsInTime([lock] { delete lock; });
    }
};

void acquire(QSharedMemory &lock)
{
    // Attaching to what a crashed instance left needs the key file, which a cleaner of
    // temporary files may have deleted: the first create() makes it.
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Detaching destroys a segment that a crashed instance left; that of a running
        // one stays.
        if (lock.attach(QSharedMemory::ReadOnly))
            lock.detach();
        if (lock.create(kSize, QSharedMemory::ReadWrite))
            return;
    }
}

// Another user's segment outlives a crash; and as the key has only 16 bits of the key
// file's inode, another program's segment may have the same.
bool isHeldByAnother(const QString &keyFile)
{
    enum Column { Key, Size = 3, Creator, Attached = 6 };
    QFile segments(QStringLiteral("/proc/sysvipc/shm"));
    if (!segments.open(QIODevice::ReadOnly))
        return true;
    const QByteArray key = QByteArray::number(ftok(QFile::encodeName(keyFile).constData(), 'Q')); // as Qt
    const QList<QByteArray> lines = segments.readAll().split('\n');
    return std::any_of(lines.cbegin(), lines.cend(), [&key](const QByteArray &line) {
        const QList<QByteArray> columns = line.simplified().split(' ');
        return columns.size() > Attached && columns.at(Key) == key && columns.at(Size).toInt() == kSize
            && columns.at(Attached).toInt() > 0
            && columns.at(Creator).toLongLong() != QCoreApplication::applicationPid();
    });
}

} // namespace

bool checkUniqueuness()
{
    static std::unique_ptr<QSharedMemory, Release> lock;
    auto *candidate =
        new QSharedMemory(QStringLiteral("SingleAppLock") + QCoreApplication::applicationName());
    const QString keyFile = candidate->nativeKey();
    if (endsInTime([candidate] { acquire(*candidate); })) {
        lock.reset(candidate);
        if (lock->isAttached())
            return true;
    }
    if (isHeldByAnother(keyFile))
        return false;
    qCWarning(lcApp) << "Single-instance lock can't be taken, but nobody holds it:" << keyFile;
    return true;
}
