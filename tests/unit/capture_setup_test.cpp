// Preparing a capture: synchronisation of the threads, the device, the encoder, and each failure.
#include "capture_fixture.h"

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "tests/fakes/failing_new.h"

namespace {

using namespace velto_test;
using namespace velto;

constexpr char prepareTag[] = "AudioCapture::Prepare";
constexpr char initializeTag[] = "AudioCapture::Initialize";
constexpr char micTag[] = "AudioCapture::GetDefaultMicAudioClient";
constexpr char openTag[] = "AudioCapture::GetLoopBackAudioCapture";
constexpr char swrTag[] = "AudioCapture::InitSwr";
constexpr char paramTag[] = "AudioCapture::GetEncodeParam";
constexpr char encoderTag[] = "AudioCapture::InitAudioEncoder";
constexpr char threadTag[] = "AudioCapture::AudioCaptureAndEncodeThreadProc";

class CaptureSetup : public CaptureTest {
protected:
    // Waits for the teardown after a failure.
    void AwaitNotPrepared()
    {
        EXPECT_TRUE(Eventually([&] { return probe.State() == CAPTURE_NOT_PREPARED; }));
    }
    // Runs `action` on the capture thread just before it ends. The capture thread always ends first: the init
    // thread waits for it before resetting the state.
    static void BeforeCaptureThreadEnds(std::function<void()> action)
    {
        fakewin::Before(fakewin::Call::FreeLibraryAndExitThread, std::move(action));
    }
    // Expects the capture thread to log this line and to leave the state -101, before or after Prepare
    // returns.
    void ExpectCaptureThreadFails(const std::wstring &text)
    {
        int32_t stateAtThreadEnd = 0;
        BeforeCaptureThreadEnds([&] { stateAtThreadEnd = probe.State(); });
        capture->Prepare();
        EXPECT_TRUE(AwaitLine(text, openTag));
        AwaitNotPrepared();
        EXPECT_EQ(stateAtThreadEnd, -101);
    }
    // True when the encoder and the frame are released.
    static bool IsEncoderReleased(AudioCaptureProbe &capture)
    {
        uint8_t config[8];
        uint32_t length = 0;
        return !capture.Encoder().GetDecoderSpecificInfo(config, sizeof config, length) &&
               capture.Frame().samples == nullptr;
    }
    void ExpectConverterFails()
    {
        ExpectCaptureThreadFails(L"InitSwr failed! Err=-1");
        ExpectLine(errorLevel, L"Failed to initialize the resampling context", swrTag);
    }
};

TEST_F(CaptureSetup, StartsFromNotPreparedState)
{
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_TRUE(probe.Stopped());
    EXPECT_FALSE(probe.Started());
    EXPECT_EQ(probe.ReadyCounter(), 0);
    EXPECT_EQ(probe.InitThreadHandle(), nullptr);
    EXPECT_EQ(probe.Notifier(), nullptr);
    EXPECT_EQ(probe.SampleFormat(), -1);
    EXPECT_FALSE(capture->WaitInitThread());
    EXPECT_EQ(probe.CaptureSampleRate(), 0U);
    EXPECT_EQ(probe.CaptureChannels(), 0U);
    EXPECT_EQ(probe.FrameLength(), 0U);
    EXPECT_EQ(probe.ChannelCode(), 0U);
    EXPECT_TRUE(probe.DecoderConfig().empty());
    AudioCapture untouched;
    const AudioCaptureProbe untouchedProbe(untouched);
    EXPECT_EQ(untouchedProbe.TargetSampleRate(), 0U);
    EXPECT_EQ(untouchedProbe.TargetChannels(), 0U);
    EXPECT_EQ(untouchedProbe.TargetSampleFormat(), -1);
}

TEST_F(CaptureSetup, PrepareReturnsZeroOnceCaptureThreadExists)
{
    EXPECT_EQ(capture->Prepare(), 0);
    EXPECT_FALSE(probe.Stopped());
    EXPECT_GE(probe.ReadyCounter(), 1);
    EXPECT_EQ(probe.ReadyEvent(), nullptr);
    ASSERT_TRUE(AwaitLoop());
    EXPECT_TRUE(Eventually([&] { return probe.ReadyCounter() == 2; }));
    EXPECT_EQ(probe.FrameLength(), 1024U);
    EXPECT_EQ(probe.TimestampTimeBase(), 1000000U);
    // AAC-LC, 48000 Hz, stereo; then the sync extension that signals no SBR.
    EXPECT_EQ(probe.DecoderConfig(), (std::vector<uint8_t>{0x11, 0x90, 0x56, 0xE5, 0x00}));
}

TEST_F(CaptureSetup, PrepareSetsStateAndStopFlagBeforeItStartsInitThread)
{
    int32_t state = -1;
    bool stopped = true;
    fakewin::Before(fakewin::Call::CreateThread, [&] {
        state = probe.State();
        stopped = probe.Stopped();
    });
    EXPECT_EQ(probe.State(), -10000);
    capture->Prepare();
    EXPECT_EQ(state, 0);
    EXPECT_FALSE(stopped);
    Close();
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_TRUE(probe.Stopped());
}

TEST_F(CaptureSetup, PrepareWaitsOnManualResetEventWithoutTimeout)
{
    capture->Prepare();
    const auto events = fakewin::CreatedEvents();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_TRUE(events[0].manualReset);
    EXPECT_FALSE(events[0].initialState);
    EXPECT_TRUE(events[0].plain);
    const auto waits = fakewin::Waits();
    const fakewin::WaitRecord expected{fakewin::Call::WaitForSingleObject, events[0].handle, INFINITE};
    EXPECT_NE(std::find(waits.begin(), waits.end(), expected), waits.end());
}

// ThreadSanitizer checks the locks.
TEST_F(CaptureSetup, InitThreadCanBeAwaitedDuringPrepare)
{
    std::thread preparing([this] {
        EXPECT_EQ(capture->Prepare(), 0);
        capture->Stop();
    });
    while (!capture->WaitInitThread()) {
        std::this_thread::yield();
    }
    preparing.join();
    EXPECT_EQ(probe.State(), -10000);
}

// ThreadSanitizer checks the locks.
TEST_F(CaptureSetup, ReadyEventCanBeSetAtAnyTime)
{
    ReadyEvent ready;
    std::atomic<bool> done{false};
    std::thread setting([&] {
        while (!done) {
            ready.CountAndSet();
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_TRUE(ready.Create());
        ready.Await();
        ready.Close();
    }
    done = true;
    setting.join();
}

TEST_F(CaptureSetup, SecondPrepareReturnsStateAndCreatesNothing)
{
    capture->Prepare();
    const int threads = fakewin::Count(fakewin::Call::CreateThread);
    EXPECT_EQ(capture->Prepare(), 0);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateEventW), 1);
    EXPECT_LE(fakewin::Count(fakewin::Call::CreateThread), std::max(threads, 2));
    probe.SetState(-101);
    EXPECT_EQ(capture->Prepare(), -101);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateEventW), 1);
}

