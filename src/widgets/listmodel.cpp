#include "widgets/listmodel.h"

#include <tuple>

bool haveSameContents(const Team &one, const Team &other)
{
    return one.id == other.id && one.name == other.name;
}

bool haveSameContents(const Task &one, const Task &other)
{
    return one.hasSameContents(other);
}

bool haveSameContents(const Attachment &one, const Attachment &other)
{
    const auto tied = [](const Attachment &a) { return std::tie(a.id, a.filename, a.filenameOrig, a.size); };
    return tied(one) == tied(other);
}

bool haveSameContents(const Keyword &one, const Keyword &other)
{
    const auto tied = [](const Keyword &k) { return std::tie(k.id, k.keyword, k.count, k.count2); };
    return tied(one) == tied(other);
}

bool haveSameContents(const TextTask &one, const TextTask &other)
{
    const auto tied = [](const TextTask &t) {
        return std::tie(t.id, t.text, t.title, t.minCount, t.page, t.task);
    };
    return tied(one) == tied(other) && haveSameContents(one.keywords, other.keywords);
}
