// Opening, closing and destroying the renderer.
#include <thread>

#include "render_fixture.h"
#include "tests/fakes/failing_new.h"

namespace {

using namespace velto_test;
using fakewin::Call;

constexpr char openTag[] = "AudioPlayerWas::Open";
constexpr char closeTag[] = "AudioPlayerWas::Close";
constexpr HRESULT firstError = E_ACCESSDENIED;
constexpr HRESULT secondError = E_UNEXPECTED;

class RenderOpen : public RenderTest {
protected:
    // Expects that opening fails, logs only this line and leaves nothing open.
    void ExpectOpenFails(const std::wstring &text)
    {
        EXPECT_FALSE(Open());
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, text, openTag}}));
        EXPECT_FALSE(probe.IsOpen());
        EXPECT_EQ(probe.Enumerator(), nullptr);
        EXPECT_EQ(probe.NotificationClient(), nullptr);
        EXPECT_EQ(probe.BufferEvent(), nullptr);
        EXPECT_EQ(fakewin::ApartmentDepth(), 0);
        EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    }
};

TEST_F(RenderOpen, ConstructionMakesNoCallAndSetsDefaults)
{
    EXPECT_EQ(fakewin::TotalCalls(), 0);
    EXPECT_FALSE(probe.IsOpen());
    EXPECT_FALSE(probe.BroadcastFlag());
    EXPECT_FALSE(probe.DeviceChanged());
    EXPECT_FALSE(probe.PropertyChanged());
    EXPECT_EQ(probe.Output().channelLayout, 3);
    EXPECT_EQ(probe.Output().sampleFormat, 1);
    EXPECT_EQ(probe.Output().sampleRateHz, 48000);
    EXPECT_EQ(probe.OutputChannels(), 0);
    EXPECT_EQ(probe.FrameBytes(), 0u);
    EXPECT_EQ(probe.BufferFrames(), 0u);
    EXPECT_EQ(probe.OutputFrames(), 0);
    EXPECT_EQ(probe.OutputCapacityFrames(), 0);
    EXPECT_EQ(probe.OutputBytes(), 0);
    EXPECT_EQ(probe.Callback(), nullptr);
    EXPECT_FALSE(probe.HasResampler());
}

TEST_F(RenderOpen, RefusesArgumentsBelowOneSilently)
{
    const int32_t bad[][3] = {{0, 2, 48000},  {16, 0, 48000},  {16, 2, 0},
                              {-1, 2, 48000}, {16, -2, 48000}, {16, 2, INT32_MIN}};
    for (const auto &arguments : bad) {
        EXPECT_FALSE(player->Open(arguments[0], arguments[1], arguments[2]));
    }
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

TEST_F(RenderOpen, AcceptsArgumentsOfOne)
{
    EXPECT_TRUE(player->Open(1, 1, 1));
}

TEST_F(RenderOpen, UsesDefaultEndpointAndRegistersForNotifications)
{
    EXPECT_TRUE(Open());
    EXPECT_TRUE(probe.IsOpen());
    EXPECT_TRUE(probe.NotificationRegistered());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    EXPECT_EQ(fakewin::ApartmentModels(), std::vector<DWORD>{0xA});
    const auto made = fakewin::Instantiations();
    ASSERT_EQ(made.size(), 1u);
    EXPECT_TRUE(IsEqualGUID(made[0].classId, CLSID_MMDeviceEnumerator));
    EXPECT_TRUE(IsEqualGUID(made[0].iid, IID_IMMDeviceEnumerator));
    EXPECT_EQ(made[0].context, DWORD{CLSCTX_ALL});
    EXPECT_FALSE(made[0].aggregated);
    const auto events = fakewin::CreatedEvents();
    ASSERT_EQ(events.size(), 2u) << "buffer event and wait event";
    EXPECT_FALSE(events[0].manualReset);
    EXPECT_FALSE(events[0].initialState);
    EXPECT_TRUE(events[0].plain);
    EXPECT_EQ(events[0].handle, probe.BufferEvent());
    EXPECT_TRUE(events[1].manualReset);
    EXPECT_FALSE(events[1].initialState);
    EXPECT_TRUE(events[1].plain);
    EXPECT_EQ(events[1].handle, probe.WaitEvent());
}

TEST_F(RenderOpen, KeepsInputFormatForAnyArguments)
{
    Speakers().mixFormat = {2, 16, 48000};
    EXPECT_TRUE(player->Open(24, 6, 44100));
    const auto block = MakeBlock();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block) << "16-bit stereo at 48000 Hz passes unchanged";
}

