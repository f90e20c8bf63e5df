// The rude ends that a host can make of a stream, for trying them. Times are in seconds; a negative
// one means "not asked for".
#pragma once

#include <cstdint>

namespace velto::host {

struct EndOptions {
    double unloadAfter = -1; // free the DLL while it works ...
    double unloadWait = 300; // ... and watch it go for so long at most
    double exitAfter = -1;   // end the process while the module works ...
    uint32_t exitCode = 0;   // ... with this exit code
};

} // namespace velto::host
