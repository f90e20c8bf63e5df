// Waiting for another thread in tests.
#pragma once

#include <chrono>
#include <functional>

namespace fakes {

// How long a poll sleeps. On Windows, a sleep below a millisecond only gives up the rest of the time slice,
// so a thread that polls more often keeps a processor busy.
#ifdef _WIN32
inline constexpr std::chrono::microseconds pollTime{1000};
#else
inline constexpr std::chrono::microseconds pollTime{200};
#endif

// Polls until the condition is true. False after ten seconds.
bool Eventually(const std::function<bool()> &condition);

} // namespace fakes
