#include "ui/mainform.h"

#include "base/programstart.h"
#include "service/orvana.h"
#include "update/orvanaupdate.h"

#include <QCoreApplication>
#include <QDebug>
#include <QProcess>

namespace {

constexpr int kPidofTimeout = 5000; // ms, in which the window stands still

} // namespace

void MainForm::checkUpdate()
{
    m_orvana->requestCheckUpdate();
}

void MainForm::checkNeedCloseToUpdate()
{
    stayReachable();
    OrvanaUpdate *update = OrvanaUpdate::instance();
    if (!update->isForceUpdate())
        return;
    if (isUpdateProcessRunning()) {
        close();
        QCoreApplication::quit();
    } else {
        // Nobody waits for us any more.
        update->setForceUpdate(false);
    }
}

bool MainForm::isUpdateProcessRunning()
{
    // Deleted when it has ended: destroying it earlier would wait for that.
    auto *pidof = new QProcess;
    connect(pidof, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), pidof,
            &QObject::deleteLater);
    connect(pidof, &QProcess::errorOccurred, pidof, &QObject::deleteLater);
    pidof->start(QStringLiteral("pidof"), {QStringLiteral("ORTM-update")}, QIODevice::ReadOnly);
    // The first bytes decide.
    pidof->waitForReadyRead(kPidofTimeout);
    const QByteArray output = pidof->readAll();
    pidof->kill();
    return !QString::fromUtf8(output.constData()).isEmpty();
}

bool MainForm::installUpdate()
{
    const QVariantList entries = OrvanaUpdate::instance()->updateList();
    if (entries.isEmpty()) {
        qDebug() << "Error! There is no update info" << entries;
        return false;
    }
    if (entries.size() == 1) {
        m_orvana->openUrl(m_orvana->serviceUrl() + QStringLiteral("/monitor/"));
        return true;
    }
    startProgram(QStringLiteral("gksudo"), {QStringLiteral("-k"), QStringLiteral("ORTM-update")});
    return true;
}
