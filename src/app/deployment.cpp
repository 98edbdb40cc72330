#include "app/deployment.h"

#include "app/buildvalues.h"

#include <QSettings>
#include <QUrl>
#include <QVariant>

namespace {

QString environment(const char *name, const char *builtIn)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? QString::fromUtf8(builtIn) : value;
}

QVariant configured(const QString &key)
{
    return QSettings(Deployment::configFile(), QSettings::IniFormat).value(key);
}

} // namespace

QString Deployment::serviceUrl()
{
    QString url = qEnvironmentVariable("ORVANA_SERVICE_URL");
    if (url.isEmpty())
        url = configured(QStringLiteral("service-url")).toString();
    if (url.isEmpty())
        url = QString::fromUtf8(ORVANA_BUILTIN_SERVICE_URL);
    while (url.endsWith(QLatin1Char('/')))
        url.chop(1);
    return url;
}

QString Deployment::serviceHost()
{
    return QUrl(serviceUrl()).host();
}

QString Deployment::storageRoot()
{
    return environment("ORVANA_STORAGE_ROOT", ORVANA_BUILTIN_STORAGE_ROOT);
}

QString Deployment::configFile()
{
    return environment("ORVANA_CONFIG", ORVANA_BUILTIN_CONFIG);
}

bool Deployment::verifyCertificates()
{
    return configured(QStringLiteral("verify-certificates")).toBool();
}
