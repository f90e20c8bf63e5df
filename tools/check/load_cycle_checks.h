// Storms in a process that loads and frees the module many times.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 8. Loads and frees the module itself; the module may also be loaded already.
std::span<const Check> LoadCycleChecks();

} // namespace velto::check
