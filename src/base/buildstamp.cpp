#include "base/buildstamp.h"

QString buildStamp()
{
    return QStringLiteral(__DATE__ ", " __TIME__);
}
