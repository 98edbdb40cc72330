#pragma once

#include "base/shortened.h"

#include <algorithm>

// A text of somebody else on one line, cut to a bearable length; nothing in it moves a terminal's
// cursor or turns the direction of writing.
inline QString printable(QString text)
{
    constexpr int kLongest = 500; // characters
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return (!c.isPrint() && !c.isSurrogate()) || c.isSpace(); },
        QLatin1Char(' '));
    return shortened(text, kLongest);
}
