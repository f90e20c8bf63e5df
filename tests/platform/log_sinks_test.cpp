#include "logging/log_sinks.h"

#include <chrono>
#include <fstream>

#include <gtest/gtest.h>

#include "logging/log_line.h"
#include "tests/platform/debugger_fake.h"
#include "tests/platform/fake_clock.h"
#include "tests/platform/process.h"
#include "tests/platform/test_folder.h"
#include "tests/platform/threads.h"

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

// Formats a time as log lines do, such as "2026-03-07 04:05:06.007".
std::string TimeText(std::chrono::system_clock::time_point time)
{
    return logging::FormatLine({time, 0, LOG_LEVEL_INFO, "", ""}).substr(0, 23);
}

TEST(LogSinks, WritesTimeOfCallAndCallersThread)
{
    const fs::path path = FreshPath("stamp.log");
    unsigned long thread = 0;
    const auto before = std::chrono::system_clock::now();
    RunOnThreads(1, [&](int) {
        thread = ThreadId();
        LogSinks(SettingsFor(path)).Write(LOG_LEVEL_ERROR, "NR", "VeltoRelease type = 1");
    });
    const auto after = std::chrono::system_clock::now();

    const std::string line = ReadBytes(path);
    const std::string rest = std::string("[error] [NR] VeltoRelease type = 1") + lineEnding;
    EXPECT_EQ(AfterTimeAndThread(line), rest) << line;
    const std::string time = line.substr(0, 23);
    EXPECT_EQ(line, time + " [" + std::to_string(thread) + "] " + rest);
    EXPECT_LE(TimeText(before), time);
    EXPECT_LE(time, TimeText(after));
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
    EXPECT_FALSE(fs::exists(unused)) << "level off creates no file";
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
            sinks.Write(LOG_LEVEL_ERROR, "NR", "lost");
        }
    });
    LogSinks sinksWithoutFile{SettingsFor({})};
    EXPECT_NO_THROW(sinksWithoutFile.Write(LOG_LEVEL_ERROR, "NR", "lost"));
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

void CreateFileOfSize(const fs::path &path, std::uint64_t bytes)
{
    std::ofstream{path};
    fs::resize_file(path, bytes);
}

