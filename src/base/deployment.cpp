#include "base/deployment.h"

#include "base/buildvalues.h"

#include <QFile>
#include <QSettings>
#include <QUrl>
#include <QVariant>

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace {

const QString kServiceUrl = QStringLiteral("service-url");
const QString kVerifyCertificates = QStringLiteral("verify-certificates");
const QString kWatcherPort = QStringLiteral("watcher-port");
const QString kJournal = QStringLiteral("journal");
const QString kStartShortcut = QStringLiteral("start-shortcut");
const QString kStopShortcut = QStringLiteral("stop-shortcut");
constexpr uint kLastPort = 65535;

QString environment(const char *name, const char *builtIn)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? QString::fromUtf8(builtIn) : value;
}

// A value with a comma is a list to the settings.
QString text(const QVariant &value)
{
    return value.toStringList().join(QLatin1Char(','));
}

QString configured(const QString &key)
{
    return text(QSettings(Deployment::configFile(), QSettings::IniFormat).value(key));
}

// One key with its modifiers, or nothing.
QKeySequence sequenceOf(const QString &text)
{
    const QKeySequence sequence(text, QKeySequence::PortableText);
    const auto key = static_cast<uint>(sequence[0]) & ~uint(Qt::KeyboardModifierMask);
    return sequence.count() == 1 && key != 0 && key != Qt::Key_unknown ? sequence : QKeySequence();
}

QString problemWith(const QString &key, const QString &value)
{
    if (key == kVerifyCertificates || key == kJournal) {
        static const QStringList booleans{QStringLiteral("true"), QStringLiteral("false"),
                                          QStringLiteral("1"), QStringLiteral("0")};
        if (!booleans.contains(value, Qt::CaseInsensitive))
            return QStringLiteral("is neither true nor false and counts as ")
                + (key == kJournal || Deployment::verifyCertificates() ? booleans.at(0) : booleans.at(1));
    } else if (key == kWatcherPort) {
        if (const uint port = value.toUInt(); port == 0 || port > kLastPort)
            return QStringLiteral("is no port");
    } else if (key == kStartShortcut || key == kStopShortcut) {
        if (!value.isEmpty() && sequenceOf(value).isEmpty())
            return QStringLiteral("is no key with its modifiers");
    } else if (key != kServiceUrl && !key.startsWith(QLatin1Char('#'))) {
        return QStringLiteral("is no key of this program; its keys stand above all sections");
    }
    return {};
}

} // namespace

QString Deployment::serviceUrl()
{
    QString url = qEnvironmentVariable("ORVANA_SERVICE_URL");
    if (url.isEmpty())
        url = configured(kServiceUrl);
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
    return QVariant(configured(kVerifyCertificates)).toBool();
}

bool Deployment::keepsJournal()
{
    const QString value = configured(kJournal);
    return value.isEmpty() || QVariant(value).toBool();
}

QKeySequence Deployment::startShortcut()
{
    return sequenceOf(configured(kStartShortcut));
}

QKeySequence Deployment::stopShortcut()
{
    return sequenceOf(configured(kStopShortcut));
}

QStringList Deployment::problems()
{
    QStringList found;
    const QString name = configFile();
    // That there is none is usual, but not where somebody named it.
    const bool isExpected = access(QFile::encodeName(name).constData(), F_OK) == 0 || errno != ENOENT
        || qEnvironmentVariableIsSet("ORVANA_CONFIG");
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly) && isExpected)
        found << name + QStringLiteral(" can't be read: ") + file.errorString();
    // The settings keep silent about a line that they cannot read.
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (!line.isEmpty() && !line.contains('=') && !std::strchr(";#[", line.front()))
            found << name + QStringLiteral(": ") + QString::fromUtf8(line) + QStringLiteral(" is no setting");
    }
    const QSettings settings(name, QSettings::IniFormat);
    const QStringList keys = settings.allKeys();
    for (const QString &key : keys) {
        const QString value = text(settings.value(key));
        if (const QString problem = problemWith(key, value); !problem.isEmpty())
            found << name + QStringLiteral(": ") + key + QLatin1Char('=') + value + QLatin1Char(' ')
                    + problem;
    }
    const QUrl url(serviceUrl());
    const QStringList schemes{QStringLiteral("http"), QStringLiteral("https")};
    if (url.host().isEmpty() || !schemes.contains(url.scheme()))
        found << QStringLiteral("The service's URL is not of the web: ") + serviceUrl();
    return found;
}
