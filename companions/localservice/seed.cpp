#include "localservice/seed.h"

#include "localservice/replies.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>

#include <stdexcept>

namespace localservice {

namespace {

// What is wrong in the seed, and where.
class SeedError final : public std::runtime_error
{
public:
    SeedError(const QString &place, const QString &problem)
        : std::runtime_error(QString(place % QStringLiteral(": ") % problem).toStdString())
    { }
};

// One object of the seed. Reading a value marks its key as known; close() rejects the others,
// which are most likely misspelt.
class Node final
{
public:
    Node(const QJsonValue &value, const QString &place, const QDateTime &now)
        : m_object(value.toObject())
        , m_place(place)
        , m_now(now)
    {
        if (!value.isObject())
            throw SeedError(place, QStringLiteral("здесь должен быть объект {…}"));
    }

    QString text(const QString &key)
    {
        const QJsonValue value = take(key);
        if (!value.isUndefined() && !value.isString() && !value.isDouble())
            throw SeedError(placeOf(key), QStringLiteral("здесь должен быть текст"));
        return value.toVariant().toString();
    }

    QString requiredText(const QString &key)
    {
        QString value = text(key);
        if (value.isEmpty())
            throw SeedError(placeOf(key), QStringLiteral("значение обязательно"));
        return value;
    }

    int number(const QString &key)
    {
        const QJsonValue value = take(key);
        constexpr int wrong = -1;
        const int number = value.isUndefined() ? 0 : value.toInt(wrong);
        if (number < 0)
            throw SeedError(placeOf(key), QStringLiteral("здесь должно быть целое число от нуля"));
        return number;
    }

    QDateTime time(const QString &key)
    {
        static const QRegularExpression relative(QStringLiteral("^([+-][0-9]{1,6})([mhd])$"));
        const QString given = text(key);
        if (given.isEmpty())
            return {};
        const QRegularExpressionMatch match = relative.match(given);
        if (match.hasMatch()) {
            constexpr qint64 minute = 60;
            constexpr qint64 hour = 60 * minute;
            const int amount = match.captured(1).toInt();
            const QString unit = match.captured(2);
            return unit == QLatin1Char('d')
                ? m_now.addDays(amount)
                : m_now.addSecs(amount * (unit == QLatin1Char('h') ? hour : minute));
        }
        QDateTime when = fromWireTime(given);
        if (!when.isValid()) {
            throw SeedError(
                placeOf(key),
                QStringLiteral("«%1» — не время вида 2024-03-01 18:00:00 или -30m, +2h, +3d").arg(given));
        }
        return when;
    }

    template <typename Item, typename Read>
    QVector<Item> list(const QString &key, Read read)
    {
        const QJsonValue value = take(key);
        if (!value.isUndefined() && !value.isArray())
            throw SeedError(placeOf(key), QStringLiteral("здесь должен быть список […]"));
        QVector<Item> items;
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            Node node(array.at(i), QStringLiteral("%1[%2]").arg(placeOf(key)).arg(i), m_now);
            items.append(read(node));
            node.close();
        }
        return items;
    }

    QJsonValue take(const QString &key)
    {
        m_known.append(key);
        return m_object.value(key);
    }

    void close() const
    {
        for (const QString &key : m_object.keys()) {
            if (!m_known.contains(key)) {
                throw SeedError(m_place.isEmpty() ? QStringLiteral("seed") : m_place,
                                QStringLiteral("неизвестный ключ «%1»").arg(key));
            }
        }
    }

    QString placeOf(const QString &key) const
    {
        return m_place.isEmpty() ? key : QString(m_place % QLatin1Char('.') % key);
    }

