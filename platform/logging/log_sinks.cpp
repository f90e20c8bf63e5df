#include "logging/log_sinks.h"

#include <string>

#include "logging/log_line.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace logging {
namespace {

#ifdef _WIN32
void ShowInDebugger(std::string_view line)
{
    const int bytes = static_cast<int>(line.size());
    std::wstring text(line.size(), L'\0'); // UTF-16 never has more units than UTF-8 has bytes
    const int units = MultiByteToWideChar(CP_UTF8, 0, line.data(), bytes, text.data(), bytes);
    text.resize(static_cast<size_t>(units));
    OutputDebugStringW(text.c_str());
}
#else
void ShowInDebugger(std::string_view) {}
#endif

} // namespace

LogSinks::LogSinks(const LogSettings &settings, RotatingFile::Clock now)
    : m_lowestLevel(settings.lowestLevel),
      m_file(settings.file, settings.maxFileBytes, settings.oldFiles, settings.retryAfter, now)
{
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
    ShowInDebugger(line);
}

} // namespace logging
