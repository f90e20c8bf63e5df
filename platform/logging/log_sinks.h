// Writes log lines to the rotating file and, on Windows, to the debugger.
#pragma once

#include <string>
#include <string_view>

#include "logging/log_settings.h"
#include "logging/logger.h"
#include "logging/rotating_file.h"

namespace logging {

// One thread at a time.
class LogSinks {
public:
    explicit LogSinks(const LogSettings &settings, RotatingFile::Clock now = std::chrono::steady_clock::now);
    LogSinks(const LogSinks &) = delete;
    LogSinks &operator=(const LogSinks &) = delete;

    // Writes one line, stamped with the current time and the calling thread, unless the settings filter its
    // level. `message` is UTF-8 without line breaks. The system has the line when the call returns. The first
    // call writes the settings' first line before it, and so does each call that begins a file.
    void Write(LOG_MESSAGE_LEVEL level, std::string_view channel, std::string_view message);

private:
    std::string FirstLine() const;

    const int m_lowestLevel;
    const std::string m_firstLine; // its message
    RotatingFile m_file;
    bool m_firstLineIsShown = false; // in the debugger
    bool m_fileFailureReported = false;
};

} // namespace logging
