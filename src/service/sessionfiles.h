#pragma once

#include <QString>

#include <memory>
#include <optional>

class QDate;
class SettingsFile;
class StorageFolder;
class TaskLists;
struct DayCounters;
struct WorkDay;

// Who is logged in, and what they have chosen.
struct UserState
{
    QString login;
    QString password;
    QString teamId;
    QString taskId;
    bool isActive = false; // the timer runs
    bool isLogged = false;
    bool isOnline = true;

    // All that the user decides; whether the service can be reached is not part of it.
    bool hasSameChoice(const UserState &other) const;
};

// config.ini and the user's four files. A save writes what has changed since the last one
// and what is missing on the disk: rewriting tens of thousands of unchanged entries every
// minute would hold up the window. What the disk refuses is written by the next save.
class SessionFiles final
{
    Q_DISABLE_COPY_MOVE(SessionFiles)

public:
    // The folder must outlive the files.
    explicit SessionFiles(StorageFolder &storage);
    ~SessionFiles();

    QString lastLogin() const;
    // Makes the user's folders and opens the four files in it. While the storage folder is
    // not usable, empty ones stand in for them.
    void open(const QString &login);
    void close();
    bool hasTeamsFile() const { return exists(m_teams); }
    bool hasTasksFile() const { return exists(m_tasks); }

    // The counters as they are stored, whatever their day; none without a file.
    std::optional<DayCounters> storedCounters() const;
    // Without a file these leave everything as it is. True when the counters are today's.
    bool restore(UserState &state, WorkDay &day, const QDate &today, bool readPassword);
    void restore(TaskLists &lists) const;
    void save(const UserState &state, const WorkDay &day, TaskLists &lists);
    // Nothing when the file holds the user's choice already.
    void saveChoice(const UserState &state, const WorkDay &day, TaskLists &lists);

private:
    using Store = std::unique_ptr<SettingsFile>;

    static bool exists(const Store &store);
    void saveState(const UserState &state, const WorkDay &day);
    void saveLists(TaskLists &lists);

    StorageFolder &m_storage;
    Store m_config;
    Store m_session;
    Store m_teams;
    Store m_tasks;
    Store m_taskInfos;
    bool m_areStandIns = false;
    bool m_isLoginUnsaved = false;
    std::optional<UserState> m_savedState;
};
