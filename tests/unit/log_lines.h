// What tests ask of the recorded log.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "log_recorder.h"

namespace velto_test {

inline fakes::LogRecorder &Recorded()
{
    return fakes::LogRecorder::Instance();
}

inline void ExpectLine(int level, const std::wstring &text, const std::string &tag, int count = 1)
{
    EXPECT_EQ(Recorded().Count(level, text, tag), count) << tag;
}

// Reports of a level; of a level and a text, whatever their tag.
inline int CountOf(int level)
{
    int count = 0;
    for (const fakes::LogEntry &entry : Recorded().Entries()) {
        count += entry.level == level ? 1 : 0;
    }
    return count;
}

inline int CountOf(int level, const std::wstring &text)
{
    int count = 0;
    for (const fakes::LogEntry &entry : Recorded().Entries()) {
        count += entry.level == level && entry.text == text ? 1 : 0;
    }
    return count;
}

} // namespace velto_test
