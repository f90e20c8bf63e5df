#include "velto-host/portable/pacer.h"

#include <gtest/gtest.h>

namespace velto::host {
namespace {

using namespace std::chrono_literals;

constexpr auto frameTime = 20ms;
constexpr int mostAtOnce = 4;
const Pacer::Clock::time_point start{1h};

// Sends all frames that are due at `now` and returns their number.
int SendDue(Pacer &pacer, Pacer::Clock::time_point now)
{
    int sent = 0;
    for (; pacer.Due(now) <= now && sent < 1000; ++sent) {
        pacer.Advance();
    }
    return sent;
}

TEST(Pacer, SchedulesFirstFrameImmediately)
{
    Pacer pacer(frameTime, mostAtOnce);
    EXPECT_EQ(pacer.Due(start), start);
}

TEST(Pacer, KeepsScheduleWhenFramesAreSentLate)
{
    Pacer pacer(frameTime, mostAtOnce);
    pacer.Due(start);
    for (int frame = 1; frame <= 1000; ++frame) {
        pacer.Advance();
        const auto sentLate = start + frame * frameTime + 7ms;
        EXPECT_EQ(pacer.Due(sentLate), start + frame * frameTime);
    }
    EXPECT_EQ(pacer.Slips(), 0u);
}

TEST(Pacer, KeepsDueTimeUntilFrameIsSent)
{
    Pacer pacer(frameTime, mostAtOnce);
    pacer.Due(start);
    pacer.Advance();
    EXPECT_EQ(pacer.Due(start), start + frameTime);
    EXPECT_EQ(pacer.Due(start + 5ms), start + frameTime);
}

TEST(Pacer, CatchesUpFullyAfterShortDelay)
{
    Pacer pacer(frameTime, mostAtOnce);
    EXPECT_EQ(SendDue(pacer, start), 1);
    EXPECT_EQ(SendDue(pacer, start + 3 * frameTime), 3);
    EXPECT_EQ(pacer.Due(start + 3 * frameTime), start + 4 * frameTime);
    EXPECT_EQ(pacer.Slips(), 0u);
}

TEST(Pacer, CatchesUpOnlyToLimitAfterLongDelay)
{
    Pacer pacer(frameTime, mostAtOnce);
    SendDue(pacer, start);
    const auto late = start + 10s;
    EXPECT_EQ(SendDue(pacer, late), mostAtOnce);
    EXPECT_EQ(pacer.Slips(), 1u);
    EXPECT_EQ(pacer.Due(late), late + frameTime);
}

TEST(Pacer, SendsOneFrameImmediatelyAfterRestart)
{
    Pacer pacer(frameTime, mostAtOnce);
    SendDue(pacer, start);
    const auto resumed = start + 250s;
    pacer.Restart();
    EXPECT_EQ(SendDue(pacer, resumed), 1);
    EXPECT_EQ(pacer.Slips(), 0u);
}

TEST(Pacer, SchedulesFirstFrameImmediatelyDespiteEarlierAdvance)
{
    Pacer pacer(frameTime, mostAtOnce);
    pacer.Advance();
    pacer.Advance();
    EXPECT_EQ(pacer.Due(start), start);
}

} // namespace
} // namespace velto::host
