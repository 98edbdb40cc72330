#pragma once

#include "localservice/faults.h"
#include "localservice/journal.h"
#include "localservice/request.h"
#include "localservice/world.h"

namespace localservice {

/// What the control page shows and changes.
struct ControlState
{
    World &world;
    Outage &outage;
    const Journal &journal;
    const QByteArray &token; ///< what a form has to send back
};

/// The paths that belong to the person at the control page, not to the client.
bool isControlPath(const QString &path);

/// The page itself, its pictures, and the changes that its forms ask for.
Reply answerControl(const RecordedRequest &request, const ControlState &state);

} // namespace localservice
