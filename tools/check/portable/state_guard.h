// Compares the state of the calling thread and the process before and after a call.
#pragma once

#include <functional>
#include <string_view>

#include "check/portable/context.h"

namespace velto::check {

// Gives the calling thread and the process unusual settings, makes the call, reports each value that the call
// has changed, and restores the usual settings. `what` names the call. Does not throw unless `call` does.
void ExpectStateKept(Context &context, CallerState &state, std::string_view what,
                     const std::function<void()> &call);

// All clauses about the state; for Check::clauses.
std::vector<std::string_view> StateClauses();

// Reports each value of `after` that differs from `before`, from the index `first` on.
void ExpectSameState(Context &context, std::string_view what, const std::vector<StateValue> &before,
                     const std::vector<StateValue> &after, size_t first = 0);

} // namespace velto::check
