// Checks that repeated calls lose no handles, threads and memory.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Level 8. Each loads and frees the module itself.
std::span<const Check> ResourceChecks();

} // namespace velto::check
