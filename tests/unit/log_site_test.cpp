#include "handler/log.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "log_lines.h"

namespace {

using namespace velto_test;

class LogSite : public ::testing::Test {
protected:
    void SetUp() override { Recorded().Clear(); }
};

TEST_F(LogSite, ChannelGetsTheMessageAloneAndThenTheSingletonGetsItWithTheTag)
{
    velto::LogInfo("`anonymous-namespace'::VeltoRelease", "VeltoRelease type = ", 1u);
    const std::vector<fakes::LogEntry> expected{
        {3, L"VeltoRelease type = 1", "`anonymous-namespace'::VeltoRelease", true}};
    EXPECT_EQ(Recorded().Entries(), expected);
    EXPECT_EQ(Recorded().Channels(), std::vector<std::string>{"OceloMirror"});
}

TEST_F(LogSite, ErrorsHaveLevelFour)
{
    velto::LogError("tag", "message");
    ExpectLine(4, L"message", "tag");
}

TEST_F(LogSite, NarrowTextIsWidenedAndIntegersAreDecimal)
{
    velto::LogError("tag", "a", std::string("b"), L"c", int32_t{-22}, uint32_t{4294967295u});
    ExpectLine(LOG_LEVEL_ERROR, L"abc-224294967295", "tag");
}

TEST_F(LogSite, TheFrameCounterGoesToTheSingletonOnly)
{
    velto::LogInfoToSingleton("tag", "VeltoWriteStream has received", 51u, " frame");
    const std::vector<fakes::LogEntry> expected{{3, L"VeltoWriteStream has received51 frame", "tag", false}};
    EXPECT_EQ(Recorded().Entries(), expected);
    EXPECT_TRUE(Recorded().Channels().empty());
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
            ExpectLine(LOG_LEVEL_ERROR, L"thread " + std::to_wstring(i) + L" line " + std::to_wstring(k),
                       "tag");
        }
    }
}

TEST_F(LogSite, ThereIsOneChannelLogger)
{
    EXPECT_EQ(&velto::ChannelLogger(), &velto::ChannelLogger());
}

} // namespace
