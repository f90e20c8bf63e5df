#include "support/process_state.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

#if GTEST_HAS_DEATH_TEST && !defined(_WIN32)
// In a child process, because the state cannot be reset.
TEST(ProcessState, IsEndingOnceSet)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    ASSERT_FALSE(velto::ProcessIsEnding());
    EXPECT_EXIT(
        {
            velto::SetProcessIsEnding();
            std::_Exit(velto::ProcessIsEnding() ? 7 : 1);
        },
        ::testing::ExitedWithCode(7), "");
}
#endif

} // namespace
