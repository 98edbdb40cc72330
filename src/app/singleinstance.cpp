#include "app/singleinstance.h"

#include <QCoreApplication>
#include <QSharedMemory>

namespace {

constexpr int kAttempts = 2;

} // namespace

bool checkUniqueuness()
{
    static QSharedMemory lock(QStringLiteral("SingleAppLock") + QCoreApplication::applicationName());
    // What a crashed instance left can only be attached to once there is a key file,
    // which a cleaner of temporary files may have deleted: the first create() makes it.
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Letting go of what a crashed instance left behind destroys it; the segment
        // of a running one stays.
        if (lock.attach(QSharedMemory::ReadOnly))
            lock.detach();
        if (lock.create(1, QSharedMemory::ReadWrite))
            return true;
    }
    return false;
}
