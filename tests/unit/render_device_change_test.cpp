// The renderer follows changes of the default endpoint and of its format.
#include <atomic>
#include <thread>

#include "render_fixture.h"

namespace {

using namespace velto_test;

constexpr char checkTag[] = "AudioPlayerWas::CheckDeviceChanged";
constexpr char deviceTag[] = "AudioPlayerWas::OnAudioDeviceChanged";
constexpr char propertyTag[] = "AudioPlayerWas::OnAudioPropertyValueChanged";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";
constexpr wchar_t changed[] = L"AudioPlayerWas OnAudioDeviceChanged";
constexpr wchar_t needToChange[] = L"AudioPlayerWas Need to change default audio device.";
constexpr wchar_t needToDeal[] = L"AudioPlayerWas Need to deal with audio property value change";
constexpr wchar_t deviceFailed[] = L"AudioPlayerWas OnAudioDeviceChanged failed";
constexpr wchar_t propertyFailed[] = L"AudioPlayerWas OnAudioPropertyValueChanged failed";
constexpr HRESULT firstError = E_ACCESSDENIED;
constexpr HRESULT secondError = E_UNEXPECTED;

using Lines = std::vector<LogEntry>;

class RenderDeviceChange : public RenderTest {
protected:
    void SetUp() override
    {
        OpenWith({2, 16, 48000});
        audio.Add(L"headset").mixFormat = {2, 32, 48000};
    }

    void SwitchToHeadset() { audio.ChangeDefaultSpeaker(L"headset"); }

    const std::vector<uint8_t> block = MakeBlock();
};

// --- The flags -------------------------------------------------------------------------------

TEST_F(RenderDeviceChange, QueriesNothingWithoutNotification)
{
    const int requests = audio.Count(Method::GetDefaultAudioEndpoint);
    const int probes = audio.Count(Method::GetBufferSize);
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_EQ(audio.Count(Method::GetDefaultAudioEndpoint), requests);
    EXPECT_EQ(audio.Count(Method::GetBufferSize), probes);
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderDeviceChange, ClearsEachFlagBeforeActingOnIt)
{
    bool deviceFlag = true;
    bool propertyFlag = true;
    audio.Before(Method::GetDefaultAudioEndpoint, [&] { deviceFlag = probe.DeviceChanged(); });
    audio.Before(Method::GetBufferSize, [&] { propertyFlag = probe.PropertyChanged(); });
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_FALSE(deviceFlag);
    EXPECT_FALSE(propertyFlag);
}

TEST_F(RenderDeviceChange, DoesNotRetryFailedSwitch)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, firstError);
    SwitchToHeadset();
    Play(block);
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block) << "the old client continues";
}

TEST_F(RenderDeviceChange, HandlesNotificationDuringSwitchInNextBlock)
{
    audio.Before(Method::Activate, [&] { player->SetDeviceChanged(true); });
    SwitchToHeadset();
    Play(block);
    EXPECT_TRUE(probe.DeviceChanged());
    ClearLog();
    Play(block);
    ExpectLine(errorLevel, L"AudioPlayerWas same deviceId", deviceTag);
}

// --- Another default endpoint ----------------------------------------------------------------

TEST_F(RenderDeviceChange, ContinuesOnNewEndpointInItsFormat)
{
    Play(block);
    SwitchToHeadset();
    const auto next = MakeBlock(2);
    Play(next);
    EXPECT_EQ(Log(), (Lines{{errorLevel, changed, deviceTag}, {infoLevel, needToChange, deviceTag}}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.Written(L"headset"), Widened(next));
    EXPECT_STREQ(probe.DeviceId(), L"headset");
}

TEST_F(RenderDeviceChange, StopsAndReleasesOldClient)
{
    const int objects = audio.LiveObjects();
    const int blocks = fakewin::LiveTaskBlocks();
    SwitchToHeadset();
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    const auto clients = audio.Clients();
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_EQ(clients[0].stops, 1);
    EXPECT_FALSE(clients[0].alive);
    EXPECT_EQ(clients[1].endpoint, L"headset");
    EXPECT_EQ(clients[1].starts, 1);
    EXPECT_EQ(audio.LiveObjects(), objects);
    EXPECT_EQ(fakewin::LiveTaskBlocks(), blocks);
}

TEST_F(RenderDeviceChange, SwitchesToMultimediaDefaultEndpoint)
{
    audio.SetDefault(eMultimedia, L"headset");
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"headset");
    Play(block);
    EXPECT_EQ(audio.RequestedRoles(), (std::vector<ERole>{eConsole, eMultimedia}));
    EXPECT_EQ(audio.Written(L"headset"), Widened(block));
}

