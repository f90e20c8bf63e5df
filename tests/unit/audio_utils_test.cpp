#include "codec/audio_utils.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "reset.h"
#include "tests/fakes/fake_windows.h"

namespace {

using fakewin::Call;

class ComLoading : public ::testing::Test {
protected:
    void SetUp() override { fakes::ResetAll(); }
    void TearDown() override
    {
        EXPECT_EQ(fakewin::OpenApartments(), 0);
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>());
    }
};

TEST_F(ComLoading, EntersAndLeavesMultithreadedApartment)
{
    std::thread([] {
        const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
        EXPECT_EQ(status, COM_LOADED);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(fakewin::ApartmentDepth(), 1);
        AudioUtils::UnloadCOM(status);
        EXPECT_EQ(fakewin::ApartmentDepth(), 0);
    }).join();
    EXPECT_EQ(fakewin::ApartmentModels(), std::vector<DWORD>{COINIT_MULTITHREADED});
}

TEST_F(ComLoading, KeepsThreadInItsMultithreadedApartment)
{
    std::thread([] {
        fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
        EXPECT_EQ(status, COM_ALREADY_LOADED);
        EXPECT_EQ(status, 1);
        EXPECT_EQ(fakewin::ApartmentDepth(), 2);
        AudioUtils::UnloadCOM(status);
        EXPECT_EQ(fakewin::ApartmentDepth(), 1);
        fakewin::CoUninitialize();
    }).join();
}

TEST_F(ComLoading, LeavesSingleThreadedApartmentUnchanged)
{
    std::thread([] {
        fakewin::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
        EXPECT_EQ(status, COM_OTHER_MODEL);
        EXPECT_EQ(status, 2);
        AudioUtils::UnloadCOM(status);
        EXPECT_EQ(fakewin::ApartmentDepth(), 1);
        fakewin::CoUninitialize();
    }).join();
}

TEST_F(ComLoading, ReportsFailedEntryAndUndoesNothing)
{
    for (const HRESULT result : {E_OUTOFMEMORY, E_INVALIDARG, E_UNEXPECTED}) {
        fakewin::Fail(Call::CoInitializeEx, result);
        const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
        EXPECT_EQ(status, COM_NOT_LOADED);
        EXPECT_EQ(status, 3);
        AudioUtils::UnloadCOM(status);
    }
    EXPECT_EQ(fakewin::Count(Call::CoUninitialize), 0);
}

TEST_F(ComLoading, LeavesComAfterUndocumentedSuccess)
{
    std::thread([] {
        fakewin::Fail(Call::CoInitializeEx, HRESULT{2});
        const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
        EXPECT_EQ(status, COM_LOADED);
        AudioUtils::UnloadCOM(status);
        EXPECT_EQ(fakewin::ApartmentDepth(), 0);
    }).join();
}

TEST_F(ComLoading, LeaveIgnoresUnknownStatus)
{
    AudioUtils::UnloadCOM(static_cast<COMLoadStatus>(7));
    EXPECT_EQ(fakewin::Count(Call::CoUninitialize), 0);
}

} // namespace
