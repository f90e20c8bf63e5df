// Checks of the idle release, four minutes after the last write.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 9.
std::span<const Check> IdleChecks();

} // namespace velto::check
