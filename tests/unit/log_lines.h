// The log lines that the module has written since the last reset.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log_recorder.h"

namespace velto_test {

using fakes::LogEntry;

inline constexpr int infoLevel = LOG_LEVEL_INFO;
inline constexpr int errorLevel = LOG_LEVEL_ERROR;

inline fakes::LogRecorder &Recorded()
{
    return fakes::LogRecorder::Instance();
}

inline std::vector<LogEntry> Log()
{
    return Recorded().Entries();
}

inline std::vector<LogEntry> LogOf(const std::string &tag)
{
    return Recorded().EntriesOf(tag);
}

inline void ClearLog()
{
    Recorded().Clear();
}

inline void ExpectLine(int level, const std::wstring &text, const std::string &tag, int times = 1)
{
    EXPECT_EQ(Recorded().Count(level, text, tag), times)
        << ::testing::PrintToString(LogEntry{level, text, tag}) << " among "
        << ::testing::PrintToString(Log());
}

// Count the lines with this level, or with this level and text, whatever their tag.
inline int CountOf(int level)
{
    int count = 0;
    for (const LogEntry &entry : Log()) {
        count += entry.level == level ? 1 : 0;
    }
    return count;
}

inline int CountOf(int level, const std::wstring &text)
{
    int count = 0;
    for (const LogEntry &entry : Log()) {
        count += entry.level == level && entry.text == text ? 1 : 0;
    }
    return count;
}

} // namespace velto_test