TEST_F(RenderDeviceChange, SwitchesWhenCallsReturnOtherSuccessCodes)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, S_FALSE);
    audio.Fail(Method::GetId, S_FALSE);
    SwitchToHeadset();
    Play(block);
    EXPECT_EQ(Log(), (Lines{{errorLevel, changed, deviceTag}, {infoLevel, needToChange, deviceTag}}));
    EXPECT_EQ(audio.Written(L"headset"), Widened(block));
}

TEST_F(RenderDeviceChange, KeepsClientOnChangesOfOtherRolesAndFlows)
{
    audio.SetDefaultForAllRoles(L"headset");
    audio.NotifyDefaultChanged(eRender, eConsole, L"headset");
    audio.NotifyDefaultChanged(eRender, eCommunications, L"headset");
    audio.NotifyDefaultChanged(eCapture, eMultimedia, L"headset");
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.Clients().size(), 1u);
}

TEST_F(RenderDeviceChange, KeepsClientWhenEndpointIsUnchanged)
{
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(block);
    EXPECT_EQ(Log(), (Lines{{errorLevel, changed, deviceTag},
                            {errorLevel, L"AudioPlayerWas same deviceId", deviceTag}}));
    EXPECT_EQ(audio.Clients().size(), 1u);
    EXPECT_EQ(audio.Clients()[0].stops, 0);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderDeviceChange, ComparesIdsCaseSensitively)
{
    audio.Add(L"Speakers");
    audio.ChangeDefaultSpeaker(L"Speakers");
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_EQ(audio.Clients().size(), 2u);
}

TEST_F(RenderDeviceChange, SwitchesToEndpointWithoutId)
{
    audio.Fail(Method::GetId, fakes::nullResult);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_EQ(probe.DeviceId(), nullptr);
    EXPECT_EQ(audio.Clients().size(), 2u);
}

TEST_F(RenderDeviceChange, ForgetsIdAndDropsBlockWithoutDefaultEndpoint)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, firstError);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"headset");
    Play(block);
    EXPECT_EQ(Log(), (Lines{{errorLevel, changed, deviceTag},
                            {errorLevel,
                             L"AudioPlayer GetDefaultAudioEndpoint fail with " + std::to_wstring(firstError) +
                                 L". Just return",
                             deviceTag},
                            {errorLevel, deviceFailed, checkTag},
                            {errorLevel, DroppedBlock(14400), playTag}}));
    EXPECT_EQ(probe.DeviceId(), nullptr);
    EXPECT_EQ(audio.Count(Method::GetDefaultAudioEndpoint), 2)
        << "one call for opening, one for the switch; the failed call is not repeated for the log";
    EXPECT_EQ(audio.Clients().size(), 1u);
}

TEST_F(RenderDeviceChange, ReactivatesSameEndpointAfterFailedSwitch)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, firstError);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(block);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(block);
    EXPECT_EQ(audio.Clients().size(), 2u);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderDeviceChange, LogsSecondResultWhenIdCannotBeRead)
{
    audio.Fail(Method::GetId, firstError, 1);
    audio.Fail(Method::GetId, secondError, 2);
    SwitchToHeadset();
    EXPECT_EQ(probe.CheckDeviceChanged(), 1);
    EXPECT_EQ(Log(),
              (Lines{{errorLevel, changed, deviceTag},
                     {errorLevel,
                      L"AudioPlayer function fail with " + std::to_wstring(secondError) + L". Just return",
                      deviceTag},
                     {errorLevel, deviceFailed, checkTag}}));
    EXPECT_STREQ(probe.DeviceId(), L"speakers");
    EXPECT_EQ(audio.Clients().size(), 1u);
}

