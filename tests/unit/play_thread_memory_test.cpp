// The play thread and its queues without memory.
#include "failing_throwing_new.h"
#include "play_thread_fixture.h"

namespace {

using namespace velto_test;

TEST_F(PlayThread, KeepsNoModuleReferenceWhenItsThreadCannotBeMade)
{
    UseRecordingPlayer();
    int failures = 0;
    for (bool hasFailed = true; hasFailed;) {
        const FailingThrowingNew noMemory(failures + 1);
        try {
            thread->StartPlayThread();
        } catch (const std::bad_alloc &) {
            EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0) << "allocation " << failures + 1;
            EXPECT_FALSE(probe.Joinable());
        }
        hasFailed = noMemory.HasFailed();
        failures += hasFailed ? 1 : 0;
    }
    EXPECT_GT(failures, 0);
    ASSERT_TRUE(Await([this] { return thread->threadStarted.load(); })) << "starts once there is memory";
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 1);
}

} // namespace