TEST_F(CaptureSetup, PrepareFailsWithoutEvent)
{
    fakewin::Fail(fakewin::Call::CreateEventW, 1450);
    EXPECT_EQ(capture->Prepare(), -1001);
    ExpectLine(errorLevel, L"Create windows event failed! err=1450", prepareTag);
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_TRUE(probe.Stopped());
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 0);
}

TEST_F(CaptureSetup, PrepareFailsWithoutInitThreadAndCanBeRetried)
{
    const int handles = fakewin::LiveHandles();
    fakewin::Fail(fakewin::Call::CreateThread, 8);
    EXPECT_EQ(capture->Prepare(), -1001);
    ExpectLine(errorLevel, L"Create init thread failed!err=8", prepareTag);
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_TRUE(probe.Stopped());
    EXPECT_EQ(fakewin::LiveHandles(), handles);
    EXPECT_EQ(capture->Prepare(), 0);
}

TEST_F(CaptureSetup, PrepareFailsWithoutCaptureThread)
{
    fakewin::Fail(fakewin::Call::CreateThread, 8, 2);
    EXPECT_EQ(capture->Prepare(), -1001);
    ExpectLine(errorLevel, L"Create audio capture and encoder thread failed, err=8", initializeTag);
    EXPECT_TRUE(probe.Stopped());
    AwaitNotPrepared();
}