TEST_F(RenderOpen, SucceedsWithoutBufferEvent)
{
    fakewin::Fail(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, FunctionFail(E_INVALIDARG, 320), "AudioPlayerWas::InitDefaultAudioDevice");
}

TEST_F(RenderOpen, LogsSecondResultWhenComCannotBeEntered)
{
    fakewin::Fail(Call::CoInitializeEx, firstError, 1);
    fakewin::Fail(Call::CoInitializeEx, secondError, 2);
    ExpectOpenFails(FunctionFail(secondError, 270));
    EXPECT_EQ(fakewin::ApartmentModels(), (std::vector<DWORD>{0xA, 0xA})) << "the same arguments";
    EXPECT_EQ(fakewin::Count(Call::CoCreateInstance), 0);
}

TEST_F(RenderOpen, LeavesComEnteredBySecondCall)
{
    fakewin::Fail(Call::CoInitializeEx, firstError);
    ExpectOpenFails(FunctionFail(S_OK, 270));
    EXPECT_EQ(fakewin::Count(Call::CoUninitialize), 1);
}

TEST_F(RenderOpen, LeavesComEnteredBySecondCallOnThreadInApartment)
{
    ASSERT_EQ(fakewin::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    fakewin::Fail(Call::CoInitializeEx, firstError);
    EXPECT_FALSE(Open());
    ExpectLine(errorLevel, FunctionFail(S_FALSE, 270), openTag);
    EXPECT_EQ(fakewin::ApartmentDepth(), 1) << "the apartment that the thread had entered before";
    fakewin::CoUninitialize();
}

TEST_F(RenderOpen, FailsOnThreadInMultithreadedApartment)
{
    ASSERT_EQ(fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_FALSE(Open());
    ExpectLine(errorLevel, FunctionFail(RPC_E_CHANGED_MODE, 270), openTag);
    EXPECT_EQ(fakewin::ApartmentDepth(), 1) << "the apartment that the thread had entered before";
    fakewin::CoUninitialize();
}

TEST_F(RenderOpen, SucceedsOnThreadInSingleThreadedApartment)
{
    ASSERT_EQ(fakewin::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_EQ(fakewin::ApartmentDepth(), 1);
    fakewin::CoUninitialize();
}

TEST_F(RenderOpen, LogsSecondResultWhenEnumeratorClassIsMissing)
{
    fakewin::Fail(Call::CoCreateInstance, firstError, 1);
    fakewin::Fail(Call::CoCreateInstance, secondError, 2);
    ExpectOpenFails(FunctionFail(secondError, 272));
}

TEST_F(RenderOpen, ReleasesEnumeratorFromSecondCall)
{
    fakewin::Fail(Call::CoCreateInstance, firstError);
    ExpectOpenFails(FunctionFail(S_OK, 272));
    EXPECT_EQ(audio.LiveObjects(), 0);
}

TEST_F(RenderOpen, FailsWithoutMemoryForNotificationClient)
{
    const fakes::FailingNew noMemory(sizeof(velto::WasapiDeviceEvents));
    ExpectOpenFails(MemoryFail(274));
}

TEST_F(RenderOpen, FailsOnNullEnumerator)
{
    fakewin::SetClassFactory([](REFCLSID, REFIID, void **) -> HRESULT { return S_OK; });
    ExpectOpenFails(MemoryFail(275));
}

TEST_F(RenderOpen, LogsSecondResultWhenRegistrationFails)
{
    audio.Fail(Method::RegisterCallback, firstError, 1);
    audio.Fail(Method::RegisterCallback, secondError, 2);
    ExpectOpenFails(FunctionFail(secondError, 276));
    EXPECT_EQ(audio.Count(Method::UnregisterCallback), 0);
}

TEST_F(RenderOpen, UndoesRegistrationMadeBySecondCall)
{
    audio.Fail(Method::RegisterCallback, firstError);
    ExpectOpenFails(FunctionFail(S_OK, 276));
    EXPECT_EQ(audio.Count(Method::UnregisterCallback), 1);
}

TEST_F(RenderOpen, CanBeRetriedAfterFailure)
{
    audio.Fail(Method::RegisterCallback, firstError, 1, 2);
    EXPECT_FALSE(Open());
    ClearLog();
    EXPECT_TRUE(Open());
    Play(MakeBlock());
    EXPECT_EQ(Speakers().writtenFrames, std::vector<UINT32>{1024});
}

TEST_F(RenderOpen, SucceedsWithoutEndpoint)
{
    audio.SetDefaultForAllRoles(L"");
    EXPECT_TRUE(Open());
    EXPECT_TRUE(probe.IsOpen());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
}

// --- Closing ---------------------------------------------------------------------------------

TEST_F(RenderOpen, CloseOnlyLogsWhenNeverOpened)
{
    player->Close();
    EXPECT_EQ(Log(),
              (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas there is no need to close", closeTag}}));
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

TEST_F(RenderOpen, CloseOnlyLogsAfterFailedOpen)
{
    fakewin::Fail(Call::CoCreateInstance, firstError, 1, 2);
    EXPECT_FALSE(Open());
    ClearLog();
    const int calls = fakewin::TotalCalls();
    player->Close();
    EXPECT_EQ(Log(),
              (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas there is no need to close", closeTag}}));
    EXPECT_EQ(fakewin::TotalCalls(), calls);
}

TEST_F(RenderOpen, CloseStopsUnregistersReleasesClientsAndLeavesCom)
{
    EXPECT_TRUE(Open());
    ClearLog();
    player->Close();
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Clients().at(0).stops, 1);
    EXPECT_FALSE(audio.Clients().at(0).alive);
    EXPECT_EQ(probe.AudioClient(), nullptr);
    EXPECT_EQ(probe.RenderClient(), nullptr);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_FALSE(probe.NotificationRegistered());
    EXPECT_EQ(fakewin::ApartmentDepth(), 0);
}

TEST_F(RenderOpen, CloseKeepsOpenFlagEnumeratorDeviceAndNotificationClient)
{
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_TRUE(probe.IsOpen());
    EXPECT_NE(probe.Enumerator(), nullptr);
    EXPECT_NE(probe.Device(), nullptr);
    EXPECT_NE(probe.NotificationClient(), nullptr);
}

TEST_F(RenderOpen, KeepsEndpointDllLoadedUntilDestruction)
{
    const int unloads = fakewin::ImplementationUnloads();
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_EQ(fakewin::ImplementationUnloads(), unloads);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), openBefore.references + 1);
    player.reset(); // releases device and enumerator
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), openBefore.references);
}

TEST_F(RenderOpen, CloseAfterRefusedOpenDoesNotLeaveComAgain)
{
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_FALSE(player->Open(16, 2, 0)) << "the renderer still counts as open";
    player->Close();
    EXPECT_EQ(fakewin::Count(Call::CoUninitialize), 1);
}

TEST_F(RenderOpen, SecondCloseDoesNotLeaveComAgain)
{
    EXPECT_TRUE(Open());
    player->Close();
    player->Close();
    EXPECT_EQ(fakewin::Count(Call::CoUninitialize), 1);
    EXPECT_EQ(audio.Count(Method::UnregisterCallback), 1);
}

// Without a reference to the endpoints' DLL, Close releases the enumerator.
TEST_F(RenderOpen, SecondCloseOnlyLogsWhenFirstReleasedEnumerator)
{
    fakewin::Fail(Call::GetModuleHandleExW, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_EQ(probe.Enumerator(), nullptr);
    ClearLog();
    player->Close();
    EXPECT_EQ(Log(),
              (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas there is no need to close", closeTag}}));
}

TEST_F(RenderOpen, CloseWithoutClientUnregistersAndLeavesCom)
{
    audio.SetDefaultForAllRoles(L"");
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(fakewin::ApartmentDepth(), 0);
}

TEST_F(RenderOpen, CloseEndsNotifications)
{
    EXPECT_TRUE(Open());
    player->Close();
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
    EXPECT_FALSE(probe.DeviceChanged());
    EXPECT_FALSE(probe.PropertyChanged());
}

TEST_F(RenderOpen, LogsAndDropsBlocksAfterClose)
{
    EXPECT_TRUE(Open());
    player->Close();
    ClearLog();
    Play(MakeBlock());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(14400), playTag}}));
}

TEST_F(RenderOpen, LeaksOnlyConverterOnReopening)
{
    EXPECT_TRUE(Open());
    player->Close();
    SwrContext *lost = probe.TakeResampler(); // the next Open would leak the converter
    const int objects = audio.LiveObjects();
    const int handles = fakewin::LiveHandles();
    const int blocks = fakewin::LiveTaskBlocks();
    for (int cycle = 0; cycle < 20; ++cycle) {
        EXPECT_TRUE(Open());
        Play(MakeBlock());
        player->Close();
        EXPECT_EQ(audio.LiveObjects(), objects);
        EXPECT_EQ(fakewin::LiveHandles(), handles);
        EXPECT_EQ(fakewin::LiveTaskBlocks(), blocks);
        EXPECT_EQ(fakewin::ApartmentDepth(), 0);
        EXPECT_EQ(audio.RegisteredCallbacks(), 0);
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), openBefore.references + 1);
        swr_free(&lost);
        lost = probe.TakeResampler();
    }
    swr_free(&lost);
    EXPECT_EQ(Speakers().writtenFrames.size(), 20u);
}

