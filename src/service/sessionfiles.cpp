#include "service/sessionfiles.h"

#include "base/log.h"
#include "service/daystates.h"
#include "service/tasklists.h"
#include "storage/settingsfile.h"
#include "storage/settingskey.h"
#include "storage/storagefolder.h"

#include <QDir>
#include <QFile>
#include <QLocale>

#include <tuple>

namespace {

const QString kDateFormat = QStringLiteral("ddd MMM d yyyy");
const QString kTimeFormat = QStringLiteral("HH:mm:ss");

QString key(const char *name)
{
    return QString::fromLatin1(name);
}

void restoreCounter(WorkDay::Counter &counter, const QVariant &stored)
{
    const QTime time = QTime::fromString(stored.toString(), Qt::TextDate);
    if (time.isValid())
        counter.set(QTime(time.hour(), time.minute()));
}

bool write(SettingsFile &store)
{
    if (store.save())
        return true;
    qCWarning(lcService) << "Error! Settings can't be written:" << store.path();
    return false;
}

// Each save rewrites the whole file, so all entries go into one.
template <typename ValueOf>
void writeEntries(SettingsFile &store, QSet<QString> &ids, ValueOf valueOf)
{
    if (ids.isEmpty())
        return;
    for (const QString &id : qAsConst(ids))
        store.setValue(keyOfId(id), QVariant::fromValue(valueOf(id)));
    if (write(store))
        ids.clear();
}

} // namespace

bool UserState::hasSameChoice(const UserState &other) const
{
    const auto tied = [](const UserState &u) {
        return std::tie(u.password, u.teamId, u.taskId, u.isActive, u.isLogged);
    };
    return tied(*this) == tied(other);
}

SessionFiles::SessionFiles(StorageFolder &storage)
    : m_storage(storage)
{
    if (storage.isUsable())
        m_config = std::make_unique<SettingsFile>(storage.dir().filePath(key("config.ini")));
    else
        m_config = std::make_unique<SettingsFile>();
}

SessionFiles::~SessionFiles() = default;

QString SessionFiles::lastLogin() const
{
    return m_config->value(key("lastLogin")).toString();
}

void SessionFiles::open(const QString &login)
{
    const QDir directory(m_storage.ofUser(login));
    m_areStandIns = !m_storage.prepare();
    if (!m_areStandIns) {
        StorageFolder::makeFolder(directory.path());
        StorageFolder::makeFolder(directory.filePath(QStringLiteral("activity")));
    }
    const auto openStore = [this, &directory](const char *name) {
        return m_areStandIns ? std::make_unique<SettingsFile>()
                             : std::make_unique<SettingsFile>(directory.filePath(QString::fromLatin1(name)));
    };
    m_session = openStore("session.ini");
    m_teams = openStore("teams.ini");
    m_tasks = openStore("tasks.ini");
    m_taskInfos = openStore("taskInfo.ini");
}

void SessionFiles::close()
{
    for (Store *store : {&m_session, &m_tasks, &m_taskInfos, &m_teams})
        store->reset();
    m_savedState.reset();
}

bool SessionFiles::exists(const Store &store)
{
    return store && store->exists();
}

std::optional<DayCounters> SessionFiles::storedCounters() const
{
    if (!exists(m_session))
        return {};
    WorkDay day;
    day.date = QLocale::c().toDate(m_session->value(key("worktimeDate")).toString(), kDateFormat);
    if (!day.date.isValid())
        return {};
    restoreCounter(day.work, m_session->value(key("todayWorktime")));
    restoreCounter(day.active, m_session->value(key("todayActivetime")));
    return DayCounters::of(day);
}

