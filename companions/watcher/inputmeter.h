#pragma once

#include <chrono>
#include <optional>

// Turns readings of the idle time into "was there input since the reading before?".
class InputMeter final
{
public:
    using Milliseconds = std::chrono::milliseconds;

    // before and after: monotonic clock just before and just after the idle time was asked for.
    // The first reading only sets the start and is never input.
    bool isNewInput(Milliseconds before, Milliseconds after, Milliseconds idle);

private:
    std::optional<Milliseconds> m_latestPossibleInput;
};
