#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

// JSON on Qt variants. The reader is lenient and the writer lossy in ways that
// the service and the records on disk rely on; see the notes at each.
namespace QtJson {

// Text after the first complete value is ignored. A null text gives an invalid
// variant and success; a syntax error, or nesting deeper than 1000 levels, an
// invalid variant and no success.
QVariant parse(const QString &json);
QVariant parse(const QString &json, bool &success);

// UTF-8. A value that cannot be written gives a null array and no success.
QByteArray serialize(const QVariant &data);
QByteArray serialize(const QVariant &data, bool &success, int indentLevel = 0);
QString serializeStr(const QVariant &data);
QString serializeStr(const QVariant &data, bool &success);

// An empty map or list clones to an invalid variant: the copy starts as one.
QVariant clone(const QVariant &data);
// What is not a map (or list) is replaced by an empty one first.
void insert(QVariant &v, const QString &key, const QVariant &value);
void append(QVariant &v, const QVariant &value);

// Process-wide settings of the writer. Without a date-time format both dates
// and date-times are written in Qt's text form.
void setDateTimeFormat(const QString &format);
void setDateFormat(const QString &format);
QString getDateTimeFormat();
QString getDateFormat();
void setPrettySerialize(bool pretty);
bool isPrettySerialize();

class BuilderJsonArray;

// Builders live on the heap and are not deleted by the caller: one that was
// created from or passed on is deleted when the next of its class is made.
class BuilderJsonObject
{
public:
    BuilderJsonObject();
    explicit BuilderJsonObject(QVariantMap &json);

    BuilderJsonObject *set(const QString &key, const QVariant &value);
    BuilderJsonObject *set(const QString &key, BuilderJsonObject *builder);
    BuilderJsonObject *set(const QString &key, BuilderJsonArray *builder);
    QVariantMap create();

private:
    friend class BuilderJsonArray;
    Q_DISABLE_COPY_MOVE(BuilderJsonObject)

    static QList<BuilderJsonObject *> created_list;
    QVariantMap m_map;
};

class BuilderJsonArray
{
public:
    BuilderJsonArray();
    explicit BuilderJsonArray(QVariantList &json);

    BuilderJsonArray *add(const QVariant &value);
    BuilderJsonArray *add(BuilderJsonObject *builder);
    BuilderJsonArray *add(BuilderJsonArray *builder);
    QVariantList create();

private:
    friend class BuilderJsonObject;
    Q_DISABLE_COPY_MOVE(BuilderJsonArray)

    static QList<BuilderJsonArray *> created_list;
    QVariantList m_list;
};

BuilderJsonObject *objectBuilder();
BuilderJsonObject *objectBuilder(QVariantMap &json);
BuilderJsonArray *arrayBuilder();
BuilderJsonArray *arrayBuilder(QVariantList &json);

} // namespace QtJson