// The teardown must not reset the state before Prepare has returned it, even if Prepare is slow to return.
TEST_F(CaptureSetup, PrepareReturnsFailureBeforeTeardownResetsState)
{
    fakewin::Fail(fakewin::Call::CoInitializeEx, E_OUTOFMEMORY);
    fakewin::Before(fakewin::Call::CloseHandle, [&] { // the ready event
        for (int i = 0; i < 30 && probe.State() != CAPTURE_NOT_PREPARED; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_EQ(capture->Prepare(), -103);
    AwaitNotPrepared();
}

TEST_F(CaptureSetup, ThreadEntriesReturnInvalidHandleWithoutObject)
{
    EXPECT_EQ(AudioCaptureProbe::InitThread(nullptr), 6U);
    EXPECT_EQ(AudioCaptureProbe::CaptureThread(nullptr), 6U);
    EXPECT_EQ(AudioCaptureProbe::RestartThread(nullptr), 6U);
}

TEST_F(CaptureSetup, InitThreadPollsStopFlagEveryFiftyMilliseconds)
{
    Open();
    EXPECT_TRUE(Eventually([] {
        const auto waits = fakewin::Waits();
        const fakewin::WaitRecord poll{fakewin::Call::Sleep, nullptr, 50};
        return std::count(waits.begin(), waits.end(), poll) > 1;
    }));
}

TEST_F(CaptureSetup, TeardownReleasesObjectsAndReturnsToNotPrepared)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    capture->Stop();
    EXPECT_TRUE(capture->WaitInitThread());
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_EQ(probe.CaptureThreadHandle(), nullptr);
    EXPECT_FALSE(probe.HasResampler());
    EXPECT_EQ(probe.Packets().DataCount(), 0);
    EXPECT_TRUE(IsEncoderReleased(probe));
    EXPECT_EQ(audio.LiveObjects(), 0);
    probe.Teardown(); // harmless when repeated
}

TEST_F(CaptureSetup, PrepareSucceedsAgainAfterTeardown)
{
    for (int round = 0; round < 3; ++round) {
        const int packets = audio.Count(Method::CaptureGetBuffer);
        ASSERT_EQ(capture->Prepare(), 0);
        ASSERT_TRUE(Eventually([&] { return audio.Count(Method::CaptureGetBuffer) > packets; }));
        EXPECT_TRUE(Eventually([&] { return probe.ReadyCounter() == 2; })) << "the threads of this round";
        Close();
        EXPECT_EQ(probe.State(), -10000);
    }
}

// --- Destruction -----------------------------------------------------------------------------

// The capture thread does not end before the test allows it.
TEST_F(CaptureSetup, DestructorWaitsForInitThread)
{
    auto *other = new AudioCapture;
    other->SetTarget(48000, 2, 1);
    AudioCaptureProbe otherProbe(*other);
    std::atomic<bool> mayEnd{false};
    audio.Before(Method::Stop, [&] { Eventually([&] { return mayEnd.load(); }); });
    ASSERT_EQ(other->Prepare(), 0);
    ASSERT_TRUE(AwaitLoop());
    const fakewin::WaitRecord wait{fakewin::Call::WaitForSingleObject, otherProbe.InitThreadHandle(),
                                   INFINITE};
    other->Stop();
    auto deletion = std::async(std::launch::async, [other] { delete other; });
    EXPECT_TRUE(Eventually([&] {
        const auto waits = fakewin::Waits();
        return std::find(waits.begin(), waits.end(), wait) != waits.end();
    }));
    mayEnd = true;
    deletion.get();
    EXPECT_EQ(fakewin::LiveThreads(), 0);
}

TEST_F(CaptureSetup, DestructorUnregistersNotifierThatStartRegisteredAfterStop)
{
    auto other = std::make_unique<AudioCapture>();
    other->SetTarget(48000, 2, 1);
    ASSERT_EQ(other->Prepare(), 0);
    other->Stop();
    other->WaitInitThread();
    EXPECT_EQ(other->Start(), -10000);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    other.reset();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(audio.LiveObjects(), 0);
}

// --- Start -----------------------------------------------------------------------------------

TEST_F(CaptureSetup, StartRegistersOneNotifierAndReturnsZero)
{
    capture->Prepare();
    EXPECT_EQ(capture->Start(), 0);
    EXPECT_TRUE(probe.Started());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
}

TEST_F(CaptureSetup, SecondStartFailsAndKeepsOneNotifier)
{
    capture->Prepare();
    EXPECT_EQ(capture->Start(), 0);
    EXPECT_EQ(capture->Start(), -10001);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
}

TEST_F(CaptureSetup, StartRegistersNotifierButReturnsStateWhenNotPrepared)
{
    EXPECT_EQ(capture->Start(), -10000);
    EXPECT_FALSE(probe.Started());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
}

TEST_F(CaptureSetup, StartSucceedsWhenNotifierCannotRegister)
{
    capture->Prepare();
    ASSERT_TRUE(AwaitLoop());
    fakewin::Fail(fakewin::Call::CoCreateInstance, REGDB_E_CLASSNOTREG);
    EXPECT_EQ(capture->Start(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

TEST_F(CaptureSetup, StopDetachesNotifierAndCanBeRepeated)
{
    Open();
    capture->Stop();
    EXPECT_EQ(probe.Notifier(), nullptr);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    capture->Stop();
    ExpectLine(infoLevel, L"AudioDeviceNotify::UnInitialize()", "AudioDeviceNotify::UnInitialize");
}

// The system may still call a notifier that it has a reference to.
TEST_F(CaptureSetup, StopRemovesCaptureFromNotifiersListeners)
{
    Open();
    AudioDeviceNotify *notifier = probe.Notifier();
    notifier->AddRef();
    capture->Stop();
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"headset");
    EXPECT_TRUE(LogOf("AudioCapture::OnAudioStateChanged").empty());
    notifier->Release();
}

// --- The device ------------------------------------------------------------------------------

TEST_F(CaptureSetup, OpensDefaultConsoleMicrophoneForEncoderAndForCapture)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    const auto roles = audio.RequestedRoles();
    const auto flows = audio.RequestedFlows();
    EXPECT_EQ(roles, (std::vector<ERole>{eConsole, eConsole}));
    EXPECT_EQ(flows, (std::vector<EDataFlow>{eCapture, eCapture}));
    ASSERT_EQ(audio.Clients().size(), 2U);
    EXPECT_FALSE(audio.Clients()[0].alive);
    for (const fakewin::Instantiation &made : fakewin::Instantiations()) {
        EXPECT_EQ(made.context, static_cast<DWORD>(CLSCTX_ALL));
    }
}

TEST_F(CaptureSetup, OpensSharedPolledStreamWithHalfSecondBuffer)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    const auto client = audio.Clients()[1];
    EXPECT_EQ(client.mode, AUDCLNT_SHAREMODE_SHARED);
    EXPECT_EQ(client.flags, 0x00080000U);
    EXPECT_EQ(client.bufferDuration, 5000000);
    EXPECT_EQ(client.periodicity, 0);
    EXPECT_FALSE(client.hasSession);
    EXPECT_EQ(client.starts, 1);
    EXPECT_EQ(client.format.size(), sizeof(WAVEFORMATEXTENSIBLE));
}

TEST_F(CaptureSetup, DoesNotFreeMixFormats)
{
    const int before = fakewin::LiveTaskBlocks();
    Open();
    ASSERT_TRUE(AwaitLoop());
    Close();
    EXPECT_EQ(fakewin::LiveTaskBlocks(), before + 2);
}

struct MicFault {
    const char *name;
    std::function<void(int nth)> inject;
    const wchar_t *line;
};

const std::vector<MicFault> &MicFaults()
{
    static const std::vector<MicFault> faults = {
        {"enumerator",
         [](int nth) {
             fakewin::Fail(fakewin::Call::CoCreateInstance, static_cast<HRESULT>(0x80040154U), nth);
         },
         L"Create IMMDeviceEnumerator failed, err=0x80040154"},
        {"endpoint",
         [](int nth) {
             fakes::AudioSystem::Instance().Fail(Method::GetDefaultAudioEndpoint,
                                                 static_cast<HRESULT>(0x80070490U), nth);
         },
         L"GetDefaultAudioEndpoint failed, err=0x80070490"},
        {"no default endpoint",
         [](int nth) {
             if (nth == 1) {
                 fakes::AudioSystem::Instance().SetDefaultMicrophone(L"");
             } else {
                 fakes::AudioSystem::Instance().Before(
                     Method::GetDefaultAudioEndpoint,
                     [] { fakes::AudioSystem::Instance().SetDefaultMicrophone(L""); }, nth);
             }
         },
         L"GetDefaultAudioEndpoint failed, err=0x80070490"},
        {"client",
         [](int nth) {
             fakes::AudioSystem::Instance().Fail(Method::Activate, AUDCLNT_E_SERVICE_NOT_RUNNING, nth);
         },
         L"Activate AudioClient failed, err=0x88890010"},
        {"null client",
         [](int nth) { fakes::AudioSystem::Instance().Fail(Method::Activate, fakes::nullResult, nth); },
         L"Activate AudioClient failed, err=0x00000000"},
        {"mix format",
         [](int nth) {
             fakes::AudioSystem::Instance().Fail(Method::GetMixFormat, AUDCLNT_E_DEVICE_INVALIDATED, nth);
         },
         L"Get audio mix format failed, err=0x88890004"},
        {"null mix format",
         [](int nth) { fakes::AudioSystem::Instance().Fail(Method::GetMixFormat, fakes::nullResult, nth); },
         L"Get audio mix format failed, err=0x00000000"},
    };
    return faults;
}

class CaptureMicrophoneFault : public CaptureSetup, public ::testing::WithParamInterface<size_t> {};

TEST_P(CaptureMicrophoneFault, OnInitThreadFailsPrepareWithEncoderErrorCode)
{
    const MicFault &fault = MicFaults()[GetParam()];
    fault.inject(1);
    EXPECT_EQ(capture->Prepare(), -103) << fault.name;
    ExpectLine(errorLevel, fault.line, micTag);
    ExpectLine(errorLevel, L"GetEncodeParam failed!", encoderTag);
    AwaitNotPrepared();
    EXPECT_TRUE(probe.Stopped());
}

TEST_P(CaptureMicrophoneFault, OnCaptureThreadStopsCapture)
{
    const MicFault &fault = MicFaults()[GetParam()];
    fault.inject(2);
    capture->Prepare();
    EXPECT_TRUE(AwaitLine(fault.line, micTag)) << fault.name;
    EXPECT_TRUE(AwaitLine(L"Get default speaker device failed", openTag));
    AwaitNotPrepared();
    EXPECT_TRUE(probe.Stopped());
    EXPECT_EQ(capture->Prepare(),
              GetParam() == 2 ? -103 : 0); // "no default endpoint" removes the microphone permanently
}

INSTANTIATE_TEST_SUITE_P(Faults, CaptureMicrophoneFault, ::testing::Range<size_t>(0, 7));

TEST_F(CaptureSetup, FailsWithoutEndpointVolume)
{
    audio.Fail(Method::Activate, E_NOINTERFACE, 3);
    ExpectCaptureThreadFails(L"Get IAudioEndpointVolume interface failed! Err=0x80004002");
}

TEST_F(CaptureSetup, FailsWhenClientCannotBeInitialised)
{
    audio.Fail(Method::Initialize, AUDCLNT_E_DEVICE_IN_USE);
    ExpectCaptureThreadFails(L"Initialize audio client failed, err=0x8889000A");
}

TEST_F(CaptureSetup, FailsWithoutCaptureService)
{
    audio.Fail(Method::GetService, E_NOINTERFACE);
    ExpectCaptureThreadFails(L"Get audio capture service failed, err=0x80004002");
}

TEST_F(CaptureSetup, FailsWhenCaptureServiceIsNull)
{
    audio.Fail(Method::GetService, fakes::nullResult);
    ExpectCaptureThreadFails(L"Get audio capture service failed, err=0x00000000");
}

TEST_F(CaptureSetup, DeviceFailureBecomesStateUntilTeardown)
{
    int32_t stateBefore = 1;
    int32_t stateAtThreadEnd = 1;
    bool stoppedAtThreadEnd = false;
    audio.Before(Method::Initialize, [&] { stateBefore = probe.State(); });
    audio.Fail(Method::Initialize, AUDCLNT_E_DEVICE_IN_USE);
    BeforeCaptureThreadEnds([&] {
        stateAtThreadEnd = probe.State();
        stoppedAtThreadEnd = probe.Stopped();
    });
    capture->Prepare();
    AwaitNotPrepared();
    EXPECT_EQ(stateBefore, 0);
    EXPECT_EQ(stateAtThreadEnd, -101);
    EXPECT_TRUE(stoppedAtThreadEnd);
}

TEST_F(CaptureSetup, FirstFailureWinsOverDeviceFailure)
{
    int32_t stateAtThreadEnd = 1;
    bool stoppedAtThreadEnd = true;
    audio.Before(Method::Initialize, [&] { probe.SetState(CAPTURE_ENCODING_FAILED); });
    audio.Fail(Method::Initialize, AUDCLNT_E_DEVICE_IN_USE);
    BeforeCaptureThreadEnds([&] {
        stateAtThreadEnd = probe.State();
        stoppedAtThreadEnd = probe.Stopped();
    });
    capture->Prepare();
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 1; })) << "the init thread";
    EXPECT_EQ(stateAtThreadEnd, -104);
    EXPECT_FALSE(stoppedAtThreadEnd) << "only the first failure stops the capture";
}

