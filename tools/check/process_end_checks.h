// Checks that a process can end at any time with its own exit code.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 7. Each starts further processes of this program, which load the module and end.
std::span<const Check> ProcessEndChecks();

} // namespace velto::check