TEST(LogSinks, RotatesBeforeLineThatWouldExceedFiveMebibytes)
{
    const fs::path measured = FreshPath("measured.log");
    LogSinks(SettingsFor(measured)).Write(LOG_LEVEL_INFO, "NR", "the line");
    const std::uint64_t lineBytes = fs::file_size(measured);
    constexpr std::uint64_t maxBytes = 5242880;

    const fs::path path = FreshPath("bound.log");
    CreateFileOfSize(path, maxBytes - lineBytes);
    LogSinks(SettingsFor(path)).Write(LOG_LEVEL_INFO, "NR", "the line");
    EXPECT_EQ(fs::file_size(path), maxBytes);
    EXPECT_FALSE(fs::exists(OldPath(path, 1)));

    CreateFileOfSize(path, maxBytes - lineBytes + 1);
    LogSinks(SettingsFor(path)).Write(LOG_LEVEL_INFO, "NR", "the line");
    EXPECT_EQ(fs::file_size(path), lineBytes);
    EXPECT_EQ(fs::file_size(OldPath(path, 1)), maxBytes - lineBytes + 1);
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

TEST(LogSinks, BeginsEachFileWithFirstLine)
{
    const fs::path path = FreshPath("first.log");
    LogSettings settings = SettingsFor(path, LOG_LEVEL_INFO);
    settings.firstLine = "the build";
    settings.maxFileBytes = 200; // the first line and one other
    LogSinks sinks(settings);
    for (int number = 0; number < 4; ++number) {
        sinks.Write(LOG_LEVEL_ERROR, "NR", "line " + std::to_string(number) + std::string(20, '.'));
        ASSERT_LE(fs::file_size(path), settings.maxFileBytes);
    }
    ASSERT_TRUE(fs::exists(OldPath(path, 1)));
    for (const fs::path &file : {path, OldPath(path, 1)}) {
        const std::vector<std::string> lines = ReadLines(file);
        ASSERT_GE(lines.size(), 2U) << file;
        EXPECT_EQ(AfterTimeAndThread(lines[0]), "[info] [Logging] the build") << file;
        EXPECT_EQ(CountLinesWith(file, "the build"), 1) << file;
    }
}

TEST(LogSinks, WritesNoFirstLineWhereInformationIsFiltered)
{
    const fs::path path = FreshPath("errors.log");
    LogSettings settings = SettingsFor(path, LOG_LEVEL_ERROR);
    settings.firstLine = "the build";
    LogSinks(settings).Write(LOG_LEVEL_ERROR, "NR", "an error");
    EXPECT_EQ(ReadLines(path).size(), 1U);
    EXPECT_EQ(CountLinesWith(path, "an error"), 1);
}

#ifndef _WIN32
TEST(LogSinks, ShowsFirstLineInDebuggerOnceAlsoWithoutFile)
{
    LogSettings settings;
    settings.firstLine = "the build";
    LogSinks sinks(settings);
    TakeDebuggerLines();
    sinks.Write(LOG_LEVEL_INFO, "NR", "first");
    sinks.Write(LOG_LEVEL_INFO, "NR", "second");
    const std::vector<std::string> shown = TakeDebuggerLines();
    ASSERT_EQ(shown.size(), 4U) << "one of them reports the missing file";
    EXPECT_EQ(AfterTimeAndThread(shown[1]), "[info] [Logging] the build\n");
    EXPECT_EQ(AfterTimeAndThread(shown[2]), "[info] [NR] first\n");
}

TEST(LogSinks, ShowsEachLineInDebugger)
{
    const fs::path path = FreshPath("shown.log");
    LogSinks sinks(SettingsFor(path, LOG_LEVEL_INFO));
    TakeDebuggerLines();
    sinks.Write(LOG_LEVEL_DEBUG, "NR", "filtered");
    sinks.Write(LOG_LEVEL_INFO, "NR", "first");
    sinks.Write(LOG_LEVEL_ERROR, "NR", "second");
    const std::vector<std::string> shown = TakeDebuggerLines();
    ASSERT_EQ(shown.size(), 2U);
    EXPECT_EQ(shown[0] + shown[1], ReadBytes(path));
}

TEST(LogSinks, ReportsEachFailureOfFileOnceInDebugger)
{
    const std::string report =
        "LibVeltoAudioHandler: the log file cannot be written; lines go to the debugger only\r\n";
    const fs::path path = FreshPath("reported.log");
    LogSettings settings = SettingsFor(path);
    settings.retryAfter = {};
    LogSinks sinks(settings);
    for (int failure = 0; failure < 2; ++failure) {
        fs::remove(path);
        fs::create_directories(path); // a folder has the file's name
        TakeDebuggerLines();
        sinks.Write(LOG_LEVEL_ERROR, "NR", "first");
        sinks.Write(LOG_LEVEL_ERROR, "NR", "second");
        fs::remove(path);
        sinks.Write(LOG_LEVEL_ERROR, "NR", "third");
        const std::vector<std::string> shown = TakeDebuggerLines();
        ASSERT_EQ(shown.size(), 4U);
        EXPECT_EQ(shown[0], report);
        EXPECT_EQ(AfterTimeAndThread(shown[1]), "[error] [NR] first\n");
        EXPECT_EQ(AfterTimeAndThread(shown[2]), "[error] [NR] second\n");
        EXPECT_EQ(AfterTimeAndThread(shown[3]), "[error] [NR] third\n");
    }
}

TEST(LogSinks, IgnoresFullDisk)
{
    LogSinks sinks(SettingsFor("/dev/full"));
    EXPECT_NO_THROW(sinks.Write(LOG_LEVEL_ERROR, "NR", "no room"));
}
#endif

} // namespace
