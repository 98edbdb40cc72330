#include "model/json.h"

namespace QtJson {

QList<BuilderJsonObject *> BuilderJsonObject::created_list;
QList<BuilderJsonArray *> BuilderJsonArray::created_list;

namespace {

template <typename Builder>
void deleteCreated(QList<Builder *> &created)
{
    qDeleteAll(created);
    created.clear();
}

template <typename Builder>
void enter(QList<Builder *> &created, Builder *builder)
{
    if (!created.contains(builder))
        created.append(builder);
}

} // namespace

BuilderJsonObject::BuilderJsonObject()
{
    deleteCreated(created_list);
}

BuilderJsonObject::BuilderJsonObject(QVariantMap &json)
    : m_map(json)
{
    deleteCreated(created_list);
}

BuilderJsonObject *BuilderJsonObject::set(const QString &key, const QVariant &value)
{
    m_map.insert(key, value);
    return this;
}

BuilderJsonObject *BuilderJsonObject::set(const QString &key, BuilderJsonObject *builder)
{
    enter(created_list, builder);
    m_map.insert(key, builder->m_map);
    return this;
}

BuilderJsonObject *BuilderJsonObject::set(const QString &key, BuilderJsonArray *builder)
{
    enter(BuilderJsonArray::created_list, builder);
    m_map.insert(key, builder->m_list);
    return this;
}

QVariantMap BuilderJsonObject::create()
{
    enter(created_list, this);
    return m_map;
}

BuilderJsonArray::BuilderJsonArray()
{
    deleteCreated(created_list);
}

BuilderJsonArray::BuilderJsonArray(QVariantList &json)
    : m_list(json)
{
    deleteCreated(created_list);
}

BuilderJsonArray *BuilderJsonArray::add(const QVariant &value)
{
    m_list.append(value);
    return this;
}

BuilderJsonArray *BuilderJsonArray::add(BuilderJsonObject *builder)
{
    enter(BuilderJsonObject::created_list, builder);
    m_list.append(builder->m_map);
    return this;
}

BuilderJsonArray *BuilderJsonArray::add(BuilderJsonArray *builder)
{
    enter(created_list, builder);
    m_list.append(QVariant(builder->m_list));
    return this;
}

QVariantList BuilderJsonArray::create()
{
    enter(created_list, this);
    return m_list;
}

BuilderJsonObject *objectBuilder()
{
    return new BuilderJsonObject;
}

BuilderJsonObject *objectBuilder(QVariantMap &json)
{
    return new BuilderJsonObject(json);
}

BuilderJsonArray *arrayBuilder()
{
    return new BuilderJsonArray;
}

BuilderJsonArray *arrayBuilder(QVariantList &json)
{
    return new BuilderJsonArray(json);
}

} // namespace QtJson
