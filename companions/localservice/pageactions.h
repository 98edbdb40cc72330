#pragma once

#include "localservice/page.h"

namespace localservice {

/// Carries out what a form of the control page asks for. The answer is empty when it is done,
/// otherwise the reason in Russian.
QString applyControl(const QString &action, const Pairs &form, const ControlState &state);

} // namespace localservice
