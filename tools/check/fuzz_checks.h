// Checks with random calls and random units, for as long as the user asks.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 10.
std::span<const Check> FuzzChecks();

} // namespace velto::check
