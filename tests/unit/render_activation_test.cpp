// Activating a client on the default endpoint, on opening and after a change.
#include <algorithm>
#include <cstring>

#include "render_fixture.h"

#include <ks.h>
#include <ksmedia.h>

namespace {

using namespace velto_test;
using fakewin::Call;

constexpr char initTag[] = "AudioPlayerWas::InitDefaultAudioDevice";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";
constexpr char resampleInitTag[] = "AudioPlayerWas::ResampleInit";
constexpr wchar_t initializeEnd[] = L"AudioPlayerWas Initialize end. BUFF_DURATIAN=3000000";
constexpr wchar_t resamplerFailed[] = L"AudioPlayerWas Failed to initialize the resampling context";
constexpr HRESULT firstError = E_ACCESSDENIED;
constexpr HRESULT secondError = E_UNEXPECTED;

WAVEFORMATEXTENSIBLE ExtensibleOf(const fakes::ClientRecord &client)
{
    WAVEFORMATEXTENSIBLE format{};
    EXPECT_EQ(client.format.size(), sizeof(format));
    std::memcpy(&format, client.format.data(), std::min(sizeof(format), client.format.size()));
    return format;
}

struct FailingStep {
    Method method;
    int line;
    int nth; // which call of this method fails within the opening or reactivation
};

std::string NameOf(const ::testing::TestParamInfo<FailingStep> &info)
{
    return "Line" + std::to_string(info.param.line);
}

// --- The first activation --------------------------------------------------------------------

class RenderActivation : public RenderTest {
protected:
    // `frames`: the size of the endpoint buffer, 0 if opening failed before reading it.
    void ExpectOpenWithoutClient(uint32_t frames = 0)
    {
        EXPECT_TRUE(probe.IsOpen());
        EXPECT_EQ(probe.Device(), nullptr);
        EXPECT_EQ(probe.AudioClient(), nullptr);
        EXPECT_EQ(probe.RenderClient(), nullptr);
        EXPECT_EQ(audio.LiveObjects(), 1) << "the enumerator";
        EXPECT_EQ(audio.RegisteredCallbacks(), 1);
        ClearLog();
        Play(MakeBlock());
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(frames), playTag}}));
    }
};

class RenderActivationStep : public RenderActivation, public ::testing::WithParamInterface<FailingStep> {};

TEST_P(RenderActivationStep, LogsSecondResultAndLeavesNoClientOnFailure)
{
    audio.Fail(GetParam().method, firstError, GetParam().nth);
    audio.Fail(GetParam().method, secondError, GetParam().nth + 1);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, FunctionFail(secondError, GetParam().line), initTag);
    ExpectOpenWithoutClient(GetParam().line == 323 ? 14400 : 0);
}

TEST_P(RenderActivationStep, LogsSuccessOfSecondCallAndLeaksNothing)
{
    audio.Fail(GetParam().method, firstError, GetParam().nth);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, FunctionFail(S_OK, GetParam().line), initTag);
    ExpectOpenWithoutClient(GetParam().line >= 321 ? 14400 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    , RenderActivationStep,
    ::testing::Values(FailingStep{Method::GetDefaultAudioEndpoint, 296, 1},
                      FailingStep{Method::GetId, 297, 1}, FailingStep{Method::Activate, 307, 1},
                      FailingStep{Method::GetMixFormat, 308, 1}, FailingStep{Method::Initialize, 315, 1},
                      FailingStep{Method::SetEventHandle, 320, 1}, FailingStep{Method::GetBufferSize, 321, 1},
                      FailingStep{Method::GetService, 323, 1}),
    NameOf);

TEST_F(RenderActivation, LogsOneLineOnSuccess)
{
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{infoLevel, initializeEnd, initTag}}));
}

TEST_F(RenderActivation, InitialisesSharedEventDrivenClientOf300Milliseconds)
{
    EXPECT_TRUE(Open());
    const auto clients = audio.Clients();
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(clients[0].mode, AUDCLNT_SHAREMODE_SHARED);
    EXPECT_EQ(clients[0].flags, 0x40000u);
    EXPECT_EQ(clients[0].bufferDuration, 3000000);
    EXPECT_EQ(clients[0].periodicity, 0);
    EXPECT_FALSE(clients[0].hasSession);
    EXPECT_EQ(clients[0].event, probe.BufferEvent());
    EXPECT_EQ(clients[0].starts, 1);
    EXPECT_EQ(probe.BufferFrames(), 14400u);
}

