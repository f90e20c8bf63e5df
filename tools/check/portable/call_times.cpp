#include "check/portable/call_times.h"

#include <algorithm>
#include <cmath>

namespace velto::check {
namespace {

using namespace std::chrono_literals;

// The time of rank `percent` of at least one call.
CallTimes::Duration Ranked(std::vector<CallTimes::Duration> times, double percent)
{
    const double rank = std::ceil(percent / 100 * static_cast<double>(times.size()));
    const auto place = static_cast<std::ptrdiff_t>(std::max(rank, 1.0)) - 1;
    std::nth_element(times.begin(), times.begin() + place, times.end());
    return times[static_cast<size_t>(place)];
}

} // namespace

std::chrono::microseconds BudgetOf(std::string_view slot)
{
    if (slot == "WriteStreamBuffer") {
        return 21ms; // the time until the next unit
    }
    if (slot == "ReadStreamBuffer") {
        return 38ms; // the longest wait, 22 ms, and one tick of a coarse timer
    }
    if (slot == "OpenAudioRecord" || slot == "CloseAudioRecord") {
        return 2s; // both start or end threads, and wait for the sound system
    }
    return 10ms;
}

void CallTimes::Add(std::string_view slot, Duration time)
{
    const std::lock_guard lock(m_mutex);
    m_times[slot].push_back(time);
}

std::optional<CallTimes::Duration> CallTimes::Percentile(std::string_view slot, double percent) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_times.find(slot);
    if (found == m_times.end()) {
        return std::nullopt;
    }
    return Ranked(found->second, percent);
}

void CallTimes::Report(Context &context) const
{
    const std::lock_guard lock(m_mutex);
    for (const auto &[slot, times] : m_times) {
        const Duration p99 = Ranked(times, 99);
        context.Measured(fmt::format("{} p50", slot), Ranked(times, 50).count(), "µs");
        context.Measured(fmt::format("{} p99", slot), p99.count(), "µs");
        context.Measured(fmt::format("{} maximum", slot), Ranked(times, 100).count(), "µs");
        const std::chrono::duration<double, std::milli> budget = BudgetOf(slot);
        context.Measured(fmt::format("{} budget", slot), budget.count(), "ms");
        if (p99 > budget) {
            context.Warn(fmt::format("{} took {:.1f} ms (p99 of {} calls); its budget is {:.0f} ms", slot,
                                     p99.count() / 1000, times.size(), budget.count()));
        }
    }
}

} // namespace velto::check
