// The timeouts of waits on condition variables. tests/fakes/redirect.h redirects the module's DeadlineAfter
// here.
#pragma once

#include <chrono>
#include <vector>

namespace fakes {

// Records the timeout. Returns a time in the past for a negative timeout, the time about 50 microseconds from
// now for one below a second, and a day from now for a longer one: only a notification ends such a wait.
std::chrono::steady_clock::time_point DeadlineAfter(std::chrono::milliseconds timeout);

// The first ten thousand timeouts since the last reset, in order.
std::vector<std::chrono::milliseconds> Timeouts();
void ResetTimeouts();

} // namespace fakes
