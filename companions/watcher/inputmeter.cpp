#include "inputmeter.h"

namespace {
// Both clocks count whole milliseconds, so one moment can read differently by this much.
constexpr InputMeter::Milliseconds kClockGrain{2};
} // namespace

bool InputMeter::isNewInput(Milliseconds before, Milliseconds after, Milliseconds idle)
{
    // The last input lies between (before - idle) and (after - idle). Only an interval wholly
    // behind the previous one proves another input; otherwise a slow answer would count one twice.
    const bool isNew = m_latestPossibleInput && before - idle > *m_latestPossibleInput + kClockGrain;
    m_latestPossibleInput = after - idle;
    return isNew;
}
