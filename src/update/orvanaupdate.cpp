#include "update/orvanaupdate.h"

#include "model/json.h"
#include "model/settingsfile.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/replyparser.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QSettings>

#include <sys/stat.h>

namespace {

const QString kUpdateInfoKey = QStringLiteral("updateInfo");
const QString kUpdateAtStartupKey = QStringLiteral("updateAtStartup");
const QString kWasUpdatedKey = QStringLiteral("wasUpdated");
const QString kForceUpdateKey = QStringLiteral("forceUpdate");
const QString kVersionKey = QStringLiteral("version");
const QString kUpdaterName = QStringLiteral("ORTM-update");

} // namespace

bool OrvanaUpdate::FileStamp::operator==(const FileStamp &other) const
{
    return seconds == other.seconds && nanoseconds == other.nanoseconds && inode == other.inode
        && size == other.size;
}

OrvanaUpdate::OrvanaUpdate() = default;

OrvanaUpdate *OrvanaUpdate::instance()
{
    static auto *update = new OrvanaUpdate;
    return update;
}

void OrvanaUpdate::init(Orvana *client)
{
    m_client = client;
    m_settings.reset();
    m_seen = {};
    m_forceUpdate = false;
    if (client->storage().isUsable())
        m_settings = openSettings(client->storageDirectory().filePath(QStringLiteral("update.json")));
}

bool OrvanaUpdate::isUsable() const
{
    return m_settings && m_client && m_client->storage().isUsable();
}

void OrvanaUpdate::addUpdateInfo(const QByteArray &body)
{
    if (!isUsable())
        return;
    m_settings->setValue(kUpdateInfoKey, QtJson::parse(textOfBody(body)).toList());
    syncSettings(*m_settings);
}

QVariantList OrvanaUpdate::updateList() const
{
    return m_settings ? m_settings->value(kUpdateInfoKey).toList() : QVariantList();
}

QString OrvanaUpdate::availableUpdateVersion() const
{
    const QVariantList entries = updateList();
    for (const QVariant &entry : entries) {
        const QVariantMap description = entry.toMap();
        if (description.contains(kVersionKey))
            return description.value(kVersionKey).toString();
    }
    return QString();
}

bool OrvanaUpdate::flag(const QString &key) const
{
    return m_settings && m_settings->value(key, false).toBool();
}

void OrvanaUpdate::setFlag(const QString &key, bool value)
{
    if (!isUsable())
        return;
    m_settings->setValue(key, value);
    syncSettings(*m_settings);
}

bool OrvanaUpdate::isUpdateAtStartup() const
{
    return flag(kUpdateAtStartupKey);
}

bool OrvanaUpdate::wasUpdated() const
{
    return flag(kWasUpdatedKey);
}

void OrvanaUpdate::setWasUpdated(bool updated)
{
    setFlag(kWasUpdatedKey, updated);
}

OrvanaUpdate::FileStamp OrvanaUpdate::stamp() const
{
    struct stat info = {};
    if (stat(QFile::encodeName(m_settings->fileName()).constData(), &info) != 0)
        return {};
    return {info.st_mtim.tv_sec, info.st_mtim.tv_nsec, info.st_ino, info.st_size};
}

// Asked every second: one look at the file has to do while it stays the same.
bool OrvanaUpdate::isForceUpdate()
{
    if (!m_settings || stamp() == m_seen)
        return m_forceUpdate;
    if (!isUsable())
        return false;
    if (repairSettings(m_settings->fileName()))
        syncSettings(*m_settings);
    m_seen = stamp();
    m_forceUpdate = flag(kForceUpdateKey);
    return m_forceUpdate;
}

void OrvanaUpdate::setForceUpdate(bool force)
{
    setFlag(kForceUpdateKey, force);
}

void OrvanaUpdate::updateOrvanaUpdateModule()
{
    if (!m_client || !m_client->storage().isUsable())
        return;
    const QString source = m_client->storageDirectory().filePath(QStringLiteral("update/") + kUpdaterName);
    if (!QFile::exists(source))
        return;
    if (QFile::copy(source, kUpdaterName)) {
        QFile::remove(source);
        NotificationManager::instance()->addNotification(QStringLiteral("Обновление успешно установлено"),
                                                         Plain, QString());
        return;
    }
    // An older updater is in the way.
    if (!QFile::remove(kUpdaterName)) {
        qDebug().noquote() << QStringLiteral("Error! Can't remove file ") + kUpdaterName
                + QStringLiteral(" from ") + source;
        return;
    }
    if (QFile::copy(source, kUpdaterName))
        QFile::remove(source);
    else
        qDebug().noquote() << QStringLiteral("Error! Can't copy file ") + kUpdaterName
                + QStringLiteral(" from ") + source;
}
