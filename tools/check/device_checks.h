// Checks that sound follows the default devices. A program cannot choose them: the user, or a test from
// outside, does it while the check runs.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 9.
std::span<const Check> DeviceChecks();

} // namespace velto::check
