// All checks of velto-host.
#pragma once

#include <vector>

#include "check/portable/check.h"

namespace velto::check {

// By level; within a level, the portable checks come first. The checks live as long as the program.
std::vector<const Check *> AllChecks();

} // namespace velto::check