TEST_F(CaptureSetup, FirstFailureWinsOverEncoderFailureThatStillTearsDown)
{
    ASSERT_TRUE(probe.Packets().Init(1));
    probe.SetState(CAPTURE_DEVICE_FAILED);
    probe.SetStopped(false);
    fakewin::Fail(fakewin::Call::CoInitializeEx, E_OUTOFMEMORY);
    EXPECT_EQ(AudioCaptureProbe::InitThread(capture.get()), 0U);
    EXPECT_FALSE(probe.Stopped()) << "only the first failure stops the capture";
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_EQ(probe.Packets().PopFree(), nullptr) << "the teardown has released the packet";
}

TEST_F(CaptureSetup, FailsOn24BitMixFormat)
{
    Microphone().mixFormat.bits = 24;
    ExpectCaptureThreadFails(L"InitSwr failed! Err=-1");
    EXPECT_EQ(probe.SampleFormat(), -1);
    EXPECT_TRUE(LogOf(swrTag).empty());
}

TEST_F(CaptureSetup, OpensEachSupportedMixFormat)
{
    struct Case {
        uint16_t bits;
        uint16_t channels;
        uint32_t rate;
        int32_t format;
    };
    for (const Case &mix : {Case{8, 1, 8000, AV_SAMPLE_FMT_U8}, Case{16, 2, 44100, AV_SAMPLE_FMT_S16},
                            Case{32, 6, 96000, AV_SAMPLE_FMT_FLT}}) {
        Microphone().mixFormat = {mix.channels, mix.bits, mix.rate, true, 0};
        const int packets = audio.Count(Method::CaptureGetBuffer);
        ASSERT_EQ(capture->Prepare(), 0);
        ASSERT_TRUE(Eventually([&] { return audio.Count(Method::CaptureGetBuffer) > packets; })) << mix.bits;
        EXPECT_EQ(probe.SampleFormat(), mix.format);
        EXPECT_EQ(probe.CaptureChannels(), mix.channels);
        EXPECT_EQ(probe.CaptureSampleRate(), mix.rate);
        Close();
    }
}

