#include "app/sessionend.h"

#include "base/log.h"
#include "service/orvana.h"

#include <QGuiApplication>

#include <cstdlib>

namespace {

// exit() destroys the calling thread's own objects first. What the libraries would
// destroy next is still in use by other threads.
struct AtExit
{
    Orvana *orvana = nullptr;

    AtExit() = default;
    ~AtExit()
    {
        if (!orvana)
            return;
        orvana->save();
        std::_Exit(EXIT_FAILURE);
    }
    Q_DISABLE_COPY_MOVE(AtExit)
};

thread_local AtExit t_atExit;

} // namespace

SessionEnd::SessionEnd(Orvana *orvana)
{
    t_atExit.orvana = orvana;
    connect(
        qGuiApp, &QGuiApplication::commitDataRequest, this,
        [orvana] {
            qCDebug(lcApp) << "The desktop's session ends";
            orvana->save();
        },
        Qt::DirectConnection);
}

SessionEnd::~SessionEnd()
{
    t_atExit.orvana = nullptr;
}
