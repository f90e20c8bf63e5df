#include "handler/log.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "log_recorder.h"

namespace {

using velto_test::LogRecorder;

class LogSite : public ::testing::Test {
protected:
    void SetUp() override { LogRecorder::Clear(); }
};

TEST_F(LogSite, ChannelGetsTheMessageAloneAndThenTheSingletonGetsItWithTheTag)
{
    velto::LogInfo("`anonymous-namespace'::VeltoRelease", "VeltoRelease type = ", 1u);
    const auto lines = LogRecorder::Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].sink, LogRecorder::Sink::Channel);
    EXPECT_EQ(lines[0].channel, "OceloMirror");
    EXPECT_EQ(lines[0].level, 3);
    EXPECT_EQ(lines[0].text, L"VeltoRelease type = 1");
    EXPECT_EQ(lines[1].sink, LogRecorder::Sink::Singleton);
    EXPECT_EQ(lines[1].level, 3);
    EXPECT_EQ(lines[1].text, L"VeltoRelease type = 1(`anonymous-namespace'::VeltoRelease)");
}

TEST_F(LogSite, ErrorsHaveLevelFour)
{
    velto::LogError("tag", "message");
    for (const auto &line : LogRecorder::Lines()) {
        EXPECT_EQ(line.level, 4);
    }
    LogRecorder::ExpectLine(LOG_LEVEL_ERROR, L"message", "tag");
}

TEST_F(LogSite, NarrowTextIsWidenedAndIntegersAreDecimal)
{
    velto::LogError("tag", "a", std::string("b"), L"c", int32_t{-22}, uint32_t{4294967295u});
    LogRecorder::ExpectLine(LOG_LEVEL_ERROR, L"abc-224294967295", "tag");
}

TEST_F(LogSite, TheFrameCounterGoesToTheSingletonOnly)
{
    velto::LogInfoToSingleton("tag", "VeltoWriteStream has received", 51u, " frame");
    const auto lines = LogRecorder::Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].sink, LogRecorder::Sink::Singleton);
    EXPECT_EQ(lines[0].text, L"VeltoWriteStream has received51 frame(tag)");
}

TEST_F(LogSite, ManyThreadsKeepTheirLinesWhole)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int k = 0; k < 100; ++k) {
                velto::LogError("tag", "thread ", i, " line ", k);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    for (int i = 0; i < 4; ++i) {
        for (int k = 0; k < 100; ++k) {
            LogRecorder::ExpectLine(LOG_LEVEL_ERROR,
                                    L"thread " + std::to_wstring(i) + L" line " + std::to_wstring(k), "tag");
        }
    }
}

TEST_F(LogSite, ThereIsOneChannelLogger)
{
    EXPECT_EQ(&velto::ChannelLogger(), &velto::ChannelLogger());
}

} // namespace