TEST_F(RenderOpen, FailedReopeningReleasesEarlierOpening)
{
    EXPECT_TRUE(Open());
    player->Close();
    ClearLog();
    SwrContext *lost = probe.TakeResampler();
    swr_free(&lost);
    fakewin::Fail(Call::CoCreateInstance, firstError, 1, 2);
    ExpectOpenFails(FunctionFail(firstError, 272));
    EXPECT_EQ(audio.LiveObjects(), 0);
    EXPECT_EQ(probe.InputBuffer(), nullptr);
    EXPECT_EQ(probe.OutputBuffer(), nullptr);
    EXPECT_EQ(fakewin::LiveHandles(), openBefore.handles);
    EXPECT_EQ(fakewin::LiveTaskBlocks(), openBefore.taskBlocks);
}

// --- Destruction -----------------------------------------------------------------------------

TEST_F(RenderOpen, DestructionAfterCloseReleasesRemainingObjects)
{
    EXPECT_TRUE(Open());
    player->Close();
    EXPECT_GT(audio.LiveObjects(), 0);
    player.reset();
    EXPECT_EQ(audio.LiveObjects(), 0);
}

TEST_F(RenderOpen, DestructionWithoutCloseReleasesAllButRenderClient)
{
    EXPECT_TRUE(Open());
    IAudioRenderClient *client = probe.RenderClient();
    player.reset();
    EXPECT_EQ(audio.LiveObjects(), 1) << "the render client";
    EXPECT_EQ(client->Release(), 0u) << "the renderer had the only reference";
    EXPECT_EQ(audio.LiveObjects(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(fakewin::LiveTaskBlocks(), openBefore.taskBlocks);
    fakewin::CoUninitialize();
}

TEST_F(RenderOpen, DestructionOnOtherThreadReleasesAll)
{
    EXPECT_TRUE(Open());
    player->Close();
    std::thread([this] { player.reset(); }).join();
    EXPECT_EQ(audio.LiveObjects(), 0);
}

// --- Stop, Start, ReleaseClient and the setters ----------------------------------------------

TEST_F(RenderOpen, StopStartAndReleaseClientDoNothingWithoutClient)
{
    player->Stop();
    player->Start();
    player->ReleaseClient();
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

TEST_F(RenderOpen, StopAndStartReachClientAndIgnoreItsResult)
{
    EXPECT_TRUE(Open());
    ClearLog();
    player->Stop();
    player->Start();
    EXPECT_EQ(audio.Clients().at(0).stops, 1);
    EXPECT_EQ(audio.Clients().at(0).starts, 2) << "one of them by Open";
    audio.Fail(Method::Stop, E_FAIL);
    audio.Fail(Method::Start, E_FAIL);
    player->Stop();
    player->Start();
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderOpen, ReleaseClientReleasesOnlyBothClients)
{
    EXPECT_TRUE(Open());
    ClearLog();
    player->ReleaseClient();
    EXPECT_EQ(probe.AudioClient(), nullptr);
    EXPECT_EQ(probe.RenderClient(), nullptr);
    EXPECT_EQ(probe.BufferFrames(), 14400u);
    EXPECT_EQ(audio.Count(Method::Stop), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    EXPECT_NE(probe.Device(), nullptr);
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderOpen, SettersOnlyStoreTheirArgument)
{
    struct Callback : velto::IAudioPlayerCallback {
        void OnPlayerEvent() override { ++calls; }
        void OnBroadcastFlag(bool) override { ++calls; }
        int calls = 0;
    } callback;
    player->SetCallback(&callback);
    player->SetBroadcastFlag(true);
    player->SetDeviceChanged(true);
    player->SetPropertyChanged(true);
    EXPECT_EQ(probe.Callback(), &callback);
    EXPECT_TRUE(probe.BroadcastFlag());
    EXPECT_TRUE(probe.DeviceChanged());
    EXPECT_TRUE(probe.PropertyChanged());
    player->SetBroadcastFlag(false);
    player->SetDeviceChanged(false);
    player->SetPropertyChanged(false);
    EXPECT_FALSE(probe.BroadcastFlag());
    EXPECT_FALSE(probe.DeviceChanged());
    EXPECT_FALSE(probe.PropertyChanged());
    EXPECT_EQ(fakewin::TotalCalls(), 0);
    EXPECT_TRUE(Log().empty());

    EXPECT_TRUE(Open());
    Play(MakeBlock());
    player->Close();
    EXPECT_EQ(callback.calls, 0) << "the renderer stores the callback but never calls it";
}

} // namespace
