// Measures how long the calls of each slot take, and compares them with a budget.
//
// A slow machine exceeds a budget without a fault of the module, so this is a warning and breaks no clause.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "check/portable/context.h"

namespace velto::check {

// The time in which a call of a slot, for example "WriteStreamBuffer", should return: 10 ms, or more for
// writes and for the microphone. A write that starts the speakers has no budget.
std::chrono::microseconds BudgetOf(std::string_view slot);

// Any thread.
class CallTimes {
public:
    using Duration = std::chrono::duration<double, std::micro>;

    // The environment, whose clock measures, outlives this object.
    explicit CallTimes(const Environment &environment) : m_environment(environment) {}

    // Makes the call and returns its result. `slot` is a string literal.
    template <typename Call>
    auto Of(std::string_view slot, Call call)
    {
        const auto begin = m_environment.Now();
        if constexpr (std::is_void_v<decltype(call())>) {
            call();
            Add(slot, m_environment.Now() - begin);
        } else {
            const auto result = call();
            Add(slot, m_environment.Now() - begin);
            return result;
        }
    }

    // The time that `percent` of a slot's calls did not exceed. Empty if no call of the slot was made.
    std::optional<Duration> Percentile(std::string_view slot, double percent) const;

    // Reports p50, p99, maximum and budget of each slot, and warns if p99 exceeds the budget.
    void Report(Context &context) const;

private:
    void Add(std::string_view slot, Duration time);

    const Environment &m_environment;
    mutable std::mutex m_mutex; // guards m_times
    std::map<std::string_view, std::vector<Duration>> m_times;
};

} // namespace velto::check
