#include "app/autorun.h"

#include "base/log.h"

AutoRun::AutoRun(QObject *parent)
    : QObject(parent)
{ }

bool AutoRun::enable(bool on)
{
    qCDebug(lcApp) << "AutoRun.cpp enable";
    return on;
}

bool AutoRun::isEnabled()
{
    qCDebug(lcApp) << "AutoRun.cpp isEnabled";
    return false;
}
