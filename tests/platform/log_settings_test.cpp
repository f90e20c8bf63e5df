#include "logging/log_settings.h"

#include <utility>

#include <gtest/gtest.h>

#include "tests/platform/process.h"

namespace fs = std::filesystem;

namespace {

using logging::LogSettings;
using logging::ReadLogSettings;

// Returns the level that a value of VELTO_LOG_LEVEL selects; -1 if the value is invalid.
int LevelOf(const fs::path &text)
{
    const ScopedEnvironment level("VELTO_LOG_LEVEL", text.native());
    const LogSettings settings = ReadLogSettings();
    return settings.levelIsInvalid ? -1 : settings.lowestLevel;
}

TEST(LogSettings, AcceptsLevelsAsNumbersOrNamesInAnyCase)
{
    const std::pair<const char *, int> levels[] = {
        {"", 1},      {"1", 1},     {"2", 2},    {"3", 3},     {"4", 4},   {"trace", 1},
        {"debug", 2}, {"Debug", 2}, {"info", 3}, {"ERROR", 4}, {"off", 5}, {"TRACE", 1},
    };
    for (const auto &[text, level] : levels) {
        EXPECT_EQ(LevelOf(text), level) << text;
    }
}

TEST(LogSettings, MarksOtherLevelsInvalidAndFiltersNothing)
{
    for (const char *text :
         {"0", "5", "33", "-1", " 3", "warn", "infos", "3x", "\xC3\xA4", "\x11", "eRROr!", "DEBU"}) {
        EXPECT_EQ(LevelOf(text), -1) << text;
    }
    for (const char8_t *text : {u8"\u0131", u8"\u0134"}) { // their last 8 bits are those of "1" and "4"
        EXPECT_EQ(LevelOf(text), -1) << reinterpret_cast<const char *>(text);
    }
    const ScopedEnvironment level("VELTO_LOG_LEVEL", "verbose");
    EXPECT_EQ(ReadLogSettings().lowestLevel, 1);
}

TEST(LogSettings, AcceptsNonAsciiFileName)
{
    const fs::path name = fs::path(u8"\u97F3\u9891") / fs::path(u8"n\u00E4me \U0001F3A7.log");
    const ScopedEnvironment file("VELTO_LOG_FILE", name);
    EXPECT_EQ(ReadLogSettings().file, name);
}

TEST(LogSettings, DefaultsToFileInUsersLocalData)
{
    const ScopedEnvironment file("VELTO_LOG_FILE", {});
#ifdef _WIN32
    const ScopedEnvironment data("LOCALAPPDATA", L"C:\\users\\j\u00F6rg\\AppData\\Local");
    EXPECT_EQ(ReadLogSettings().file,
              L"C:\\users\\j\u00F6rg\\AppData\\Local\\VELTO\\LibVeltoAudioHandler.log");
#else
    const ScopedEnvironment state("XDG_STATE_HOME", "/home/j/state");
    EXPECT_EQ(ReadLogSettings().file, "/home/j/state/VELTO/LibVeltoAudioHandler.log");
    const ScopedEnvironment noState("XDG_STATE_HOME", {});
    const ScopedEnvironment home("HOME", "/home/j");
    EXPECT_EQ(ReadLogSettings().file, "/home/j/.local/state/VELTO/LibVeltoAudioHandler.log");
#endif
}

TEST(LogSettings, DefaultsToAllLevelsFiveMebibytesTwoOldFilesAndTenSeconds)
{
    const ScopedEnvironment level("VELTO_LOG_LEVEL", {});
    const LogSettings settings = ReadLogSettings();
    EXPECT_EQ(settings.lowestLevel, 1);
    EXPECT_FALSE(settings.levelIsInvalid);
    EXPECT_EQ(settings.maxFileBytes, 5242880U);
    EXPECT_EQ(settings.oldFiles, 2);
    EXPECT_EQ(settings.retryAfter, std::chrono::seconds{10});
}

TEST(LogSettings, HasNoFileWithoutUserFolders)
{
    const ScopedEnvironment file("VELTO_LOG_FILE", {});
    const ScopedEnvironment local("LOCALAPPDATA", {});
    const ScopedEnvironment state("XDG_STATE_HOME", {});
    const ScopedEnvironment home("HOME", {});
    EXPECT_TRUE(ReadLogSettings().file.empty());
}

} // namespace
