// Waits for a point in time to about a millisecond, or for Ctrl-C. One thread.
#pragma once

#include <windows.h>

#include <chrono>

#include "host/interruption.h"

namespace velto::host {

class StreamTimer {
public:
    using Clock = std::chrono::steady_clock;

    explicit StreamTimer(const Interruption &interruption);
    ~StreamTimer();
    StreamTimer(const StreamTimer &) = delete;
    StreamTimer &operator=(const StreamTimer &) = delete;

    // False when interrupted, before or during the wait.
    bool WaitUntil(Clock::time_point due);
    bool WaitFor(Clock::duration time) { return WaitUntil(Clock::now() + time); }
    bool WaitFor(double seconds)
    {
        return WaitFor(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
    }

private:
    const Interruption &m_interruption;
    HANDLE m_timer;
};

inline double SecondsSince(StreamTimer::Clock::time_point begin)
{
    return std::chrono::duration<double>(StreamTimer::Clock::now() - begin).count();
}

} // namespace velto::host