bool SessionFiles::restore(UserState &state, WorkDay &day, const QDate &today, bool readPassword)
{
    if (!exists(m_session))
        return false;
    const SettingsFile &store = *m_session;
    if (readPassword)
        state.password = store.value(key("password")).toString();
    state.isLogged = store.value(key("logged"), false).toBool();
    state.isActive = store.value(key("active"), false).toBool();
    state.teamId = store.value(key("teamID")).toString();
    state.taskId = store.value(key("taskID")).toString();
    state.isOnline = store.value(key("isOnline"), true).toBool();
    if (readPassword)
        m_savedState = state;

    day.date = today;
    // The stored forms are English whatever the user's locale is.
    if (QLocale::c().toDate(store.value(key("worktimeDate")).toString(), kDateFormat) != today)
        return false;
    restoreCounter(day.work, store.value(key("todayWorktime")));
    restoreCounter(day.active, store.value(key("todayActivetime")));
    day.activeTimes = store.value(key("task2activeTimeMap")).toMap();
    return true;
}

void SessionFiles::restore(TaskLists &lists) const
{
    QList<Team> teams = lists.teams();
    const QStringList teamKeys = m_teams->keys();
    for (const QString &teamKey : teamKeys)
        teams.append({idOfKey(teamKey), m_teams->value(teamKey).toString()});
    lists.setTeams(teams);

    const QStringList listKeys = m_tasks->keys();
    for (const QString &listKey : listKeys)
        lists.replace(idOfKey(listKey), m_tasks->value(listKey).value<QList<Task>>());

    const QStringList infoKeys = m_taskInfos->keys();
    for (const QString &infoKey : infoKeys)
        lists.setInfo(idOfKey(infoKey), m_taskInfos->value(infoKey).value<TaskInfo>());
    lists.unsaved() = {};
}

void SessionFiles::save(const UserState &state, const WorkDay &day, TaskLists &lists)
{
    if (!m_storage.prepare())
        return;
    if (m_session && m_areStandIns) {
        open(state.login);
        lists.setAllUnsaved();
    }
    if (m_isLoginUnsaved || lastLogin() != state.login || !exists(m_config)) {
        m_config->setValue(key("lastLogin"), state.login);
        m_isLoginUnsaved = !write(*m_config);
    }
    if (!m_session)
        return;
    if (!state.login.isEmpty())
        saveState(state, day);
    saveLists(lists);
}

void SessionFiles::saveChoice(const UserState &state, const WorkDay &day, TaskLists &lists)
{
    const bool isSaved = m_savedState && m_savedState->hasSameChoice(state) && exists(m_session);
    if (!m_session || state.login.isEmpty() || isSaved)
        return;
    if (m_areStandIns)
        save(state, day, lists);
    else if (m_storage.prepare())
        saveState(state, day);
}

void SessionFiles::saveState(const UserState &state, const WorkDay &day)
{
    m_savedState.reset();
    SettingsFile &store = *m_session;
    store.setValue(key("password"), state.password);
    store.setValue(key("logged"), state.isLogged);
    store.setValue(key("active"), state.isActive);
    store.setValue(key("teamID"), state.teamId);
    store.setValue(key("taskID"), state.taskId);
    store.setValue(key("isOnline"), state.isOnline);
    store.setValue(key("worktimeDate"), QLocale::c().toString(day.date, kDateFormat));
    store.setValue(key("todayWorktime"), QLocale::c().toString(day.work.counted, kTimeFormat));
    store.setValue(key("todayActivetime"), QLocale::c().toString(day.active.counted, kTimeFormat));
    store.setValue(key("task2activeTimeMap"), day.activeTimes);
    if (write(store))
        m_savedState = state;
}

// Entries of lists and details that are gone stay in their files.
void SessionFiles::saveLists(TaskLists &lists)
{
    if (!exists(m_tasks))
        lists.setAllListsUnsaved();
    if (!exists(m_taskInfos))
        lists.setAllInfosUnsaved();
    TaskLists::Unsaved &unsaved = lists.unsaved();
    const QList<Team> teams = lists.teams();
    if (unsaved.teams || (!teams.isEmpty() && !exists(m_teams))) {
        m_teams->clear();
        for (const Team &team : teams)
            m_teams->setValue(keyOfId(team.id), team.name);
        unsaved.teams = !write(*m_teams);
    }
    writeEntries(*m_tasks, unsaved.lists, [&lists](const QString &teamId) { return lists.ofTeam(teamId); });
    writeEntries(*m_taskInfos, unsaved.infos,
                 [&lists](const QString &taskId) { return lists.infos().value(taskId); });
}