TEST_F(RenderDeviceChange, FreesIdReturnedBySecondCall)
{
    const int blocks = fakewin::LiveTaskBlocks();
    audio.Fail(Method::GetId, firstError);
    SwitchToHeadset();
    EXPECT_EQ(probe.CheckDeviceChanged(), 1);
    ExpectLine(errorLevel, L"AudioPlayer function fail with 0. Just return", deviceTag);
    EXPECT_EQ(fakewin::LiveTaskBlocks(), blocks);
}

TEST_F(RenderDeviceChange, LeavesNoClientAfterFailedActivationUntilNotification)
{
    audio.Fail(Method::Initialize, firstError, 1, 2);
    SwitchToHeadset();
    Play(block);
    ExpectLine(errorLevel, FunctionFail(firstError, 186), activateTag);
    ExpectLine(errorLevel, deviceFailed, checkTag);
    ClearLog();
    for (int i = 0; i < 3; ++i) {
        Play(block);
    }
    EXPECT_EQ(Log(), Lines(3, {errorLevel, DroppedBlock(14400), playTag}));
    audio.ChangeDefaultSpeaker(L"speakers");
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderDeviceChange, OnlyLogsEndpointChangeWhenRendererIsNotOpen)
{
    probe.SetOpen(false);
    EXPECT_EQ(probe.OnAudioDeviceChanged(), 0);
    EXPECT_EQ(Log(), (Lines{{errorLevel, L"AudioPlayerWas isOpen=0", deviceTag}}));
}

TEST_F(RenderDeviceChange, OnlyLogsEndpointChangeWithoutEnumerator)
{
    IMMDeviceEnumerator *enumerator = std::exchange(probe.Enumerator(), nullptr);
    EXPECT_EQ(probe.OnAudioDeviceChanged(), 0);
    EXPECT_EQ(Log(), (Lines{{errorLevel, L"AudioPlayerWas isOpen=1", deviceTag}}));
    probe.Enumerator() = enumerator;
}

TEST_F(RenderDeviceChange, LeaksNothingWhenSwitchingBackAndForth)
{
    const int objects = audio.LiveObjects();
    const int blocks = fakewin::LiveTaskBlocks();
    for (int i = 0; i < 30; ++i) {
        const std::wstring id = i % 2 == 0 ? L"headset" : L"speakers";
        audio.ChangeDefaultSpeaker(id);
        Play(block);
        EXPECT_EQ(audio.LiveObjects(), objects);
        EXPECT_EQ(fakewin::LiveTaskBlocks(), blocks);
    }
    EXPECT_EQ(audio.Get(L"headset").writtenFrames.size(), 15u);
    EXPECT_EQ(audio.Get(L"speakers").writtenFrames.size(), 15u);
}

TEST_F(RenderDeviceChange, StartsOnFirstEndpointThatAppears)
{
    player->Close();
    SwrContext *lost = probe.TakeResampler();
    swr_free(&lost);
    audio.SetDefaultForAllRoles(L"");
    EXPECT_TRUE(Open());
    Play(block);
    SwitchToHeadset();
    Play(block);
    EXPECT_EQ(audio.Written(L"headset"), Widened(block));
}

// --- Another format --------------------------------------------------------------------------

TEST_F(RenderDeviceChange, IgnoresPropertyChangeOfWorkingClient)
{
    const int probes = audio.Count(Method::GetBufferSize);
    audio.NotifyPropertyChanged(L"speakers");
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Count(Method::GetBufferSize), probes + 1);
    EXPECT_EQ(audio.Clients().size(), 1u);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderDeviceChange, KeepsClientWhenQueryReportsStoppedService)
{
    audio.Fail(Method::GetBufferSize, AUDCLNT_E_SERVICE_NOT_RUNNING);
    audio.NotifyPropertyChanged(L"speakers");
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderDeviceChange, ReplacesInvalidatedClientInNewFormat)
{
    Speakers().mixFormat = {2, 32, 48000};
    InvalidateSpeakers();
    Play(block);
    EXPECT_EQ(Log(), (Lines{{infoLevel, needToDeal, propertyTag}}));
    const auto clients = audio.Clients();
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_EQ(audio.Count(Method::Stop), 1);
    EXPECT_FALSE(clients[0].alive);
    EXPECT_EQ(audio.Written(L"speakers"), Widened(block));
    EXPECT_EQ(audio.Count(Method::GetDefaultAudioEndpoint), 1) << "the endpoint is not looked up again";
}

