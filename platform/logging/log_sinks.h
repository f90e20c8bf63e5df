// Where lines go: the rotating file and, on Windows, the debugger.
#pragma once

#include <memory>
#include <string_view>

#include "logging/log_settings.h"
#include "logging/logger.h"
#include "logging/rotating_file.h"

namespace spdlog {
class pattern_formatter;
}

namespace logging {

// One thread at a time.
class LogSinks {
public:
    explicit LogSinks(const LogSettings &settings, RotatingFile::Clock now = std::chrono::steady_clock::now);
    ~LogSinks();
    LogSinks(const LogSinks &) = delete;
    LogSinks &operator=(const LogSinks &) = delete;

    // Writes one line, whose message is UTF-8 without line breaks, unless its level is filtered.
    // Each line reaches the system before this returns.
    void Write(LOG_MESSAGE_LEVEL level, const char *channel, std::string_view message);

private:
    const int m_lowestLevel;
    std::unique_ptr<spdlog::pattern_formatter> m_formatter;
    RotatingFile m_file;
    bool m_saidThatFileFails = false;
};

} // namespace logging
