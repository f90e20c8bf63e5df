// What this process holds at a moment.
#pragma once

#include <cstdint>

namespace velto::host {

struct ProcessUsage {
    uint32_t handles = 0;
    uint32_t threads = 0;
    uint64_t committedBytes = 0; // of memory, its own
    uint64_t residentBytes = 0;
};

ProcessUsage MeasureProcess();

} // namespace velto::host