TEST_F(RenderDeviceChange, RebuildsMissingClientOnPropertyChange)
{
    player->ReleaseClient();
    const int probes = audio.Count(Method::GetBufferSize);
    audio.NotifyPropertyChanged(L"speakers");
    Play(block);
    EXPECT_EQ(Log(), (Lines{{infoLevel, needToDeal, propertyTag}}));
    EXPECT_EQ(audio.Count(Method::GetBufferSize), probes + 1) << "only on the new client";
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderDeviceChange, LogsFailedReplacementAndDropsBlock)
{
    InvalidateSpeakers();
    audio.Fail(Method::Activate, firstError, 1, 2);
    Play(block);
    EXPECT_EQ(Log(), (Lines{{infoLevel, needToDeal, propertyTag},
                            {errorLevel, FunctionFail(firstError, 175), activateTag},
                            {errorLevel, propertyFailed, checkTag},
                            {errorLevel, DroppedBlock(14400), playTag}}));
}

TEST_F(RenderDeviceChange, OnlyLogsPropertyChangeWhenRendererIsNotOpen)
{
    probe.SetOpen(false);
    EXPECT_EQ(probe.OnAudioPropertyValueChanged(), 0);
    EXPECT_EQ(Log(), (Lines{{errorLevel, L"AudioPlayerWas isOpen=0", propertyTag}}));
}

TEST_F(RenderDeviceChange, OnlyLogsPropertyChangeWithoutDevice)
{
    IMMDevice *device = std::exchange(probe.Device(), nullptr);
    EXPECT_EQ(probe.OnAudioPropertyValueChanged(), 0);
    EXPECT_EQ(Log(), (Lines{{errorLevel, L"AudioPlayerWas isOpen=1", propertyTag}}));
    probe.Device() = device;
}

// --- Both changes --------------------------------------------------------------------------------

TEST_F(RenderDeviceChange, SwitchesEndpointBeforeHandlingPropertyChange)
{
    InvalidateSpeakers();
    SwitchToHeadset();
    Play(block);
    EXPECT_EQ(Log(), (Lines{{errorLevel, changed, deviceTag}, {infoLevel, needToChange, deviceTag}}));
    EXPECT_EQ(audio.Clients().size(), 2u);
    EXPECT_FALSE(probe.PropertyChanged());
    EXPECT_EQ(audio.Written(L"headset"), Widened(block));
}

TEST_F(RenderDeviceChange, LeavesPropertyChangeForNextBlockAfterFailedSwitch)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, firstError);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
    Play(block);
    EXPECT_TRUE(probe.PropertyChanged());
    EXPECT_FALSE(probe.DeviceChanged());
    Play(block);
    EXPECT_FALSE(probe.PropertyChanged());
}

TEST_F(RenderDeviceChange, PlaysEveryBlockDespiteConcurrentNotifications)
{
    std::atomic<bool> playing{true};
    std::thread system([&] {
        const fakewin::NotificationScope scope;
        while (playing) {
            player->SetDeviceChanged(true);
            player->SetPropertyChanged(true);
            player->SetBroadcastFlag(true);
            std::this_thread::yield();
        }
    });
    std::vector<uint8_t> all;
    for (uint32_t i = 0; i < 200; ++i) {
        const auto next = MakeBlock(i);
        all.insert(all.end(), next.begin(), next.end());
        Play(next);
    }
    playing = false;
    system.join();
    EXPECT_EQ(audio.Written(L"speakers"), all);
    EXPECT_EQ(audio.Clients().size(), 1u);
}

} // namespace
