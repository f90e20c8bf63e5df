// Runs an action between a module's decision to wait on a condition variable and the wait.
#pragma once

#include <functional>

namespace fakes {

// The next call of DeadlineAfter runs `action` first, on the calling thread, which has locked the condition
// variable's mutex.
void BeforeNextDeadline(std::function<void()> action);

} // namespace fakes
