#include "update/updater.h"

#include "base/log.h"
#include "base/programstart.h"
#include "service/orvana.h"
#include "update/orvanaupdate.h"

#include <QProcess>

namespace {

const QString kUpdater = QStringLiteral("ORTM-update");
constexpr int kPidofTimeout = 5000; // ms, during which the window is frozen

} // namespace

bool Updater::isRunning()
{
    // Deleted when it has ended: destroying it earlier would wait for that.
    auto *pidof = new QProcess;
    QObject::connect(pidof, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), pidof,
                     &QObject::deleteLater);
    QObject::connect(pidof, &QProcess::errorOccurred, pidof, &QObject::deleteLater);
    pidof->start(QStringLiteral("pidof"), {kUpdater}, QIODevice::ReadOnly);
    // The first bytes decide.
    pidof->waitForReadyRead(kPidofTimeout);
    const QByteArray output = pidof->readAll();
    pidof->kill();
    return !QString::fromUtf8(output.constData()).isEmpty();
}

bool Updater::install(Orvana *client)
{
    const QVariantList entries = OrvanaUpdate::instance()->updateList();
    if (entries.isEmpty()) {
        qCDebug(lcUpdate) << "Error! There is no update info" << entries;
        return false;
    }
    if (entries.size() == 1)
        client->openUrl(client->serviceUrl() + QStringLiteral("/monitor/"));
    else
        startProgram(QStringLiteral("gksudo"), {QStringLiteral("-k"), kUpdater});
    return true;
}
