#pragma once

#include <QVariant>

// What a tool tip is given so that it shows the text as it is, markup included,
// on several lines when it is long.
QString literalToolTip(const QString &text);

// What a row with this title shows and says in its tool tip; nothing for other roles.
QVariant titleData(const QString &title, int role);
