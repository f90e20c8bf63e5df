// The text of one log line.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "logging/logger.h"

namespace logging {

struct LogLine {
    std::chrono::system_clock::time_point time;
    std::uint64_t threadId;
    LOG_MESSAGE_LEVEL level;
    std::string_view channel;
    std::string_view message; // UTF-8 without line breaks
};

// Formats a line as "2026-03-07 04:05:06.007 [4711] [info] [OceloMirror] message" with the system's line
// ending. The time is local time.
std::string FormatLine(const LogLine &line);

// The system's id of the calling thread.
std::uint64_t CurrentThreadId();

} // namespace logging
