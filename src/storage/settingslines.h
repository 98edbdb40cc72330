#pragma once

#include <QByteArray>

// The lines of an INI file that its own writer could have written. Qt's reader trusts
// what a file says of itself: a damaged count makes it reserve all memory, damaged
// nesting exhausts the stack.
QByteArray validLines(const QByteArray &ini);

// The comment that ends a file with these lines.
QByteArray checksumLine(const QByteArray &lines);

// False without one: older versions and other programs write none.
bool hasWrongChecksum(const QByteArray &ini);
