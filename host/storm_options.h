// What "velto-host storm" was asked to do. Times are in seconds; a negative one means "not asked for".
#pragma once

#include <cstdint>
#include <string>

#include "host/end_options.h"

namespace velto::host {

struct StormOptions {
    std::string file;
    double seconds = 10; // of each storm
    uint32_t loads = 1;  // how often the module is loaded, stormed and freed; if more, it is watched going
    uint32_t seed = 1;
    EndOptions end; // unloadAfter is not used
};

} // namespace velto::host
