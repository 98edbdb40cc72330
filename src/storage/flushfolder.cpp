#include "storage/flushfolder.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

bool flushFolder(const QString &path)
{
    const int folder = open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    const bool ok = fsync(folder) == 0;
    close(folder);
    return ok;
}
