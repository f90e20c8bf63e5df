#include "support/deadline.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(DeadlineAfter, ReturnsTimeoutFromNow)
{
    const auto before = std::chrono::steady_clock::now();
    const auto deadline = velto::DeadlineAfter(1h);
    const auto after = std::chrono::steady_clock::now();
    EXPECT_GE(deadline, before + 1h);
    EXPECT_LE(deadline, after + 1h);
}

} // namespace
