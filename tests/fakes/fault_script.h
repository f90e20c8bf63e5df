// What a fake does at the nth call of one of its functions. Shared by all fakes.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace fakes {

// Scripted in place of a failure: the call succeeds and hands out a null pointer.
constexpr int64_t nullResult = INT64_C(1) << 40;

// The call succeeds and tells `size`: frames, a padding, the state of a device, the fields of a format.
constexpr int64_t SizeResult(uint32_t size)
{
    return (INT64_C(1) << 41) | size;
}

// Scripted for GetMixFormat: SizeResult(size), and Initialize of the same client accepts any format.
constexpr int64_t AcceptedFormatResult(uint32_t size)
{
    return (INT64_C(1) << 42) | SizeResult(size);
}

// Any thread. `Call` is an enumeration of the fake's functions.
template <typename Call>
class FaultScript {
public:
    // Of the calls from now on, the `nth` and the `times - 1` after it return `result`.
    void Fail(Call call, int64_t result, int nth = 1, int times = 1)
    {
        const std::lock_guard lock(m_mutex);
        const int first = m_counts[call] + nth;
        m_faults.push_back({call, first, first + times - 1, result});
    }

    // Runs `action` just before the nth call from now, on the calling thread.
    void Before(Call call, std::function<void()> action, int nth = 1)
    {
        const std::lock_guard lock(m_mutex);
        m_actions.push_back({call, m_counts[call] + nth, std::move(action)});
    }

    // Counts a call and tells the result that it has to return, if one is scripted.
    std::optional<int64_t> Next(Call call)
    {
        std::function<void()> action;
        std::optional<int64_t> result;
        {
            const std::lock_guard lock(m_mutex);
            const int count = ++m_counts[call];
            for (Action &candidate : m_actions) {
                if (candidate.call == call && candidate.nth == count) {
                    action = std::move(candidate.action);
                }
            }
            for (const Fault &fault : m_faults) {
                if (fault.call == call && fault.first <= count && count <= fault.last) {
                    result = fault.result;
                }
            }
        }
        if (action) {
            action();
        }
        return result;
    }

    // Calls since the last Reset.
    int Count(Call call) const
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_counts.find(call);
        return found == m_counts.end() ? 0 : found->second;
    }

    int TotalCount() const
    {
        const std::lock_guard lock(m_mutex);
        int total = 0;
        for (const auto &[call, count] : m_counts) {
            total += count;
        }
        return total;
    }

    // No call fails any more; the counts stay.
    void Heal()
    {
        const std::lock_guard lock(m_mutex);
        m_faults.clear();
        m_actions.clear();
    }

    void Reset()
    {
        Heal();
        const std::lock_guard lock(m_mutex);
        m_counts.clear();
    }

private:
    struct Fault {
        Call call;
        int first;
        int last;
        int64_t result;
    };
    struct Action {
        Call call;
        int nth;
        std::function<void()> action;
    };

    mutable std::mutex m_mutex;
    std::map<Call, int> m_counts;
    std::vector<Fault> m_faults;
    std::vector<Action> m_actions;
};

} // namespace fakes
