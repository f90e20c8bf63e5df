#include "logging/log_line.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "tests/platform/process.h"
#include "tests/platform/test_folder.h"
#include "tests/platform/threads.h"

namespace {

using logging::CurrentThreadId;
using logging::FormatLine;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::system_clock;

// Converts a local time, so that its text in the log is the same in every time zone.
system_clock::time_point LocalTime(int year, int month, int day, int hour, int minute, int second)
{
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1; // unknown: mktime determines it
    return system_clock::from_time_t(std::mktime(&local));
}

TEST(LogLine, ShowsTimeThreadLevelChannelAndMessage)
{
    const auto time = LocalTime(2026, 3, 7, 4, 5, 6) + milliseconds{7};
    EXPECT_EQ(FormatLine({time, 4711, LOG_LEVEL_INFO, "OceloMirror", "VeltoRelease type = 1"}),
              std::string("2026-03-07 04:05:06.007 [4711] [info] [OceloMirror] VeltoRelease type = 1") +
                  lineEnding);
    EXPECT_EQ(FormatLine({time, 0xFFFFFFFF, LOG_LEVEL_ERROR, "", ""}),
              std::string("2026-03-07 04:05:06.007 [4294967295] [error] [] ") + lineEnding);
}

TEST(LogLine, TruncatesTimeToMilliseconds)
{
    const auto time = LocalTime(2031, 11, 23, 18, 59, 48) + microseconds{999999};
    EXPECT_EQ(FormatLine({time, 1, LOG_LEVEL_INFO, "NR", "x"}),
              std::string("2031-11-23 18:59:48.999 [1] [info] [NR] x") + lineEnding);
}

TEST(LogLine, ShowsLevelByNameAndUnknownLevelAsError)
{
    const auto time = LocalTime(2026, 3, 7, 4, 5, 6);
    const std::pair<int, std::string> levels[] = {{1, "trace"}, {2, "debug"}, {3, "info"},
                                                  {4, "error"}, {0, "error"}, {7, "error"}};
    for (const auto &[level, name] : levels) {
        EXPECT_EQ(FormatLine({time, 1, static_cast<LOG_MESSAGE_LEVEL>(level), "NR", "x"}),
                  "2026-03-07 04:05:06.000 [1] [" + name + "] [NR] x" + lineEnding);
    }
}

// Changes the time zone of the C runtime. Restores the previous one at the end of the scope.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const std::string &zone)
    {
        const char *previous = std::getenv("TZ");
        m_previous = previous != nullptr ? previous : "";
        Set(zone);
    }
    ~ScopedTimeZone() { Set(m_previous); }
    ScopedTimeZone(const ScopedTimeZone &) = delete;
    ScopedTimeZone &operator=(const ScopedTimeZone &) = delete;

private:
    // An empty value removes the variable.
    static void Set(const std::string &zone)
    {
#ifdef _WIN32
        _putenv_s("TZ", zone.c_str());
        _tzset();
#else
        SetEnvironment("TZ", zone);
        tzset();
#endif
    }

    std::string m_previous;
};

TEST(LogLine, ShowsLocalTime)
{
    const ScopedTimeZone zone("ABC-05:45");
    const auto time = system_clock::from_time_t(1772835606); // 2026-03-06 22:20:06 UTC
    EXPECT_EQ(FormatLine({time, 1, LOG_LEVEL_INFO, "NR", "x"}),
              std::string("2026-03-07 04:05:06.000 [1] [info] [NR] x") + lineEnding);
}

TEST(LogLine, ReportsIdOfCallingThread)
{
    const std::uint64_t mainThread = CurrentThreadId();
    EXPECT_EQ(mainThread, ThreadId());
    RunOnThreads(1, [&](int) {
        EXPECT_EQ(CurrentThreadId(), ThreadId());
        EXPECT_NE(CurrentThreadId(), mainThread);
    });
}

} // namespace
