#include "host/call_counts.h"

namespace velto::host {

void CallCounts::Note(const std::string &slot, int32_t result, int32_t documented)
{
    const std::lock_guard lock(m_mutex);
    ++m_counts[slot][result];
    m_different += result == documented ? 0 : 1;
}

Json CallCounts::Report() const
{
    const std::lock_guard lock(m_mutex);
    Json report = Json::object();
    for (const auto &[slot, results] : m_counts) {
        for (const auto &[result, calls] : results) {
            report[slot][std::to_string(result)] = calls;
        }
    }
    return report;
}

uint64_t CallCounts::Different() const
{
    const std::lock_guard lock(m_mutex);
    return m_different;
}

} // namespace velto::host
