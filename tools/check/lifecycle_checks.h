// Checks of the module's life in a process: start, threads, unloading, the end of the process.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Levels 5 to 8. Each loads and frees the module itself.
std::span<const Check> LifecycleChecks();

} // namespace velto::check
