// What this process holds at a moment.
#pragma once

#include <cstdint>

#include "host/output.h"

namespace velto::host {

struct ProcessUsage {
    uint32_t handles = 0;
    uint32_t threads = 0;
    uint64_t committedBytes = 0; // of memory, its own
    uint64_t residentBytes = 0;
};

ProcessUsage MeasureProcess();

Json Describe(const ProcessUsage &usage);

} // namespace velto::host