TEST_F(RenderActivation, RelabelsMixFormatAsPcmAndKeepsOtherFields)
{
    Speakers().mixFormat = {6, 32, 44100, true, 0x60F};
    EXPECT_TRUE(Open());
    const WAVEFORMATEXTENSIBLE format = ExtensibleOf(audio.Clients().at(0));
    EXPECT_TRUE(IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_PCM));
    EXPECT_EQ(format.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    EXPECT_EQ(format.Format.nChannels, 6);
    EXPECT_EQ(format.Format.wBitsPerSample, 32);
    EXPECT_EQ(DWORD{format.Format.nSamplesPerSec}, 44100u);
    EXPECT_EQ(format.Format.nBlockAlign, 24);
    EXPECT_EQ(DWORD{format.dwChannelMask}, 0x60Fu);
    EXPECT_EQ(probe.FrameBytes(), 24u);
}

TEST_F(RenderActivation, RelabelsMixFormatWithUnknownFurtherFieldsAsPcm)
{
    Speakers().mixFormat.furtherBytes = 8;
    EXPECT_TRUE(Open());
    WAVEFORMATEXTENSIBLE format{};
    const std::vector<uint8_t> bytes = audio.Clients().at(0).format;
    ASSERT_EQ(bytes.size(), sizeof format + 8);
    std::memcpy(&format, bytes.data(), sizeof format);
    EXPECT_TRUE(IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_PCM));
}

TEST_F(RenderActivation, DoesNotWritePastMixFormatWithoutExtension)
{
    Speakers().mixFormat = {2, 16, 48000, false};
    EXPECT_TRUE(Open());
    EXPECT_EQ(audio.Clients().at(0).format.size(), sizeof(WAVEFORMATEX));
    const auto block = MakeBlock();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderActivation, SetsUpConverterForSixChannelsOf32BitsAt44100Hz)
{
    Speakers().mixFormat = {6, 32, 44100};
    EXPECT_TRUE(Open());
    EXPECT_EQ(probe.Output().channelLayout, 311);
    EXPECT_EQ(probe.Output().sampleFormat, 2);
    EXPECT_EQ(probe.Output().sampleRateHz, 44100);
    EXPECT_EQ(probe.OutputChannels(), 6);
    EXPECT_EQ(probe.OutputFrames(), 941);
    EXPECT_EQ(probe.OutputCapacityFrames(), 941);
}

TEST_F(RenderActivation, UsesConsoleDefaultEndpointFirst)
{
    audio.Add(L"headset");
    audio.SetDefault(eMultimedia, L"headset");
    EXPECT_TRUE(Open());
    EXPECT_EQ(audio.RequestedRoles(), std::vector<ERole>{eConsole});
    EXPECT_EQ(audio.Clients().at(0).endpoint, L"speakers");
    EXPECT_STREQ(probe.DeviceId(), L"speakers");
}

TEST_F(RenderActivation, LeavesRendererOpenWithoutClientWhenEndpointIsMissing)
{
    audio.SetDefaultForAllRoles(L"");
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, FunctionFail(E_NOTFOUND, 296), initTag}}));
    ExpectOpenWithoutClient();
}

TEST_F(RenderActivation, LeavesRendererOpenWithoutClientWhenEndpointIsInactive)
{
    for (const DWORD state : {DEVICE_STATE_DISABLED, DEVICE_STATE_NOTPRESENT, DEVICE_STATE_UNPLUGGED}) {
        ClearLog();
        Speakers().state = state;
        EXPECT_TRUE(Open());
        EXPECT_EQ(Log(), (std::vector<LogEntry>{
                             {errorLevel, L"AudioPlayerWas endpointDevice is not active", initTag}}));
        ExpectOpenWithoutClient();
        player->Close();
    }
}

TEST_F(RenderActivation, TreatsEndpointWithUnreadableStateAsActive)
{
    audio.Fail(Method::GetState, E_FAIL);
    Speakers().state = DEVICE_STATE_DISABLED;
    EXPECT_TRUE(Open());
    EXPECT_NE(probe.RenderClient(), nullptr);
    EXPECT_EQ(audio.Count(Method::GetState), 1) << "only logged failures repeat the call";
}

TEST_F(RenderActivation, LogsNullMixFormat)
{
    audio.Fail(Method::GetMixFormat, fakes::nullResult);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, MemoryFail(309), initTag}}));
    ExpectOpenWithoutClient();
}

