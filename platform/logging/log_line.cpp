#include "logging/log_line.h"

#include <ctime>

#include <fmt/format.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace logging {
namespace {

#ifdef _WIN32
constexpr std::string_view lineEnding = "\r\n";
#else
constexpr std::string_view lineEnding = "\n";
#endif

std::tm LocalTime(std::time_t time)
{
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &time);
#else
    localtime_r(&time, &local);
#endif
    return local;
}

std::string_view NameOf(LOG_MESSAGE_LEVEL level)
{
    switch (level) {
    case LOG_LEVEL_TRACE:
        return "trace";
    case LOG_LEVEL_DEBUG:
        return "debug";
    case LOG_LEVEL_INFO:
        return "info";
    case LOG_LEVEL_ERROR:
        break;
    }
    return "error"; // also for an unknown level, so that its lines are noticed
}

} // namespace

std::string FormatLine(const LogLine &line)
{
    using std::chrono::floor;
    const auto seconds = floor<std::chrono::seconds>(line.time);
    const auto milliseconds = floor<std::chrono::milliseconds>(line.time - seconds).count();
    const std::tm local = LocalTime(std::chrono::system_clock::to_time_t(seconds));
    return fmt::format("{}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} [{}] [{}] [{}] {}{}", local.tm_year + 1900,
                       local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                       milliseconds, line.threadId, NameOf(line.level), line.channel, line.message,
                       lineEnding);
}

std::uint64_t CurrentThreadId()
{
#ifdef _WIN32
    return GetCurrentThreadId();
#else
    return static_cast<std::uint64_t>(gettid());
#endif
}

} // namespace logging
