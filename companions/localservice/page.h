#pragma once

#include "localservice/faults.h"
#include "localservice/journal.h"
#include "localservice/request.h"
#include "localservice/world.h"

namespace localservice {

// What the control page shows and changes.
struct ControlState
{
    World &world;
    Outage &outage;
    const Journal &journal;
    const QByteArray &token; // sent back with every change
};

// Whether a path belongs to the control page, not to the client.
bool isControlPath(const QString &path);

// The page and its files, the state that its script shows, screenshots, and the changes that its forms
// request.
Reply answerControl(const RecordedRequest &request, const ControlState &state);

} // namespace localservice
