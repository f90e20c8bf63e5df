// Checks of the DLL's file, of loading it, and of files and registry values that it writes. Each needs a
// process of velto-host.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

// Levels 1 and 4.
std::span<const Check> EntryProcessChecks();

} // namespace velto::check