TEST_F(RenderActivation, LeavesNoClientWithoutMemoryForConverter)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_alloc, 0);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{infoLevel, initializeEnd, initTag},
                                            {errorLevel, MemoryFail(318), initTag}}));
    ExpectOpenWithoutClient();
}

TEST_F(RenderActivation, TriesConverterSetupTwice)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -22, 1);
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -5, 2);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{infoLevel, initializeEnd, initTag},
                                            {errorLevel, resamplerFailed, resampleInitTag},
                                            {errorLevel, resamplerFailed, resampleInitTag},
                                            {errorLevel, FunctionFail(-5, 319), initTag}}));
    ExpectOpenWithoutClient();
}

TEST_F(RenderActivation, AcceptsConverterSetupWithPositiveResult)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, 1);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{infoLevel, initializeEnd, initTag}}));
    Play(MakeBlock());
    EXPECT_EQ(Speakers().writtenFrames, std::vector<UINT32>{1024});
}

TEST_F(RenderActivation, LogsConverterSetupThatSucceedsOnRetry)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -22);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, FunctionFail(0, 319), initTag);
    ExpectLine(errorLevel, resamplerFailed, resampleInitTag);
    ExpectOpenWithoutClient();
}

TEST_F(RenderActivation, LeavesNoClientWithoutWaitEvent)
{
    fakewin::Fail(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{infoLevel, initializeEnd, initTag},
                                            {errorLevel, MemoryFail(327), initTag}}));
    ExpectOpenWithoutClient(14400);
}

TEST_F(RenderActivation, IgnoresResultOfStart)
{
    audio.Fail(Method::Start, E_FAIL);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{infoLevel, initializeEnd, initTag}}));
    EXPECT_EQ(audio.Count(Method::Start), 1);
    EXPECT_NE(probe.RenderClient(), nullptr);
}

TEST_F(RenderActivation, KeepsMixFormatIdConverterAndBuffersAfterFailure)
{
    audio.Fail(Method::GetService, E_FAIL, 1, 2);
    EXPECT_TRUE(Open());
    EXPECT_NE(probe.MixFormat(), nullptr);
    EXPECT_STREQ(probe.DeviceId(), L"speakers");
    EXPECT_TRUE(probe.HasResampler());
    EXPECT_NE(probe.InputBuffer(), nullptr);
    EXPECT_NE(probe.OutputBuffer(), nullptr);
}

// --- Reactivating on the same or another device -----------------------------------------------

class RenderReactivation : public RenderTest {
protected:
    // Opens and invalidates the client, so that the next block reactivates it.
    void OpenAndInvalidate()
    {
        EXPECT_TRUE(Open());
        InvalidateSpeakers();
        ClearLog();
    }
};

class RenderReactivationStep : public RenderReactivation, public ::testing::WithParamInterface<FailingStep> {
protected:
    void ExpectNoClientUntilNextNotification()
    {
        EXPECT_EQ(probe.AudioClient(), nullptr);
        EXPECT_EQ(probe.RenderClient(), nullptr);
        EXPECT_NE(probe.Device(), nullptr);
        EXPECT_EQ(audio.LiveObjects(), 2) << "enumerator and device";
        ClearLog();
        for (int block = 0; block < 3; ++block) {
            Play(MakeBlock());
        }
        ExpectLine(errorLevel, DroppedBlock(14400), playTag, 3);
        EXPECT_EQ(Log().size(), 3u);
        audio.NotifyPropertyChanged(L"speakers");
        ClearLog();
        Play(MakeBlock());
        EXPECT_EQ(Speakers().writtenFrames, std::vector<UINT32>{1024}) << "only the new block is played";
    }
};

TEST_P(RenderReactivationStep, LogsSecondResultAndLeavesNoClientOnFailure)
{
    OpenAndInvalidate();
    audio.Fail(GetParam().method, firstError, GetParam().nth);
    audio.Fail(GetParam().method, secondError, GetParam().nth + 1);
    Play(MakeBlock());
    EXPECT_EQ(LogOf(activateTag),
              (std::vector<LogEntry>{{errorLevel, FunctionFail(secondError, GetParam().line), activateTag}}));
    ExpectLine(errorLevel, L"AudioPlayerWas OnAudioPropertyValueChanged failed",
               "AudioPlayerWas::CheckDeviceChanged");
    ExpectNoClientUntilNextNotification();
}

