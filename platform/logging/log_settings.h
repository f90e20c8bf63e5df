// What the environment says about the log, and the bounds that it does not set.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace logging {

// One above LOG_LEVEL_ERROR: nothing is logged.
constexpr int levelOff = 5;

struct LogSettings {
    std::filesystem::path file; // empty: no file
    int lowestLevel = 1;        // LOG_MESSAGE_LEVEL, or levelOff
    bool levelIsInvalid = false;
    std::uint64_t maxFileBytes = std::uint64_t{5} * 1024 * 1024;
    int oldFiles = 2; // kept next to the current one
    // How long a file that failed is left alone: an attempt on a network drive that has gone can take
    // seconds, and lines may come from the thread that plays.
    std::chrono::milliseconds retryAfter = std::chrono::seconds{10};
};

// Reads VELTO_LOG_FILE and VELTO_LOG_LEVEL (1 to 4, or trace, debug, info, error, off; in any
// case). Without the former the file is VELTO/LibVeltoAudioHandler.log under the user's local
// application data (%LOCALAPPDATA%; elsewhere $XDG_STATE_HOME, or ~/.local/state).
LogSettings ReadLogSettings();

} // namespace logging
