#include "app/autorun.h"

#include <QDebug>

AutoRun::AutoRun(QObject *parent)
    : QObject(parent)
{ }

bool AutoRun::enable(bool on)
{
    qDebug() << "AutoRun.cpp enable";
    return on;
}

bool AutoRun::isEnabled()
{
    qDebug() << "AutoRun.cpp isEnabled";
    return false;
}
