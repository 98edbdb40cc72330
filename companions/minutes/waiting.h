#pragma once

#include "minutes/account.h"

#include <QString>

namespace minutes {

// The reports in this folder of records that were made in the period. Changes nothing there.
Tally waitingReports(const QString &folder, const Period &period);

} // namespace minutes
