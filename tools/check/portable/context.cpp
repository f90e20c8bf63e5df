#include "check/portable/context.h"

namespace velto::check {

void Context::Step(std::string_view text, const std::vector<std::string_view> &clauses)
{
    const std::lock_guard lock(m_mutex);
    m_events.OnStep(text, clauses);
}

bool Context::Expect(bool isTrue, std::string_view clause, std::string_view text)
{
    if (!isTrue) {
        const std::lock_guard lock(m_mutex);
        m_events.OnFailure(clause, text);
    }
    return isTrue;
}

void Context::Require(bool isTrue, std::string_view clause, std::string_view text)
{
    if (!Expect(isTrue, clause, text)) {
        throw CheckEnded{};
    }
}

void Context::Warn(std::string_view text)
{
    const std::lock_guard lock(m_mutex);
    m_events.OnWarning(text);
}

void Context::Measured(std::string_view name, double value, std::string_view unit)
{
    const std::lock_guard lock(m_mutex);
    m_events.OnMeasured(name, value, unit);
}

void Context::Skip(std::string_view reason)
{
    {
        const std::lock_guard lock(m_mutex);
        m_events.OnSkipped(reason);
    }
    throw CheckEnded{};
}

} // namespace velto::check
