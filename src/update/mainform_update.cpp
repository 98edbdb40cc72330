#include "ui/mainform.h"

#include "service/orvana.h"
#include "update/orvanaupdate.h"

#include <QCoreApplication>
#include <QDebug>
#include <QProcess>
#include <QVector>

namespace {

constexpr int kPidofTimeout = 30000; // ms

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
    QProcess pidof;
    pidof.start(QStringLiteral("pidof"), {QStringLiteral("ORTM-update")}, QIODevice::ReadOnly);
    QByteArray output;
    while (pidof.waitForReadyRead(kPidofTimeout))
        output += pidof.readAll();
    output += pidof.readAll();
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
    // The updater outlives this program; the end of its process object would kill it.
    static auto *updaters = new QVector<QProcess *>;
    auto *updater = new QProcess;
    updaters->append(updater);
    updater->start(QStringLiteral("gksudo"), {QStringLiteral("-k"), QStringLiteral("ORTM-update")});
    return true;
}