TEST_F(CaptureSetup, FailsWhenConverterCannotBeAllocated)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_alloc_set_opts2, -12);
    ExpectConverterFails();
}

TEST_F(CaptureSetup, FailsWhenConverterCannotBeInitialised)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -22);
    ExpectConverterFails();
}

TEST_F(CaptureSetup, ReleasesEncoderOnCaptureThreadWhenClientDoesNotStart)
{
    audio.Fail(Method::Start, AUDCLNT_E_SERVICE_NOT_RUNNING);
    bool encoderReleased = false;
    bool packetsReleased = false;
    BeforeCaptureThreadEnds([&] {
        encoderReleased = IsEncoderReleased(probe);
        packetsReleased = probe.Stopped() && probe.Packets().PopFree() == nullptr;
    });
    capture->Prepare();
    EXPECT_TRUE(AwaitLine(L"Start audio client failed! err=0x88890010", threadTag));
    EXPECT_TRUE(AwaitLine(L"Error code: -101", "AudioCapture::OnError"));
    AwaitNotPrepared();
    EXPECT_TRUE(encoderReleased) << "before the teardown";
    EXPECT_TRUE(packetsReleased) << "before the teardown";
    EXPECT_EQ(audio.Clients()[1].stops, 0);
}

// The second CoUninitialize call. The init thread makes the first one, after it has read the mix format.
constexpr int captureThreadLeavesCom = 2;

