#pragma once

#include <QByteArray>
#include <QString>

#include <ctime>
#include <memory>

class QSettings;

// Settings files as this program writes them. Qt's reader trusts what a file says
// of itself: a damaged count makes it reserve all memory, damaged nesting exhausts
// the stack. So no line gets to it that its own writer could not have written.

// An INI file of this program; damaged entries are taken out of it first. What may be
// read but not written there is replaced by a copy; what can't be read, or is no file,
// is kept under another name. Both are logged. The same happens before each write.
std::unique_ptr<QSettings> openSettings(const QString &path);

// Writes what was set since the last time, at once and never later by itself.
// False when that did not work: the file is then the one before, and everything
// that it lacks has to be set again.
bool syncSettings(QSettings &settings);

// Stands in for a file that may not be touched: empty, and writes nothing.
std::unique_ptr<QSettings> emptySettings(const QString &path);

// Takes the damaged entries out of a file and logs that; needed again before a
// file is read again that another process may have written. False when there are
// some and the file could not be rewritten: it must not be read.
bool repairSettings(const QString &path);

// Whether the next change of a file that was changed then (seconds since the epoch)
// must show in its time; false for some seconds after a change.
bool isSettled(time_t changed);

// The lines of an INI file that can be read safely.
QByteArray soundLines(const QByteArray &ini);
