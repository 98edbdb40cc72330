#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <ctime>

// The values of one INI file, held in memory. Entries that Qt could not have written are left
// out; what cannot be read, or is no file, is kept under another name. All of that is logged.
class SettingsFile final
{
public:
    enum class Use {
        Own, // ends with a checksum, in a comment; a file with a wrong one is set aside
        Shared // other programs write it, too, and would not keep a checksum up to date
    };

    // Stands in for a file that may not be touched: empty, and saves nothing.
    SettingsFile() = default;
    explicit SettingsFile(const QString &path, Use use = Use::Own);

    const QString &path() const { return m_path; }
    bool exists() const;
    QStringList keys() const { return m_values.keys(); }
    bool contains(const QString &key) const { return m_values.contains(key); }
    QVariant value(const QString &key, const QVariant &ifMissing = {}) const
    {
        return m_values.value(key, ifMissing);
    }
    void setValue(const QString &key, const QVariant &value);
    void clear();

    // Writes all values at once, those that other programs wrote to a shared file meanwhile
    // included: to a new file, which replaces the old one when it is whole and on the disk.
    // False when that did not work; the file is then the one before.
    bool save();

private:
    using Values = QMap<QString, QVariant>;

    bool load();
    bool writeTo(const QString &path) const;

    QString m_path;
    Use m_use = Use::Own;
    bool m_isLoaded = false;
    Values m_values;
    Values m_unsaved; // of these, what was set since the last save
};

// Moves aside what cannot be used in the place of a settings file, as reading and saving do.
// False when that did not work, or not yet: nothing may be read from there.
bool repairSettings(const QString &path);

// Gives a file, or whatever lies in its place, the name PATH.unusable-N, with a log line. False when that
// did not work.
bool moveAside(const QString &path);

// Whether the next change of a file that was changed then (seconds since the epoch)
// must show in its time; false for some seconds after a change.
bool isSettled(time_t changed);
