#include "support/module_reference.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <system_error>
#include <vector>

#include "reset.h"
#include "tests/fakes/failing_new.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"

namespace {

using fakewin::Call;

std::atomic<int> runs{0};
void CountRun()
{
    ++runs;
}
DWORD WINAPI CountRunOfThread(void *)
{
    CountRun();
    return 0;
}

class ModuleThread : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::ResetAll();
        runs = 0;
        // As in Windows, a call that succeeds may change the last error.
        fakewin::Before(Call::FreeLibrary, [] { fakewin::SetLastError(ERROR_SUCCESS); });
    }

    void TearDown() override
    {
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), m_earlierReferences);
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    }

private:
    const int m_earlierReferences = fakewin::ModuleReferences(fakewin::ThisModule());
};

TEST_F(ModuleThread, KeepsErrorOfFailedStartAsLastError)
{
    fakewin::Fail(Call::CreateThread, ERROR_ACCESS_DENIED);
    EXPECT_EQ(velto::StartModuleThread(CountRunOfThread, nullptr), nullptr);
    EXPECT_EQ(fakewin::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(fakewin::Count(Call::FreeLibrary), 1);
    EXPECT_EQ(runs, 0);
}

TEST_F(ModuleThread, ReportsMissingMemoryAsLastError)
{
    const fakes::FailingNew noMemory(3 * sizeof(void *)); // routine, argument and module of the thread
    EXPECT_EQ(velto::StartModuleThread(CountRunOfThread, nullptr), nullptr);
    EXPECT_EQ(fakewin::GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 0);
    EXPECT_EQ(fakewin::Count(Call::FreeLibrary), 1);
}

TEST_F(ModuleThread, ThrowsErrorOfFailedDetachedStart)
{
    fakewin::Fail(Call::CreateThread, ERROR_ACCESS_DENIED);
    try {
        velto::StartDetachedThread(CountRun);
        ADD_FAILURE() << "no exception";
    } catch (const std::system_error &failure) {
        EXPECT_EQ(failure.code().value(), ERROR_ACCESS_DENIED);
        EXPECT_EQ(std::string(failure.what()).find("cannot start a thread"), 0u) << failure.what();
    }
    EXPECT_EQ(fakewin::Count(Call::CloseHandle), 0);
}

TEST_F(ModuleThread, RunsOnceAndReleasesReferenceAndHandle)
{
    const int handles = fakewin::LiveHandles();
    velto::StartDetachedThread(CountRun);
    EXPECT_TRUE(fakes::Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(fakewin::Count(Call::FreeLibraryAndExitThread), 1);
    EXPECT_EQ(fakewin::LiveHandles(), handles);
}

TEST_F(ModuleThread, RunsWithoutReferenceWhenModuleIsUnknown)
{
    fakewin::Fail(Call::GetModuleHandleExW, ERROR_FILE_NOT_FOUND);
    velto::StartDetachedThread(CountRun);
    EXPECT_TRUE(fakes::Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(fakewin::Count(Call::FreeLibraryAndExitThread), 0);
}

TEST(AwaitSignal, RetriesFailedWait)
{
    fakes::ResetAll();
    const HANDLE event = fakewin::CreateEventW(nullptr, TRUE, TRUE, nullptr);
    fakewin::Fail(Call::WaitForSingleObject, WAIT_FAILED, 1, 3);
    velto::AwaitSignal(event);
    EXPECT_EQ(fakewin::Count(Call::WaitForSingleObject), 4);
    EXPECT_EQ(fakewin::Count(Call::Sleep), 3) << "no busy-waiting";
    EXPECT_EQ(fakewin::WaitedMs(), 3u);
    fakewin::CloseHandle(event);
}

} // namespace
