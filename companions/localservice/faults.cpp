#include "localservice/faults.h"

namespace localservice {

namespace {

Fault ofKind(Fault::Kind kind)
{
    Fault fault;
    fault.kind = kind;
    return fault;
}

} // namespace

Fault Fault::refuse()
{
    return ofKind(Kind::Refuse);
}

Fault Fault::loseReply()
{
    return ofKind(Kind::LoseReply);
}

Fault Fault::delayed(std::chrono::milliseconds delay)
{
    Fault fault = ofKind(Kind::Delay);
    fault.delay = delay;
    return fault;
}

Fault Fault::answer(int status, const QByteArray &body)
{
    Fault fault = ofKind(Kind::Answer);
    fault.status = status;
    fault.body = body;
    return fault;
}

Fault Fault::truncate(int keepBytes)
{
    Fault fault = ofKind(Kind::Truncate);
    fault.keepBytes = keepBytes;
    return fault;
}

Fault Fault::hang()
{
    return ofKind(Kind::Hang);
}

void FaultBook::set(const QString &path, const Fault &fault, int times)
{
    m_queues.remove(path);
    append(path, fault, times);
}

void FaultBook::append(const QString &path, const Fault &fault, int times)
{
    m_queues[path].push_back({fault, times});
    ++m_generation;
}

void FaultBook::clear(const QString &path)
{
    m_queues.remove(path);
    ++m_generation;
}

void FaultBook::clear()
{
    m_queues.clear();
    ++m_generation;
}

std::optional<Fault> FaultBook::take(const QString &path)
{
    for (const QString &key : {path, QStringLiteral("*")}) {
        const auto queue = m_queues.find(key);
        if (queue == m_queues.end()) {
            continue;
        }
        while (!queue->empty() && queue->front().times == 0) {
            queue->pop_front();
        }
        if (!queue->empty()) {
            return takeFrom(*queue);
        }
    }
    return std::nullopt;
}

std::optional<Fault> FaultBook::takeFrom(std::deque<Entry> &queue)
{
    Entry &next = queue.front();
    if (next.fault.skip > 0) {
        --next.fault.skip;
        return std::nullopt;
    }
    if (next.times > 0) {
        --next.times;
    }
    return next.fault;
}

} // namespace localservice