TEST_F(CaptureSetup, ReleasesInterfacesThenComThenEncoderWhenClientDoesNotStart)
{
    audio.Fail(Method::Start, AUDCLNT_E_SERVICE_NOT_RUNNING);
    std::vector<std::string> releasedBeforeCom;
    bool encoderReleasedBeforeCom = true;
    bool failureLoggedBeforeCom = false;
    size_t errorsBeforeCom = 1;
    fakewin::Before(
        fakewin::Call::CoUninitialize,
        [&] {
            releasedBeforeCom = LastReleased(3);
            encoderReleasedBeforeCom = IsEncoderReleased(probe);
            failureLoggedBeforeCom = LogOf(threadTag).size() == 1;
            errorsBeforeCom = LogOf("AudioCapture::OnError").size();
        },
        captureThreadLeavesCom);
    capture->Prepare();
    AwaitNotPrepared();
    EXPECT_EQ(releasedBeforeCom, (std::vector<std::string>{"capture client", "audio client", "volume"}));
    EXPECT_TRUE(failureLoggedBeforeCom);
    EXPECT_EQ(errorsBeforeCom, 0U);
    EXPECT_FALSE(encoderReleasedBeforeCom);
}

TEST_F(CaptureSetup, StopsClientThenReleasesInterfacesThenComAtEndOfCapture)
{
    std::vector<std::string> releasedBeforeStop;
    std::vector<std::string> releasedBeforeCom;
    audio.Before(Method::Stop, [&] { releasedBeforeStop = LastReleased(1); });
    fakewin::Before(
        fakewin::Call::CoUninitialize, [&] { releasedBeforeCom = LastReleased(3); }, captureThreadLeavesCom);
    ASSERT_EQ(capture->Prepare(), 0);
    ASSERT_TRUE(AwaitLoop());
    Close();
    EXPECT_EQ(audio.Clients()[1].stops, 1);
    EXPECT_EQ(releasedBeforeStop, std::vector<std::string>{"other"}) << "the device";
    EXPECT_EQ(releasedBeforeCom, (std::vector<std::string>{"capture client", "audio client", "volume"}));
}

