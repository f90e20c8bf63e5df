// Handles, threads and memory of this process.
#pragma once

#include <cstdint>

namespace velto::host {

struct ProcessUsage {
    uint32_t handles = 0;
    uint32_t threads = 0;
    uint64_t committedBytes = 0; // private memory
    uint64_t residentBytes = 0;
};

// The state now. Where the system does not count handles, as under Wine, `handles` is the number of the
// lowest free handle: it grows with the handles that are lost, once they have filled the gaps between others.
ProcessUsage MeasureUsage();

} // namespace velto::host
