// Settings of the log: file and level from the environment, and fixed limits.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

namespace logging {

// One above LOG_LEVEL_ERROR, so that no line is logged.
constexpr int levelOff = 5;

struct LogSettings {
    std::filesystem::path file; // empty: no file
    int lowestLevel = 1;        // LOG_MESSAGE_LEVEL, or levelOff
    std::string firstLine;      // message at the beginning of each file; empty: none
    bool levelIsInvalid = false;
    std::uint64_t maxFileBytes = std::uint64_t{5} * 1024 * 1024;
    int oldFiles = 2; // rotated files, in addition to the current one
    // Pause before retrying a file that failed. Opening a file on a lost network drive can take seconds,
    // which would delay the play threads, because they log, too.
    std::chrono::milliseconds retryAfter = std::chrono::seconds{10};
};

// Reads VELTO_LOG_FILE and VELTO_LOG_LEVEL (1 to 4, or trace, debug, info, error, off; case-insensitive).
// Without VELTO_LOG_FILE, the file is VELTO/LibVeltoAudioHandler.log in the user's local application data:
// %LOCALAPPDATA% on Windows, else $XDG_STATE_HOME or ~/.local/state.
LogSettings ReadLogSettings();

} // namespace logging