    const QDateTime &now() const { return m_now; }

private:
    QJsonObject m_object;
    QString m_place;
    QDateTime m_now;
    QStringList m_known;
};

Attachment readAttachment(Node &node)
{
    return {node.text(QStringLiteral("id")), node.text(QStringLiteral("filename")),
            node.text(QStringLiteral("filename_orig")), node.text(QStringLiteral("size"))};
}

Keyword readKeyword(Node &node)
{
    return {node.text(QStringLiteral("id")), node.text(QStringLiteral("keyword")),
            node.text(QStringLiteral("count")), node.text(QStringLiteral("count2"))};
}

TextAssignment readText(Node &node)
{
    return {node.text(QStringLiteral("id")),
            node.text(QStringLiteral("title")),
            node.text(QStringLiteral("text")),
            node.text(QStringLiteral("min_count")),
            node.text(QStringLiteral("page")),
            node.text(QStringLiteral("task")),
            node.list<Keyword>(QStringLiteral("keywords"), readKeyword)};
}

Task readTask(Node &node)
{
    Task task;
    task.id = node.requiredText(QStringLiteral("id"));
    task.title = node.requiredText(QStringLiteral("title"));
    task.deadline = node.time(QStringLiteral("deadline"));
    const QString block = node.text(QStringLiteral("block"));
    task.block = block.isEmpty() ? task.block : block;
    task.lastComment = node.time(QStringLiteral("last_comment"));
    task.importance = node.number(QStringLiteral("importance"));
    task.details = {node.text(QStringLiteral("text")),
                    node.text(QStringLiteral("executor_name")),
                    node.text(QStringLiteral("creator_name")),
                    node.text(QStringLiteral("auditor_name")),
                    node.list<Attachment>(QStringLiteral("files"), readAttachment),
                    node.list<TextAssignment>(QStringLiteral("texts"), readText)};
    return task;
}

Team readTeam(Node &node)
{
    return {node.requiredText(QStringLiteral("id")), node.requiredText(QStringLiteral("name")),
            node.list<Task>(QStringLiteral("tasks"), readTask)};
}

User readUser(Node &node)
{
    User user;
    user.login = node.requiredText(QStringLiteral("login"));
    user.password = node.requiredText(QStringLiteral("password"));
    const QVariantList teams = node.take(QStringLiteral("teams")).toArray().toVariantList();
    for (const QVariant &team : teams)
        user.teams.append(team.toString());
    user.worked.active = node.number(QStringLiteral("today_active"));
    user.worked.total = node.number(QStringLiteral("today_total"));
    const QJsonObject tasks = node.take(QStringLiteral("today_tasks")).toObject();
    for (auto entry = tasks.begin(); entry != tasks.end(); ++entry)
        user.worked.tasks.insert(entry.key(), entry.value().toInt());
    user.workedOn = node.now().date();
    return user;
}

World readWorld(const QJsonValue &root, const QDateTime &now)
{
    Node node(root, QString(), now);
    World world;
    world.users = node.list<User>(QStringLiteral("users"), readUser);
    const QVector<Team> teams = node.list<Team>(QStringLiteral("teams"), readTeam);
    for (const Team &team : teams) {
        if (!world.addTeam({team.id, team.name})) {
            throw SeedError(QStringLiteral("teams"),
                            QStringLiteral("команда «%1» встречается дважды").arg(team.id));
        }
        for (const Task &task : team.tasks) {
            if (!world.addTask(team.id, task)) {
                throw SeedError(QStringLiteral("teams"),
                                QStringLiteral("задача «%1» встречается дважды").arg(task.id));
            }
        }
    }
    QStringList versions;
    const QVariantList offered = node.take(QStringLiteral("versions")).toArray().toVariantList();
    for (const QVariant &version : offered)
        versions.append(version.toString());
    world.setVersions(versions);
    if (world.users.isEmpty())
        throw SeedError(QStringLiteral("users"), QStringLiteral("нужен хотя бы один пользователь"));
    node.close();
    return world;
}

} // namespace

QByteArray demoSeed()
{
    QFile file(QStringLiteral(":/localservice/seed.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

World demoWorld(const QDateTime &now)
{
    QString error;
    return worldFromSeed(demoSeed(), now, &error).value_or(World());
}

std::optional<World> worldFromSeed(const QByteArray &json, const QDateTime &now, QString *error)
{
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(json, &problem);
    if (problem.error != QJsonParseError::NoError) {
        *error = QStringLiteral("строка %1: %2")
                     .arg(json.left(problem.offset).count('\n') + 1)
                     .arg(problem.errorString());
        return std::nullopt;
    }
    try {
        return readWorld(document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()),
                         now);
    } catch (const SeedError &bad) {
        *error = QString::fromUtf8(bad.what());
        return std::nullopt;
    }
}

std::optional<World> loadWorld(const QString &folder, const QDateTime &now, QString *error)
{
    const QString name = folder % QStringLiteral("/seed.json");
    if (!QFile::exists(name)) {
        QSaveFile made(name);
        if (!QDir().mkpath(folder) || !made.open(QIODevice::WriteOnly) || made.write(demoSeed()) < 0
            || !made.commit()) {
            *error = QStringLiteral("не удалось создать «%1»: %2").arg(name, made.errorString());
            return std::nullopt;
        }
    }
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("не удалось прочитать «%1»: %2").arg(name, file.errorString());
        return std::nullopt;
    }
    std::optional<World> world = worldFromSeed(file.readAll(), now, error);
    if (!world)
        *error = QStringLiteral("«%1»: %2").arg(name, *error);
    return world;
}

} // namespace localservice
