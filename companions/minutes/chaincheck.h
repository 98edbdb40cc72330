#pragma once

#include <QString>
#include <QStringList>

namespace minutes {

// The first place where a journal is not what was written.
struct Breach
{
    QString file; // its name; empty: none was found
    qint64 line = 0; // in the file, from 1; 0 for a file that cannot be read at all
    qint64 number = 0; // the line's own; 0 when it has none
    QString problem; // in Russian
};

// Follows the hashes from the first line of all these files to the last.
Breach checkChain(const QStringList &files);

} // namespace minutes
