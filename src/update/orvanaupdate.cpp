#include "update/orvanaupdate.h"

#include "base/log.h"
#include "model/json.h"
#include "service/orvana.h"
#include "service/replyparser.h"
#include "storage/settingsfile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kUpdateInfoKey = QStringLiteral("updateInfo");
const QString kUpdateAtStartupKey = QStringLiteral("updateAtStartup");
const QString kWasUpdatedKey = QStringLiteral("wasUpdated");
const QString kForceUpdateKey = QStringLiteral("forceUpdate");
const QString kVersionKey = QStringLiteral("version");
const QString kUpdaterName = QStringLiteral("ORTM-update");

constexpr qint64 kNanoseconds = 1000000000;

qint64 nanoseconds(const timespec &time)
{
    return time.tv_sec * kNanoseconds + time.tv_nsec;
}

// Read directly: after a failed write the settings hold what was to be written, and QSettings
// misses a change within a millisecond.
bool requestIn(const QByteArray &ini)
{
    bool isGeneral = true;
    bool force = false;
    for (const QByteArray &text : ini.split('\n')) {
        const QByteArray line = text.trimmed();
        const int equals = line.indexOf('=');
        if (line.startsWith('['))
            isGeneral = line.compare("[General]", Qt::CaseInsensitive) == 0;
        else if (isGeneral && equals > 0 && QLatin1String(line.left(equals).trimmed()) == kForceUpdateKey)
            force = QVariant(QString::fromLatin1(line.mid(equals + 1).replace('"', "").trimmed())).toBool();
    }
    return force;
}

} // namespace

bool OrvanaUpdate::FileStamp::isVersionOf(const FileStamp &other) const
{
    return modified == other.modified && inode == other.inode && size == other.size;
}

OrvanaUpdate::OrvanaUpdate() = default;

OrvanaUpdate *OrvanaUpdate::instance()
{
    static auto *update = new OrvanaUpdate;
    return update;
}

void OrvanaUpdate::init(Orvana *client)
{
    QObject::disconnect(m_connection);
    m_client = client;
    m_connection = QObject::connect(client, &Orvana::updateDescriptionReceived, client,
                                    [this](const QByteArray &body) { offerUpdate(body); });
    m_settings.reset();
    m_read = {};
    m_isCurrent = false;
    m_refused = {};
    m_forceUpdate = false;
    if (client->storage().isUsable())
        m_settings = std::make_unique<SettingsFile>(
            client->storageDirectory().filePath(QStringLiteral("update.json")), SettingsFile::Use::Shared);
}

bool OrvanaUpdate::isUsable() const
{
    return m_settings && m_client && m_client->storage().isUsable();
}

void OrvanaUpdate::offerUpdate(const QByteArray &body)
{
    addUpdateInfo(body);
    const QString available = availableUpdateVersion();
    // Compared as texts, on purpose: the service numbers its versions for that.
    const bool isNewer = QCoreApplication::applicationVersion() < available;
    emit m_client->updateAvailable(isNewer);
    if (isNewer)
        m_client->notify(available, UpdateAvailable);
}

void OrvanaUpdate::addUpdateInfo(const QByteArray &body)
{
    store(kUpdateInfoKey, QtJson::parse(textOfBody(body)).toList());
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

bool OrvanaUpdate::store(const QString &key, const QVariant &value)
{
    if (!isUsable())
        return false;
    // What is still to be cleared must not clear a request made since.
    if (key != kForceUpdateKey && isForceUpdate())
        m_settings->setValue(kForceUpdateKey, true);
    m_settings->setValue(key, value);
    return m_settings->save();
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
    store(kWasUpdatedKey, updated);
}

OrvanaUpdate::FileStamp OrvanaUpdate::stamp() const
{
    struct stat info = {};
    if (stat(QFile::encodeName(m_settings->path()).constData(), &info) != 0)
        return {};
    return {nanoseconds(info.st_mtim), nanoseconds(info.st_ctim), info.st_ino, info.st_size};
}

bool OrvanaUpdate::readRequest()
{
    QFile file(m_settings->path());
    return repairSettings(file.fileName()) && file.open(QIODevice::ReadOnly) && requestIn(file.readAll());
}

// Polled every second: as a rule the times of the file are enough.
bool OrvanaUpdate::isForceUpdate()
{
    if (!isUsable())
        return false;
    // Taken before reading: a change in between is then seen the next time.
    const FileStamp now = stamp();
    if (m_isCurrent && now.isVersionOf(m_read) && now.changed == m_read.changed)
        return m_forceUpdate;
    m_read = now;
    m_isCurrent = isSettled(now.changed / kNanoseconds);
    m_forceUpdate = readRequest() && !now.isVersionOf(m_refused);
    return m_forceUpdate;
}

void OrvanaUpdate::setForceUpdate(bool force)
{
    m_refused = store(kForceUpdateKey, force) ? FileStamp() : m_read;
    m_forceUpdate = force;
}

void OrvanaUpdate::updateOrvanaUpdateModule()
{
    if (!m_client || !m_client->storage().isUsable())
        return;
    const QString source = m_client->storageDirectory().filePath(QStringLiteral("update/") + kUpdaterName);
    if (!QFile::exists(source))
        return;
    const auto fail = [&source](const QString &what) {
        qCDebug(lcUpdate).noquote() << QStringLiteral("Error! Can't ") + what + QStringLiteral(" file ")
                + kUpdaterName + QStringLiteral(" from ") + source;
    };
    // Reading what is no file might never end.
    if (!QFileInfo(source).isFile())
        return fail(QStringLiteral("copy"));
    if (QFile::copy(source, kUpdaterName)) {
        QFile::remove(source);
        m_client->notify(QStringLiteral("Обновление успешно установлено"));
        return;
    }
    // An older updater is in the way. It stays until the copy is whole.
    const QString copy = kUpdaterName + QStringLiteral(".new");
    QFile::remove(copy);
    if (!QFile::copy(source, copy))
        return fail(::access(".", W_OK) == 0 ? QStringLiteral("copy") : QStringLiteral("remove"));
    if (std::rename(QFile::encodeName(copy).constData(), QFile::encodeName(kUpdaterName).constData()) != 0) {
        QFile::remove(copy);
        return fail(QStringLiteral("remove"));
    }
    QFile::remove(source);
}
