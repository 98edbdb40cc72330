#include "service/ovsession.h"

#include "storage/settingsfile.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QSettings>

namespace {

const QString kDateFormat = QStringLiteral("ddd MMM d yyyy");
const QString kTimeFormat = QStringLiteral("HH:mm:ss");

QString key(const char *name)
{
    return QString::fromLatin1(name);
}

// Settings keys fold and strip slashes; an id may hold any.
QString keyOfId(QString id)
{
    return id.replace(QLatin1Char('%'), QLatin1String("%25")).replace(QLatin1Char('/'), QLatin1String("%2F"));
}

QString idOfKey(QString key)
{
    return key.replace(QLatin1String("%2F"), QLatin1String("/"))
        .replace(QLatin1String("%25"), QLatin1String("%"));
}

// The stored forms are English whatever the user's locale is.
QString dateText(const QDate &date)
{
    return QLocale::c().toString(date, kDateFormat);
}

QDate dateFromText(const QString &text)
{
    return QLocale::c().toDate(text, kDateFormat);
}

QTime wholeMinutes(const QVariant &stored)
{
    const QTime time = QTime::fromString(stored.toString(), Qt::TextDate);
    return time.isValid() ? QTime(time.hour(), time.minute()) : QTime();
}

} // namespace

void Orvana::Session::initLastLogin()
{
    const QString lastLogin = m_configStore->value(key("lastLogin")).toString();
    if (!lastLogin.isEmpty())
        init(lastLogin, QString());
}

void Orvana::Session::init(const QString &login, const QString &password)
{
    m_login = login;
    if (!password.isEmpty())
        m_password = password;

    openStores();
    if (hasFile(m_sessionStore))
        restoreSession(password.isEmpty());
    restoreLists();
    QStringList teamIds;
    for (const Team &team : qAsConst(m_teams))
        teamIds.append(team.id);
    m_owner->storage().removeDeprecatedFiles(m_login, teamIds);
}

void Orvana::Session::openStores()
{
    const QString directory = m_owner->storage().ofUser(m_login);
    m_hasStores = m_owner->storage().prepare();
    if (m_hasStores) {
        StorageFolder::makeFolder(directory);
        StorageFolder::makeFolder(directory + QLatin1String("/activity"));
    }
    const auto openStore = [this, &directory](const char *name) {
        const QString path = QDir(directory).filePath(QString::fromLatin1(name));
        return m_hasStores ? openSettings(path) : emptySettings(path);
    };
    m_sessionStore = openStore("session.ini");
    m_teamsStore = openStore("teams.ini");
    m_tasksStore = openStore("tasks.ini");
    m_taskInfoStore = openStore("taskInfo.ini");
}

// The storage folder was not usable when the user signed in, and is now.
void Orvana::Session::reopenStores()
{
    openStores();
    m_teamsChanged = true;
    m_lists.setAllChanged();
    for (auto it = m_taskInfos.cbegin(); it != m_taskInfos.cend(); ++it)
        setInfoChanged(it.key());
}

void Orvana::Session::restoreSession(bool readPassword)
{
    const QSettings &store = *m_sessionStore;
    if (readPassword)
        m_password = store.value(key("password")).toString();
    m_logged = store.value(key("logged"), false).toBool();
    m_active = store.value(key("active"), false).toBool();
    m_currentTeamId = store.value(key("teamID")).toString();
    m_currentTaskId = store.value(key("taskID")).toString();
    m_online = store.value(key("isOnline"), true).toBool();
    m_worktimeDate = dateFromText(store.value(key("worktimeDate")).toString());
    if (readPassword)
        m_savedChoice = choice();

    const QDate today = QDate::currentDate();
    if (m_worktimeDate != today) {
        m_worktimeDate = today;
        return;
    }
    const QTime worktime = wholeMinutes(store.value(key("todayWorktime")));
    if (worktime.isValid())
        setWorktime(worktime);
    const QTime activetime = wholeMinutes(store.value(key("todayActivetime")));
    if (activetime.isValid()) {
        m_todayActivetime = activetime;
        m_todayActivetimeDisplayed = activetime;
    }
    m_task2activeTimeMap = store.value(key("task2activeTimeMap")).toMap();
    emit timeUpdated();
}