TEST_P(RenderReactivationStep, LogsSuccessOfSecondCallAndLeaksNothing)
{
    OpenAndInvalidate();
    audio.Fail(GetParam().method, firstError, GetParam().nth);
    Play(MakeBlock());
    EXPECT_EQ(LogOf(activateTag),
              (std::vector<LogEntry>{{errorLevel, FunctionFail(S_OK, GetParam().line), activateTag}}));
    ExpectNoClientUntilNextNotification();
}

// The first GetBufferSize queries the old client.
INSTANTIATE_TEST_SUITE_P(
    , RenderReactivationStep,
    ::testing::Values(FailingStep{Method::Activate, 175, 1}, FailingStep{Method::GetMixFormat, 177, 1},
                      FailingStep{Method::Initialize, 186, 1}, FailingStep{Method::SetEventHandle, 188, 1},
                      FailingStep{Method::GetBufferSize, 189, 2}, FailingStep{Method::GetService, 191, 1}),
    NameOf);

TEST_F(RenderReactivation, FailsSilentlyWithoutDevice)
{
    EXPECT_EQ(probe.ActivateWasClient(), 1);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

TEST_F(RenderReactivation, FailsSilentlyOnNullMixFormatAndKeepsClient)
{
    OpenAndInvalidate();
    audio.Fail(Method::GetMixFormat, fakes::nullResult);
    Play(MakeBlock());
    EXPECT_TRUE(LogOf(activateTag).empty());
    EXPECT_NE(probe.AudioClient(), nullptr) << "the new client stays without a format";
    ExpectLine(errorLevel, L"AudioPlayerWas OnAudioPropertyValueChanged failed",
               "AudioPlayerWas::CheckDeviceChanged");
    ExpectLine(errorLevel, DroppedBlock(14400), playTag);
}

TEST_F(RenderReactivation, IgnoresSameDeviceAfterNullMixFormat)
{
    OpenAndInvalidate();
    audio.Fail(Method::GetMixFormat, fakes::nullResult);
    Play(MakeBlock());
    ClearLog();
    audio.NotifyPropertyChanged(L"speakers");
    Play(MakeBlock());
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(MakeBlock());
    ExpectLine(errorLevel, DroppedBlock(14400), playTag, 2);
    EXPECT_EQ(audio.Clients().size(), 2U);
    EXPECT_TRUE(Speakers().written.empty());
}

TEST_F(RenderReactivation, SwitchesToNewDefaultAfterNullMixFormat)
{
    OpenAndInvalidate();
    audio.Fail(Method::GetMixFormat, fakes::nullResult);
    Play(MakeBlock());
    audio.Add(L"headset");
    audio.ChangeDefaultSpeaker(L"headset");
    Play(MakeBlock());
    EXPECT_EQ(audio.Get(L"headset").writtenFrames, std::vector<UINT32>{1024});
}

TEST_F(RenderReactivation, InitialisesClientWithSameArgumentsAndNewFormat)
{
    OpenAndInvalidate();
    Speakers().mixFormat = {8, 16, 96000};
    Speakers().bufferFrames = 28800;
    Play(MakeBlock());
    const auto clients = audio.Clients();
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_FALSE(clients[0].alive);
    EXPECT_EQ(clients[0].endpoint, clients[1].endpoint);
    EXPECT_EQ(clients[1].mode, AUDCLNT_SHAREMODE_SHARED);
    EXPECT_EQ(clients[1].flags, 0x40000u);
    EXPECT_EQ(clients[1].bufferDuration, 3000000);
    EXPECT_EQ(clients[1].periodicity, 0);
    EXPECT_FALSE(clients[1].hasSession);
    EXPECT_EQ(clients[1].event, probe.BufferEvent()) << "the same event";
    EXPECT_EQ(clients[1].starts, 1);
    const WAVEFORMATEXTENSIBLE format = ExtensibleOf(clients[1]);
    EXPECT_TRUE(IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_PCM));
    EXPECT_EQ(DWORD{format.Format.nSamplesPerSec}, 96000u);
    EXPECT_EQ(probe.FrameBytes(), 16u);
    EXPECT_EQ(probe.BufferFrames(), 28800u);
    EXPECT_EQ(probe.Output().channelLayout, 1847);
    EXPECT_EQ(probe.Output().sampleRateHz, 96000);
    EXPECT_FALSE(Speakers().written.empty());
    ExpectLine(infoLevel, initializeEnd, initTag, 0);
}

