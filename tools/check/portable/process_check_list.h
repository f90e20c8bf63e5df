// The checks that need a process of velto-host under Windows: their names, levels, clauses and time limits.
// Their functions are in tools/check. The list is portable, so that tests on every system compare it with the
// clauses.
#pragma once

#include <span>
#include <string_view>

#include "check/portable/check.h"

namespace velto::check {

// In the order of their levels; `run` is null. `timeLimit` of a fuzzing check is added to the minutes that
// the user asks for.
std::span<const Check> ProcessCheckList();

// The entry of this name with its function. Throws std::logic_error for a name that is not in the list.
Check ProcessCheck(std::string_view name, void (*run)(Context &));

} // namespace velto::check
