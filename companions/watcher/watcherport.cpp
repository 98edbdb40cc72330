#include "watcherport.h"

#include <QSettings>

namespace {
constexpr int kDefaultPort = 7682;
}

QString systemConfigFile()
{
    const QString fromEnvironment = qEnvironmentVariable("ORVANA_CONFIG");
    return fromEnvironment.isEmpty() ? QStringLiteral(ORVANA_BUILT_IN_CONFIG) : fromEnvironment;
}

quint16 configuredPort()
{
    const QSettings settings(systemConfigFile(), QSettings::IniFormat);
    // The client wraps values outside the range of a port in the same way.
    return static_cast<quint16>(settings.value(QStringLiteral("watcher-port"), kDefaultPort).toInt());
}
