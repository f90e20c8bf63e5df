#include "logging/log_sinks.h"

#include <fstream>

#include <gtest/gtest.h>

#include "tests/platform/fake_clock.h"
#include "tests/platform/test_folder.h"

namespace fs = std::filesystem;

namespace {

using logging::LogSettings;
using logging::LogSinks;

LogSettings SettingsFor(const fs::path &file, int lowestLevel = 1)
{
    LogSettings settings;
    settings.file = file;
    settings.lowestLevel = lowestLevel;
    return settings;
}

TEST(LogSinks, WritesTimeThreadLevelChannelAndMessage)
{
    const fs::path path = FreshPath("format.log");
    LogSinks(SettingsFor(path)).Write(LOG_LEVEL_INFO, "OceloMirror", "VeltoRelease type = 1");
    const std::vector<std::string> lines = ReadLines(path);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(AfterTimeAndThread(lines[0]), "[info] [OceloMirror] VeltoRelease type = 1") << lines[0];
}

TEST(LogSinks, WritesNameOfEachLevel)
{
    const fs::path path = FreshPath("levels.log");
    LogSinks sinks(SettingsFor(path));
    for (const auto level : {LOG_LEVEL_TRACE, LOG_LEVEL_DEBUG, LOG_LEVEL_INFO, LOG_LEVEL_ERROR}) {
        sinks.Write(level, "NR", "x");
    }
    const std::vector<std::string> lines = ReadLines(path);
    ASSERT_EQ(lines.size(), 4U);
    const char *names[] = {"[trace]", "[debug]", "[info]", "[error]"};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NE(lines[i].find(names[i]), std::string::npos) << lines[i];
    }
}

TEST(LogSinks, DropsLinesBelowLowestLevel)
{
    const fs::path path = FreshPath("filter.log");
    LogSinks errorsOnly(SettingsFor(path, LOG_LEVEL_ERROR));
    errorsOnly.Write(LOG_LEVEL_INFO, "NR", "periodic");
    errorsOnly.Write(LOG_LEVEL_ERROR, "NR", "failed");
    EXPECT_EQ(CountLinesWith(path, "periodic"), 0);
    EXPECT_EQ(CountLinesWith(path, "failed"), 1);

    const fs::path unused = FreshPath("off.log");
    LogSinks(SettingsFor(unused, logging::levelOff)).Write(LOG_LEVEL_ERROR, "NR", "failed");
    EXPECT_FALSE(fs::exists(unused)) << "a log that is off makes no file";
}

TEST(LogSinks, WritesBracesInMessageVerbatim)
{
    const fs::path path = FreshPath("braces.log");
    LogSinks(SettingsFor(path)).Write(LOG_LEVEL_INFO, "NR", "{} {0} %v %n");
    EXPECT_EQ(CountLinesWith(path, "[NR] {} {0} %v %n"), 1);
}

TEST(LogSinks, IgnoresLogFileThatCannotBeOpened)
{
    const fs::path path = FreshPath("folder");
    fs::create_directories(path);
    LogSinks sinks(SettingsFor(path));
    EXPECT_NO_THROW({
        for (int i = 0; i < 100; ++i) {
            sinks.Write(LOG_LEVEL_ERROR, "NR", "nowhere to go");
        }
    });
    LogSinks without{SettingsFor({})};
    EXPECT_NO_THROW(without.Write(LOG_LEVEL_ERROR, "NR", "nowhere to go"));
}

TEST(LogSinks, RetriesFailedFileAfterTenSeconds)
{
    const fs::path path = FreshPath("pause.log");
    fs::create_directories(path); // a folder has the file's name
    LogSinks sinks(SettingsFor(path), FakeClock::Now);
    sinks.Write(LOG_LEVEL_ERROR, "NR", "before");
    fs::remove(path);
    FakeClock::Advance(std::chrono::milliseconds{9999});
    sinks.Write(LOG_LEVEL_ERROR, "NR", "too early");
    EXPECT_FALSE(fs::exists(path));
    FakeClock::Advance(std::chrono::milliseconds{1});
    sinks.Write(LOG_LEVEL_ERROR, "NR", "in time");
    EXPECT_EQ(CountLinesWith(path, ""), 1);
    EXPECT_EQ(CountLinesWith(path, "in time"), 1);
}

void MakeFileOf(const fs::path &path, std::uint64_t bytes)
{
    std::ofstream{path};
    fs::resize_file(path, bytes);
}

TEST(LogSinks, RotatesBeforeLineThatWouldExceedFiveMebibytes)
{
    const fs::path measured = FreshPath("measured.log");
    LogSinks(SettingsFor(measured)).Write(LOG_LEVEL_INFO, "NR", "the line");
    const std::uint64_t lineBytes = fs::file_size(measured);
    constexpr std::uint64_t bound = 5242880;

    const fs::path path = FreshPath("bound.log");
    MakeFileOf(path, bound - lineBytes);
    LogSinks(SettingsFor(path)).Write(LOG_LEVEL_INFO, "NR", "the line");
    EXPECT_EQ(fs::file_size(path), bound);
    EXPECT_FALSE(fs::exists(OldPath(path, 1)));

    MakeFileOf(path, bound - lineBytes + 1);
    LogSinks(SettingsFor(path)).Write(LOG_LEVEL_INFO, "NR", "the line");
    EXPECT_EQ(fs::file_size(path), lineBytes);
    EXPECT_EQ(fs::file_size(OldPath(path, 1)), bound - lineBytes + 1);
}

TEST(LogSinks, KeepsTwoOldFiles)
{
    const fs::path path = FreshPath("generations.log");
    LogSinks sinks(SettingsFor(path));
    for (const char *message : {"first", "second", "third", "fourth"}) {
        sinks.Write(LOG_LEVEL_INFO, "NR", message);
        fs::resize_file(path, 5242880); // full
    }
    sinks.Write(LOG_LEVEL_INFO, "NR", "fifth");
    EXPECT_EQ(CountLinesWith(path, "fifth"), 1);
    EXPECT_EQ(CountLinesWith(OldPath(path, 1), "fourth"), 1);
    EXPECT_EQ(CountLinesWith(OldPath(path, 2), "third"), 1);
    EXPECT_FALSE(fs::exists(OldPath(path, 3)));
}

#ifndef _WIN32
TEST(LogSinks, IgnoresFullDisk)
{
    LogSinks sinks(SettingsFor("/dev/full"));
    EXPECT_NO_THROW(sinks.Write(LOG_LEVEL_ERROR, "NR", "no room"));
}
#endif

} // namespace