TEST_F(CaptureSetup, EndsOnlyCaptureThreadWhenItCannotEnterCom)
{
    fakewin::Fail(fakewin::Call::CoInitializeEx, E_OUTOFMEMORY, 2);
    EXPECT_EQ(capture->Prepare(), 0);
    EXPECT_TRUE(AwaitLine(L"AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed", threadTag));
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 1; })) << "the init thread";
    EXPECT_TRUE(LogOf(micTag).empty());
    EXPECT_EQ(probe.State(), 0);
    EXPECT_FALSE(probe.Stopped());
    uint32_t size = 3840;
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 0U);
}

TEST_F(CaptureSetup, PrepareFailsWhenInitThreadCannotEnterCom)
{
    fakewin::Fail(fakewin::Call::CoInitializeEx, E_OUTOFMEMORY);
    EXPECT_EQ(capture->Prepare(), -103);
    ExpectLine(errorLevel, L"GetEncodeParam GetCOMLoadedStatus failed", paramTag);
    ExpectLine(errorLevel, L"GetEncodeParam failed!", encoderTag);
    AwaitNotPrepared();
}

// --- The encoder -----------------------------------------------------------------------------

TEST_F(CaptureSetup, PrepareFailsAndLeaksClientWhenMixFormatIsNotExtensible)
{
    Microphone().mixFormat.extensible = false;
    EXPECT_EQ(capture->Prepare(), -103);
    const auto lines = LogOf(paramTag);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, L"WAVEFORMATEX is not WAVEFORMATEXTENSIBLE?");
    ExpectLine(errorLevel, L"GetEncodeParam failed!", encoderTag);
    EXPECT_EQ(audio.LiveObjects(), 1);
    AwaitNotPrepared();
    objectsLeft = 1;
    openApartmentsLeft = 1;
    violationsLeft = {apartmentViolation};
}

TEST_F(CaptureSetup, DerivesEncoderParametersFromTarget)
{
    fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    EncodeParam param{};
    EXPECT_EQ(probe.GetEncodeParam(param), 0);
    EXPECT_EQ(param.sampleRateHz, 48000U);
    EXPECT_EQ(param.channelCode, 3U);
    EXPECT_EQ(param.bitRate, 128000U);
    EXPECT_EQ(param.pcmFormat, 1U);
    EXPECT_EQ(param.objectType, 2U);
    EXPECT_EQ(fakewin::ApartmentDepth(), 1);

    Microphone().mixFormat = {6, 32, 96000};
    capture->SetTarget(44100, 1, 1);
    EXPECT_EQ(probe.GetEncodeParam(param), 0);
    EXPECT_EQ(param.sampleRateHz, 44100U);
    EXPECT_EQ(param.channelCode, 4U);
    EXPECT_EQ(probe.CaptureSampleRate(), 96000U);
    EXPECT_EQ(probe.CaptureChannels(), 6U);
    for (const uint32_t channels : {0U, 3U, 6U, 65536U}) {
        capture->SetTarget(48000, channels, 1);
        EXPECT_EQ(probe.GetEncodeParam(param), 0);
        EXPECT_EQ(param.channelCode, 0U) << channels;
        EXPECT_EQ(probe.ChannelCode(), 0U);
    }
    capture->SetTarget(48000, 0x10002, 1);
    EXPECT_EQ(probe.GetEncodeParam(param), 0);
    EXPECT_EQ(param.channelCode, 3U);
    fakewin::CoUninitialize();
}

