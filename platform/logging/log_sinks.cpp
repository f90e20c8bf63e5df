#include "logging/log_sinks.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>

#ifdef _WIN32
#include <windows.h>

#include <string>
#endif

namespace logging {
namespace {

spdlog::level::level_enum ToSpdlogLevel(LOG_MESSAGE_LEVEL level)
{
    switch (level) {
    case LOG_LEVEL_TRACE:
        return spdlog::level::trace;
    case LOG_LEVEL_DEBUG:
        return spdlog::level::debug;
    case LOG_LEVEL_INFO:
        return spdlog::level::info;
    case LOG_LEVEL_ERROR:
        return spdlog::level::err;
    }
    return spdlog::level::err; // a level nobody knows is better seen than filtered
}

#ifdef _WIN32
void ShowInDebugger(std::string_view line)
{
    const int bytes = static_cast<int>(line.size());
    std::wstring text(line.size(), L'\0'); // UTF-16 never takes more units than UTF-8 takes bytes
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
      m_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e [%t] [%l] [%n] %v")),
      m_file(settings.file, settings.maxFileBytes, settings.oldFiles, settings.retryAfter, now)
{
}

LogSinks::~LogSinks() = default;

void LogSinks::Write(LOG_MESSAGE_LEVEL level, const char *channel, std::string_view message)
{
    if (level < m_lowestLevel) {
        return;
    }
    const spdlog::string_view_t payload(message.data(), message.size());
    spdlog::memory_buf_t formatted;
    m_formatter->format(spdlog::details::log_msg(channel, ToSpdlogLevel(level), payload), formatted);
    const std::string_view line(formatted.data(), formatted.size());

    const bool isWritten = m_file.Append(line);
    if (!isWritten && !m_saidThatFileFails) {
        ShowInDebugger(
            "LibVeltoAudioHandler: the log file cannot be written; lines go to the debugger only\r\n");
    }
    m_saidThatFileFails = !isWritten;
    ShowInDebugger(line);
}

} // namespace logging