TEST_F(RenderReactivation, ReusesConverter)
{
    OpenAndInvalidate();
    const int allocated = fakeffmpeg::Script().Count(fakeffmpeg::Call::swr_alloc);
    const int initialised = fakeffmpeg::Script().Count(fakeffmpeg::Call::swr_init);
    Play(MakeBlock());
    EXPECT_EQ(fakeffmpeg::Script().Count(fakeffmpeg::Call::swr_alloc), allocated);
    EXPECT_EQ(fakeffmpeg::Script().Count(fakeffmpeg::Call::swr_init), initialised + 1);
}

TEST_F(RenderReactivation, IgnoresFailedConverterSetup)
{
    OpenAndInvalidate();
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -22);
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_EQ(LogOf(resampleInitTag),
              (std::vector<LogEntry>{{errorLevel, resamplerFailed, resampleInitTag}}));
    EXPECT_TRUE(LogOf(activateTag).empty());
    EXPECT_NE(probe.RenderClient(), nullptr);
}

TEST_F(RenderReactivation, IgnoresResultOfStart)
{
    OpenAndInvalidate();
    audio.Fail(Method::Start, E_FAIL);
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_TRUE(LogOf(activateTag).empty());
}

TEST_F(RenderReactivation, AllocatesMissingConverter)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_alloc, 0);
    EXPECT_TRUE(Open()) << "without a client, device or converter";
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(MakeBlock());
    EXPECT_TRUE(Speakers().written.empty()) << "the default is still the same endpoint";
    audio.Add(L"headset");
    audio.ChangeDefaultSpeaker(L"headset");
    Play(MakeBlock());
    EXPECT_TRUE(probe.HasResampler());
    EXPECT_EQ(audio.Get(L"headset").writtenFrames, std::vector<UINT32>{1024});
}

TEST_F(RenderReactivation, IgnoresMissingMemoryForConverter)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_alloc, 0, 1, 3);
    EXPECT_TRUE(Open()) << "without a client, device or converter";
    ClearLog();
    EXPECT_EQ(probe.ResampleInit(), AVERROR(ENOMEM));
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, resamplerFailed, resampleInitTag}}));
    audio.Add(L"headset");
    audio.ChangeDefaultSpeaker(L"headset");
    ClearLog();
    EXPECT_EQ(probe.CheckDeviceChanged(), 0) << "the failure is ignored";
    EXPECT_NE(probe.RenderClient(), nullptr);
    ExpectLine(errorLevel, resamplerFailed, resampleInitTag);
    EXPECT_EQ(fakeffmpeg::Script().Count(fakeffmpeg::Call::swr_init), 0);
}

// The second opening has no converter but still has the input buffer of the first opening.
TEST_F(RenderReactivation, DropsBlocksWithoutConverterUntilNextSwitch)
{
    EXPECT_TRUE(Open());
    player->Close();
    SwrContext *lost = probe.TakeResampler();
    swr_free(&lost);
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_alloc, 0, 1, 2);
    EXPECT_TRUE(Open());
    audio.Add(L"headset");
    audio.ChangeDefaultSpeaker(L"headset");
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_FALSE(probe.HasResampler());
    ClearLog();
    Play(MakeBlock());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{
                         {errorLevel, L"AudioPlayerWas Error while converting", "AudioPlayerWas::Resample"},
                         {errorLevel, L"AudioPlayerWas dstFrames < 0", playTag}}));
    audio.ChangeDefaultSpeaker(L"speakers");
    Play(MakeBlock());
    EXPECT_EQ(Speakers().writtenFrames, std::vector<UINT32>{1024}) << "once memory is available";
}

TEST_F(RenderReactivation, LeaksNothingOverThirtyReactivations)
{
    EXPECT_TRUE(Open());
    const int objects = audio.LiveObjects();
    const int handles = fakewin::LiveHandles();
    const int blocks = fakewin::LiveTaskBlocks();
    for (int i = 0; i < 30; ++i) {
        Speakers().mixFormat = i % 2 == 0 ? fakes::MixFormat{6, 32, 44100} : fakes::MixFormat{2, 16, 48000};
        InvalidateSpeakers();
        Play(MakeBlock());
        EXPECT_EQ(audio.LiveObjects(), objects);
        EXPECT_EQ(fakewin::LiveHandles(), handles);
        EXPECT_EQ(fakewin::LiveTaskBlocks(), blocks);
    }
    EXPECT_EQ(Speakers().writtenFrames.size(), 30u);
}

} // namespace