void Orvana::Session::restoreLists()
{
    const QStringList teamKeys = m_teamsStore->allKeys();
    for (const QString &teamKey : teamKeys)
        m_teams.append({idOfKey(teamKey), m_teamsStore->value(teamKey).toString()});

    const QStringList listKeys = m_tasksStore->allKeys();
    for (const QString &listKey : listKeys)
        setTasks(idOfKey(listKey), m_tasksStore->value(listKey).value<QList<Task>>());
    m_lists.setSaved();

    const QStringList infoKeys = m_taskInfoStore->allKeys();
    for (const QString &infoKey : infoKeys)
        m_taskInfos.insert(idOfKey(infoKey), m_taskInfoStore->value(infoKey).value<TaskInfo>());
}

bool Orvana::Session::hasFile(const std::unique_ptr<QSettings> &store) const
{
    return store && QFile::exists(store->fileName());
}

bool Orvana::Session::write(QSettings &store) const
{
    if (syncSettings(store))
        return true;
    qWarning() << "Error! Settings can't be written:" << store.fileName();
    return false;
}

void Orvana::Session::save()
{
    if (!m_owner->storage().prepare())
        return;
    if (m_sessionStore && !m_hasStores)
        reopenStores();
    if (m_userChanged || m_configStore->value(key("lastLogin")).toString() != m_login
        || !hasFile(m_configStore)) {
        m_configStore->setValue(key("lastLogin"), m_login);
        m_userChanged = !write(*m_configStore);
    }
    if (m_sessionStore && !m_login.isEmpty())
        saveSessionValues();
    saveLists();
}

void Orvana::Session::saveChoice()
{
    if (!m_sessionStore || m_login.isEmpty() || (choice() == m_savedChoice && hasFile(m_sessionStore)))
        return;
    if (!m_hasStores)
        save();
    else if (m_owner->storage().prepare())
        saveSessionValues();
}

QVariantList Orvana::Session::choice() const
{
    return {m_password, m_logged, m_active, m_currentTeamId, m_currentTaskId};
}

void Orvana::Session::saveSessionValues()
{
    m_savedChoice.clear();
    QSettings &store = *m_sessionStore;
    store.setValue(key("password"), m_password);
    store.setValue(key("logged"), m_logged);
    store.setValue(key("active"), m_active);
    store.setValue(key("teamID"), m_currentTeamId);
    store.setValue(key("taskID"), m_currentTaskId);
    store.setValue(key("isOnline"), m_online);
    store.setValue(key("worktimeDate"), dateText(m_worktimeDate));
    store.setValue(key("todayWorktime"), QLocale::c().toString(m_todayWorktime, kTimeFormat));
    store.setValue(key("todayActivetime"), QLocale::c().toString(m_todayActivetime, kTimeFormat));
    store.setValue(key("task2activeTimeMap"), m_task2activeTimeMap);
    // Again when something lay in the place of the file: it has been moved aside.
    if (write(store) || write(store))
        m_savedChoice = choice();
}

// Each store is flushed once: a flush rewrites the whole file. Entries of teams
// and tasks that are gone stay in their files. What the disk refuses is set again
// at the next save.
void Orvana::Session::saveLists()
{
    if (m_teamsStore && (m_teamsChanged || (!m_teams.isEmpty() && !hasFile(m_teamsStore)))) {
        m_teamsStore->clear();
        for (const Team &team : qAsConst(m_teams))
            m_teamsStore->setValue(keyOfId(team.id), team.name);
        m_teamsChanged = !write(*m_teamsStore);
    }
    if (m_tasksStore) {
        if (!hasFile(m_tasksStore))
            m_lists.setAllChanged();
        const QSet<QString> changed = m_lists.changedTeams();
        for (const QString &teamId : changed)
            m_tasksStore->setValue(keyOfId(teamId), QVariant::fromValue(m_lists.ofTeam(teamId)));
        if (!changed.isEmpty() && write(*m_tasksStore))
            m_lists.setSaved();
    }
    if (m_taskInfoStore) {
        if (!hasFile(m_taskInfoStore)) {
            m_changedTaskInfos = QSet<QString>(m_taskInfos.keyBegin(), m_taskInfos.keyEnd());
            m_changedTaskInfos.remove(QString());
        }
        for (const QString &taskId : qAsConst(m_changedTaskInfos))
            m_taskInfoStore->setValue(keyOfId(taskId), QVariant::fromValue(m_taskInfos.value(taskId)));
        if (!m_changedTaskInfos.isEmpty() && write(*m_taskInfoStore))
            m_changedTaskInfos.clear();
    }
}
