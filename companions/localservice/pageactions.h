#pragma once

#include "localservice/page.h"

namespace localservice {

// Makes the change that a form of the control page requests. Returns the reason in Russian
// when it cannot be made, otherwise nothing.
QString applyControl(const QString &action, const Pairs &form, const ControlState &state);

// As the field "mode" names it.
QString outageName(Outage outage);

} // namespace localservice