TEST_F(CaptureSetup, EncoderParametersFailWithCodeOfTheirCause)
{
    EncodeParam param{};
    fakewin::Fail(fakewin::Call::CoInitializeEx, E_OUTOFMEMORY);
    EXPECT_EQ(probe.GetEncodeParam(param), -101);
    audio.Fail(Method::GetDefaultAudioEndpoint, E_NOTFOUND);
    EXPECT_EQ(probe.GetEncodeParam(param), -101);
    EXPECT_EQ(fakewin::ApartmentDepth(), 0);
    Microphone().mixFormat.extensible = false;
    EXPECT_EQ(probe.GetEncodeParam(param), -105);
    EXPECT_EQ(fakewin::ApartmentDepth(), 1) << "known leak";
    fakewin::CoUninitialize();
    objectsLeft = 1; // the client, a known leak
}

TEST_F(CaptureSetup, PrepareFailsWhenEncoderRefusesParameters)
{
    capture->SetTarget(48000, 3, 1);
    EXPECT_EQ(capture->Prepare(), -103);
    ExpectLine(errorLevel, L"Init audio encoder failed!", encoderTag);
    AwaitNotPrepared();
}

TEST_F(CaptureSetup, PrepareFailsWhenFrameCannotBeAllocated)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_open2, 2 << 20); // exceeds the longest frame
    EXPECT_EQ(capture->Prepare(), -10002);
    ExpectLine(errorLevel, L"Alloc audio frame failed!", encoderTag);
    AwaitNotPrepared();
}

TEST_F(CaptureSetup, PrepareFailsWithoutMemoryForPackets)
{
    {
        const fakes::FailingNew noPackets(sizeof(AVEncodePacket));
        EXPECT_EQ(capture->Prepare(), -10002);
        ExpectLine(errorLevel, L"Alloc audio encode data buffer queue failed!", encoderTag);
        EXPECT_EQ(LogOf(encoderTag).size(), 1U);
        AwaitNotPrepared();
    }
    EXPECT_EQ(capture->Prepare(), 0);
}

TEST_F(CaptureSetup, FailedEncoderSetUpReleasesWhatItSetUp)
{
    {
        const fakes::FailingNew noPackets(sizeof(AVEncodePacket));
        EXPECT_EQ(probe.InitAudioEncoder(), -10002);
        EXPECT_TRUE(IsEncoderReleased(probe)) << "without packets";
    }
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_open2, 2 << 20); // exceeds the longest frame
    EXPECT_EQ(probe.InitAudioEncoder(), -10002);
    EXPECT_TRUE(IsEncoderReleased(probe)) << "without a frame";
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_open2, fakeffmpeg::withoutConfiguration);
    EXPECT_EQ(probe.InitAudioEncoder(), -103);
    EXPECT_TRUE(IsEncoderReleased(probe)) << "without decoder configuration";
    EXPECT_EQ(probe.Packets().PopFree(), nullptr) << "without decoder configuration";
    EXPECT_EQ(probe.TimestampTimeBase(), 0U);
}

TEST_F(CaptureSetup, PrepareFailsWithoutDecoderConfiguration)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_open2, fakeffmpeg::withoutConfiguration);
    EXPECT_EQ(capture->Prepare(), -103);
    ExpectLine(errorLevel, L"Get audio decoder specific info failed!", encoderTag);
    AwaitNotPrepared();
}

TEST_F(CaptureSetup, AllocatesPacketsForTenSecondsPlusOneAtEncodersRate)
{
    Microphone().mixFormat.rateHz = 44100;
    ASSERT_EQ(probe.InitAudioEncoder(), 0);
    probe.Packets().Stop();
    int packets = 0;
    while (probe.Packets().PopFree() != nullptr) {
        ++packets;
    }
    EXPECT_EQ(packets, 469);
    probe.Teardown();
}

} // namespace
