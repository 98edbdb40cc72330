#include "service/crashpoint.h"

#include <QByteArray>
#include <QCoreApplication>

#include <csignal>
#include <cstring>

namespace {

int s_minutes = 0;
int s_passed = 0;

} // namespace

// ORVANA_CRASH_AT names the place and ORVANA_CRASH_PASS says how often it is passed
// unharmed. Every minute is also given a number of its own, carried by the version
// that goes into its record and over the wire: nothing else tells two equally
// busy minutes of one task apart once they are under way.
void crashPoint(const char *name)
{
    static const QByteArray place = qgetenv("ORVANA_CRASH_AT");
    static const int passes = qEnvironmentVariableIntValue("ORVANA_CRASH_PASS");
    static const QString run = qEnvironmentVariable("ORVANA_CRASH_RUN");
    if (std::strcmp(name, "minute-over") == 0)
        QCoreApplication::setApplicationVersion(run + QLatin1Char('.') + QString::number(++s_minutes));
    if (place == name && s_passed++ == passes)
        std::raise(SIGKILL);
}
