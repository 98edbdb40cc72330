#include "app/singleinstance.h"

#include <QCoreApplication>
#include <QSharedMemory>

bool checkUniqueuness()
{
    static QSharedMemory lock(QStringLiteral("SingleAppLock") + QCoreApplication::applicationName());
    // Letting go of what a crashed instance left behind destroys it; the segment
    // of a running one stays.
    if (lock.attach(QSharedMemory::ReadOnly))
        lock.detach();
    return lock.create(1, QSharedMemory::ReadWrite);
}
