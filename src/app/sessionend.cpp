#include "app/sessionend.h"

#include "service/orvana.h"

#include <QDebug>
#include <QGuiApplication>

#include <cstdlib>
#include <utility>

namespace {

Orvana *s_atExit = nullptr;

void saveAtExit()
{
    if (Orvana *orvana = std::exchange(s_atExit, nullptr))
        orvana->save();
}

} // namespace

SessionEnd::SessionEnd(Orvana *orvana)
{
    s_atExit = orvana;
    std::atexit(saveAtExit);
    connect(
        qGuiApp, &QGuiApplication::commitDataRequest, this,
        [orvana] {
            qDebug() << "The desktop's session ends";
            orvana->save();
        },
        Qt::DirectConnection);
}

SessionEnd::~SessionEnd()
{
    s_atExit = nullptr;
}
