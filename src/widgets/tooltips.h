#pragma once

#include <QString>

// What a tool tip is given so that it shows the text as it is, markup included,
// on several lines when it is long.
QString literalToolTip(const QString &text);
