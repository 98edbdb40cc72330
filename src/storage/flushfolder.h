#pragma once

class QString;

// Makes the disk keep what was created, renamed or removed in a folder. False when
// it could not.
bool flushFolder(const QString &path);
