#include "host/stream_timer.h"

#include <ratio>

#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif

namespace velto::host {
namespace {

using TimerTicks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;

// Before Windows 10 1803 timers tick with the system's clock only, every 15.6 ms.
HANDLE CreateTimer()
{
    const HANDLE timer =
        CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, TIMER_ALL_ACCESS);
    return timer != nullptr ? timer : CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
}

} // namespace

StreamTimer::StreamTimer(const Interruption &interruption)
    : m_interruption(interruption), m_timer(CreateTimer())
{
}

StreamTimer::~StreamTimer()
{
    if (m_timer != nullptr) {
        CloseHandle(m_timer);
    }
}

bool StreamTimer::WaitUntil(Clock::time_point due)
{
    for (;;) {
        if (m_interruption.IsRaised()) {
            return false;
        }
        const auto remaining = std::chrono::ceil<TimerTicks>(due - Clock::now());
        if (remaining.count() <= 0) {
            return true;
        }
        LARGE_INTEGER relative;
        relative.QuadPart = -remaining.count(); // negative: from now
        if (m_timer != nullptr && SetWaitableTimer(m_timer, &relative, 0, nullptr, nullptr, FALSE)) {
            const HANDLE events[] = {m_interruption.Event(), m_timer};
            WaitForMultipleObjects(2, events, FALSE, INFINITE);
        } else {
            WaitForSingleObject(m_interruption.Event(), 1);
        }
    }
}

} // namespace velto::host
