// Checks of the module's log file. A module that is built with the platform's own logging library has none:
// they are skipped then.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 4.
std::span<const Check> LogChecks();

} // namespace velto::check
