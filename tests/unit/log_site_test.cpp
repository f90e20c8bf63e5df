#include "handler/log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "failing_throwing_new.h"
#include "log_lines.h"
#include "tests/platform/threads.h"
#include "logger_count.h"

namespace {

using namespace velto_test;

class LogSite : public ::testing::Test {
protected:
    void SetUp() override { ClearLog(); }
};

TEST_F(LogSite, WritesToChannelWithoutTagThenToSingletonWithTag)
{
    velto::LogInfo("`anonymous-namespace'::VeltoRelease", "VeltoRelease type = ", 1u);
    const std::vector<fakes::LogEntry> expected{
        {3, L"VeltoRelease type = 1", "`anonymous-namespace'::VeltoRelease", true}};
    EXPECT_EQ(Recorded().Entries(), expected);
    EXPECT_EQ(Recorded().Channels(), std::vector<std::string>{"OceloMirror"});
}

TEST_F(LogSite, LogsErrorsAtLevelFour)
{
    velto::LogError("tag", "message");
    ExpectLine(4, L"message", "tag");
}

TEST_F(LogSite, WidensNarrowTextAndPrintsDecimalIntegers)
{
    velto::LogError("tag", "a", std::string("b"), L"c", int32_t{-22}, uint32_t{4294967295u});
    ExpectLine(errorLevel, L"abc-224294967295", "tag");
}

TEST_F(LogSite, LogsFrameCounterToSingletonOnly)
{
    velto::LogInfoToSingleton("tag", "VeltoWriteStream has received", 51u, " frame");
    const std::vector<fakes::LogEntry> expected{{3, L"VeltoWriteStream has received51 frame", "tag", false}};
    EXPECT_EQ(Recorded().Entries(), expected);
    EXPECT_TRUE(Recorded().Channels().empty());
}

TEST_F(LogSite, KeepsLinesWholeFromSeveralThreads)
{
    RunOnThreads(4, [](int i) {
        for (int k = 0; k < 100; ++k) {
            velto::LogError("tag", "thread ", i, " line ", k);
        }
    });
    for (int i = 0; i < 4; ++i) {
        for (int k = 0; k < 100; ++k) {
            ExpectLine(errorLevel, L"thread " + std::to_wstring(i) + L" line " + std::to_wstring(k), "tag");
        }
    }
}

// Makes each allocation of `log` fail in turn. Each run must log all of `whole`, only its line to the
// channel, or nothing.
template <typename Log>
void ExpectWholeLinesOrNone(Log log, const fakes::LogEntry &whole)
{
    int failures = 0;
    for (bool hasFailed = true; hasFailed; failures += hasFailed ? 1 : 0) {
        ClearLog();
        {
            const FailingThrowingNew noMemory(failures + 1);
            EXPECT_NO_THROW(log());
            hasFailed = noMemory.HasFailed();
        }
        for (const fakes::LogEntry &entry : Recorded().Entries()) {
            EXPECT_EQ(entry.text, whole.text) << "allocation " << failures + 1;
            EXPECT_TRUE(entry.tag == whole.tag || entry.tag == "?") << entry.tag;
        }
    }
    EXPECT_GT(failures, 1);
    EXPECT_EQ(Recorded().Entries(), std::vector<fakes::LogEntry>{whole}) << "with memory";
}

TEST_F(LogSite, WritesWholeLineOrNoneWithoutMemory)
{
    const std::string tag = "velto::FFmpegDecode::DecoderAudioFrame";
    const std::wstring text = L"AUDIO decode error:-22";
    ExpectWholeLinesOrNone([&] { velto::LogError(tag.c_str(), "AUDIO decode error:", -22); },
                           {4, text, tag, true});
    ExpectWholeLinesOrNone([&] { velto::LogInfo(tag.c_str(), "AUDIO decode error:", -22); },
                           {3, text, tag, true});
    ExpectWholeLinesOrNone([&] { velto::LogInfoToSingleton(tag.c_str(), "AUDIO decode error:", -22); },
                           {3, text, tag, false});
    ExpectWholeLinesOrNone([] { velto::LogErrorToChannel("AUDIO decode error:", -22); },
                           {4, text, "?", true});
}

TEST_F(LogSite, WritesWholeLineOrNoneWithoutMemoryForLongTag)
{
    // Longer than the buffer of the string stream, so that appending the tag allocates.
    const std::string tag(2000, 't');
    ExpectWholeLinesOrNone([&] { velto::LogError(tag.c_str(), "message"); }, {4, L"message", tag, true});
}

#if GTEST_HAS_DEATH_TEST && !defined(_WIN32)
// Logs from several threads at once. In a process that has logged nothing before, they all wait for the
// first caller to construct the channel's logger.
bool FirstCallersShareOneLogger()
{
    constexpr int threadCount = 8;
    std::atomic<int> waiting{0};
    std::vector<Logger *> loggers(threadCount);
    std::vector<std::thread> threads;
    const bool isFirst = fakes::ConstructedLoggers("OceloMirror") == 0;
    for (Logger *&logger : loggers) {
        threads.emplace_back([&] {
            ++waiting;
            while (waiting < threadCount) {
                std::this_thread::yield();
            }
            velto::LogError("tag", "message");
            logger = &velto::ChannelLogger();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return isFirst && fakes::ConstructedLoggers("OceloMirror") == 1 &&
           Recorded().Count(errorLevel, L"message", "tag") == threadCount &&
           loggers == std::vector<Logger *>(threadCount, loggers[0]);
}

// The new process of the "threadsafe" style runs only this test.
TEST(LogSiteDeathTest, ConstructsOneChannelLoggerForConcurrentFirstCallers)
{
    const std::string style = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(FirstCallersShareOneLogger() ? 7 : 1), ::testing::ExitedWithCode(7), "");
    GTEST_FLAG_SET(death_test_style, style);
}
#endif

TEST_F(LogSite, UsesOneChannelLogger)
{
    EXPECT_EQ(&velto::ChannelLogger(), &velto::ChannelLogger());
    EXPECT_EQ(fakes::ConstructedLoggers("OceloMirror"), 1);
}

} // namespace
