// Replaces operator new by one that counts the program's allocations.
#pragma once

#include <cstdint>

namespace velto::bench {

// Calls of `operator new`, in all forms and on all threads, since the program's start.
uint64_t Allocations();

} // namespace velto::bench
