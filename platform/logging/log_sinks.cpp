#include "logging/log_sinks.h"

#include <string>
#include <utility>

#include "logging/debugger.h"
#include "logging/log_line.h"

namespace logging {

LogSinks::LogSinks(const LogSettings &settings, RotatingFile::Clock now)
    : m_lowestLevel(settings.lowestLevel),
      m_firstLine(settings.lowestLevel <= LOG_LEVEL_INFO ? settings.firstLine : ""),
      m_file(settings.file, settings.maxFileBytes, settings.oldFiles, settings.retryAfter, now)
{
    if (!m_firstLine.empty()) {
        m_file.BeginWith([this] { return FirstLine(); });
    }
}

std::string LogSinks::FirstLine() const
{
    return FormatLine(
        {std::chrono::system_clock::now(), CurrentThreadId(), LOG_LEVEL_INFO, "Logging", m_firstLine});
}

void LogSinks::Write(LOG_MESSAGE_LEVEL level, std::string_view channel, std::string_view message)
{
    if (level < m_lowestLevel) {
        return;
    }
    const std::string line =
        FormatLine({std::chrono::system_clock::now(), CurrentThreadId(), level, channel, message});
    const bool isWritten = m_file.Append(line);
    if (!isWritten && !m_fileFailureReported) {
        ShowInDebugger(
            "LibVeltoAudioHandler: the log file cannot be written; lines go to the debugger only\r\n");
    }
    m_fileFailureReported = !isWritten;
    if (!m_firstLine.empty() && !std::exchange(m_firstLineIsShown, true)) {
        ShowInDebugger(FirstLine());
    }
    ShowInDebugger(line);
}

} // namespace logging
