// The JSON reader and writer. What was read can be written; what was written reads
// back to the same; whatever a strict writer writes is read.
#include "model/json.h"

#include <QJsonDocument>

#include <cstdlib>

namespace {

constexpr int kMaxNesting = 1000;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto *bytes = reinterpret_cast<const char *>(data);
    const QString text = QString::fromUtf8(bytes, static_cast<int>(size));
    bool ok = false;
    const QVariant value = QtJson::parse(text, ok);
    if (!ok) {
        require(!value.isValid());
        const QByteArray strict = QJsonDocument::fromJson(text.toUtf8()).toJson(QJsonDocument::Compact);
        if (!strict.isEmpty() && strict.count('[') + strict.count('{') <= kMaxNesting) {
            QtJson::parse(QString::fromUtf8(strict), ok);
            require(ok);
        }
        return 0;
    }
    QtJson::setPrettySerialize(size % 2 == 1);
    const QByteArray once = QtJson::serialize(value, ok);
    require(ok);
    const QVariant again = QtJson::parse(QString::fromUtf8(once.constData(), once.size()), ok);
    require(ok);
    const QByteArray twice = QtJson::serialize(again, ok);
    require(ok);
    // A large number without a point comes back as the text that it looked like.
    const QVariant third = QtJson::parse(QString::fromUtf8(twice.constData(), twice.size()), ok);
    require(ok && QtJson::serialize(third) == twice);

    QVariant copy = QtJson::clone(value);
    QtJson::insert(copy, QStringLiteral("key"), value);
    QtJson::append(copy, value);
    require(QtJson::clone(copy).isValid());
    return 0;
}
