// Scripted results of the calls to a fake. All fakes use it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace fakes {

// Scripted instead of an error: the call succeeds but returns a null pointer.
constexpr int64_t nullResult = INT64_C(1) << 40;

// Scripted instead of an error: the call succeeds and stores `size` as its frames, padding, device state or
// in all fields of the mix format.
constexpr int64_t SizeResult(uint32_t size)
{
    return (INT64_C(1) << 41) | size;
}

// For GetMixFormat: like SizeResult(size), and Initialize of the same client accepts any format.
constexpr int64_t AcceptedFormatResult(uint32_t size)
{
    return (INT64_C(1) << 42) | SizeResult(size);
}

// Scripted for calls that return an object or a mix format: the call fails with `error`, but stores a pointer
// that must not be used, where Windows documents null.
constexpr int64_t BadPointerResult(HRESULT error)
{
    return (INT64_C(1) << 43) | static_cast<uint32_t>(error);
}

constexpr bool HasBadPointer(int64_t result)
{
    return result >= INT64_C(1) << 43;
}

// Using this pointer crashes.
template <typename Object>
void StoreBadPointer(Object **object)
{
    *object = reinterpret_cast<Object *>(uintptr_t{16});
}

// `Call`: the enumeration of the fake's functions. Thread-safe.
template <typename Call>
class FaultScript {
public:
    // Makes the `nth` call from now and the `times - 1` calls after it return `result`.
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

    // Counts a call, runs its action and returns its scripted result, if there is one.
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

    // Removes all faults and actions, but keeps the counts.
    void ClearFaults()
    {
        const std::lock_guard lock(m_mutex);
        m_faults.clear();
        m_actions.clear();
    }

    void Reset()
    {
        ClearFaults();
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
