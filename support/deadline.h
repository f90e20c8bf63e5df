// Ends of waits on condition variables.
#pragma once

#include <chrono>

namespace velto {

// The time `timeout` from now. A separate function so that unit tests can record and shorten timeouts.
inline std::chrono::steady_clock::time_point DeadlineAfter(std::chrono::milliseconds timeout)
{
    return std::chrono::steady_clock::now() + timeout;
}

} // namespace velto
