#include "check/portable/storm_figures.h"

namespace velto::check {

void StormFigures::Note(std::string_view slot, int32_t result, bool isDocumented)
{
    ++m_calls[slot][result];
    if (!isDocumented) {
        ++m_differences[std::string(slot) + " returned " + std::to_string(result)];
    }
}

void StormFigures::Add(const StormFigures &other)
{
    for (const auto &[slot, results] : other.m_calls) {
        for (const auto &[result, calls] : results) {
            m_calls[slot][result] += calls;
        }
    }
    for (const auto &[difference, times] : other.m_differences) {
        m_differences[difference] += times;
    }
    m_packets += other.m_packets;
}

uint64_t StormFigures::Different() const
{
    uint64_t calls = 0;
    for (const auto &[difference, times] : m_differences) {
        calls += times;
    }
    return calls;
}

} // namespace velto::check
