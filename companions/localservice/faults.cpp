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
    m_faults.insert(path, {fault, times});
    ++m_generation;
}

void FaultBook::clear()
{
    m_faults.clear();
    ++m_generation;
}

std::optional<Fault> FaultBook::take(const QString &path)
{
    for (const QString &key : {path, QStringLiteral("*")}) {
        const auto found = m_faults.find(key);
        if (found == m_faults.end() || found->times == 0)
            continue;
        if (found->times != kAlways)
            --found->times;
        return found->fault;
    }
    return std::nullopt;
}

} // namespace localservice
