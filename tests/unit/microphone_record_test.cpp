#include "handler/microphone_record.h"

#include <atomic>
#include <future>
#include <string>
#include <thread>

#include "capture_fixture.h"
#include "failing_throwing_new.h"
#include "handler/listener.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "tests/fakes/fake_deadline.h"

namespace {

using namespace velto_test;
using namespace velto;

constexpr char openTag[] = "`anonymous-namespace'::VeltoOpenAudioRecord";
constexpr char readTag[] = "`anonymous-namespace'::VeltoReadStreamBuffer";
constexpr char closeTag[] = "`anonymous-namespace'::VeltoCloseAudioRecord";

class MicrophoneRecord : public CaptureTest {
protected:
    ~MicrophoneRecord() override { EXPECT_EQ(CloseRecord("mic1"), 0); }

    int32_t OpenRecord(const char *id)
    {
        return VeltoOpenAudioRecord(id, Length(id), nullptr, nullptr, &profiles);
    }
    static int32_t CloseRecord(const char *id) { return VeltoCloseAudioRecord(id, Length(id)); }
    int32_t ReadRecord() { return VeltoReadStreamBuffer("mic1", 4, nullptr, &frame); }
    // Reads until a read returns a packet. False after ten seconds.
    bool ReadUntilPacket()
    {
        return Eventually([&] {
            header.size = 3840; // larger than any packet; a stopped capture does not change it
            EXPECT_EQ(ReadRecord(), 0);
            return header.size != 0 && header.size != 3840;
        });
    }
    // The state of the current capture.
    static int32_t State() { return AudioCaptureProbe(*AudioCapture::Current()).State(); }

    AudioProfileList profiles{};
    HostFrame record{buffer.data(), 0};
    StreamFrameHeader &header = record.header;
    StreamFrame &frame = record.frame;
};

TEST_F(MicrophoneRecord, OpenRequiresValidIdAndProfileList)
{
    EXPECT_EQ(VeltoOpenAudioRecord(nullptr, 0, nullptr, nullptr, &profiles), -2000);
    EXPECT_EQ(VeltoOpenAudioRecord("mic1", 3, nullptr, nullptr, &profiles), -2000);
    EXPECT_EQ(VeltoOpenAudioRecord("mic1", 5, nullptr, nullptr, &profiles), -2000);
    EXPECT_EQ(VeltoOpenAudioRecord("mic1", 4, nullptr, nullptr, nullptr), -2000);
    ExpectLine(errorLevel, L"mic id or profiles is null or invalid", openTag, 4);
    EXPECT_EQ(AudioCapture::Current(), nullptr);
}

TEST_F(MicrophoneRecord, OpenRecordsDefaultMicrophoneForAnyId)
{
    audio.Add(L"headset");
    const std::vector<std::string> ids = {"mic1", "ModemMic1", "speaker1", ""};
    for (const std::string &id : ids) {
        const int packets = audio.Count(Method::CaptureGetBuffer);
        EXPECT_EQ(OpenRecord(id.c_str()), 0) << id;
        ASSERT_NE(AudioCapture::Current(), nullptr);
        ASSERT_TRUE(Eventually([&] { return audio.Count(Method::CaptureGetBuffer) > packets; })) << id;
        EXPECT_EQ(audio.Clients().back().endpoint, L"microphone") << id;
        EXPECT_EQ(audio.Clients().back().starts, 1) << id;
        AudioCaptureProbe current(*AudioCapture::Current());
        EXPECT_EQ(current.TargetSampleRate(), 48000U);
        EXPECT_EQ(current.TargetChannels(), 2U);
        EXPECT_EQ(current.TargetSampleFormat(), 1);
        EXPECT_TRUE(current.Started());
        EXPECT_EQ(CloseRecord(id.c_str()), 0);
        EXPECT_EQ(AudioCapture::Current(), nullptr);
    }
    const size_t openings = 2 * ids.size(); // for the encoder and for the capture
    EXPECT_EQ(audio.Clients().size(), openings);
    EXPECT_EQ(audio.RequestedFlows(), std::vector(openings, eCapture));
    EXPECT_EQ(audio.RequestedRoles(), std::vector(openings, eConsole));
}

TEST_F(MicrophoneRecord, OpenLogsFailedAllocationAndSucceeds)
{
    {
        const FailingThrowingNew noMemory(1);
        EXPECT_EQ(OpenRecord("mic1"), 0);
        EXPECT_TRUE(noMemory.HasFailed());
    }
    ExpectLine(errorLevel, L"Alloc screen record object failed!No memory?", "AudioCapture::Create");
    EXPECT_EQ(AudioCapture::Current(), nullptr);
    header.size = 100;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 0U);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 0);
}

TEST_F(MicrophoneRecord, SecondOpenWithoutMemoryLeavesNoCurrentCapture)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    AudioCapture *first = AudioCapture::Current();
    {
        const FailingThrowingNew noMemory(1);
        EXPECT_EQ(OpenRecord("mic1"), 0);
        EXPECT_TRUE(noMemory.HasFailed());
    }
    EXPECT_EQ(AudioCapture::Current(), nullptr);
    EXPECT_FALSE(AudioCaptureProbe(*first).Stopped()) << "the first capture continues without an owner";
    header.size = 100;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 0U);
    AudioCapture::SetCurrent(first);
    EXPECT_EQ(CloseRecord("mic1"), 0);
}

TEST_F(MicrophoneRecord, OpenSucceedsWithoutMicrophone)
{
    audio.SetDefaultMicrophone(L"");
    EXPECT_EQ(OpenRecord("mic1"), 0);
    header.size = 100;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 100U);
    ExpectLine(errorLevel, L"m_bAtomStop is stop", "AudioCapture::GetAudioData");
}

TEST_F(MicrophoneRecord, ReadRequiresValidId)
{
    EXPECT_EQ(VeltoReadStreamBuffer(nullptr, 0, nullptr, &frame), -2000);
    EXPECT_EQ(VeltoReadStreamBuffer("mic1", 9, nullptr, &frame), -2000);
    ExpectLine(errorLevel, L"mic id is null or invalid", readTag, 2);
}

TEST_F(MicrophoneRecord, ReadRefusesMissingFrameHeaderOrDataSilently)
{
    header.size = 55;
    EXPECT_EQ(VeltoReadStreamBuffer("mic1", 4, nullptr, nullptr), -3);
    frame.data = nullptr;
    EXPECT_EQ(ReadRecord(), -3);
    EXPECT_EQ(header.size, 55U);
    frame.data = buffer.data();
    frame.header = nullptr;
    EXPECT_EQ(ReadRecord(), -3);
    EXPECT_TRUE(LogOf(readTag).empty());
}

TEST_F(MicrophoneRecord, ReadReturnsSizeZeroBeforeOpen)
{
    header.size = 55;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 0U);
}

TEST_F(MicrophoneRecord, ReadReturnsMicrophonePackets)
{
    Microphone().source = [] { return QuietPacket(480); };
    EXPECT_EQ(OpenRecord("mic1"), 0);
    for (int packet = 0; packet < 5; ++packet) {
        EXPECT_TRUE(ReadUntilPacket());
        EXPECT_LT(header.size, 1537U);
    }
}

TEST_F(MicrophoneRecord, CloseRequiresValidId)
{
    EXPECT_EQ(VeltoCloseAudioRecord(nullptr, 4), -2000);
    EXPECT_EQ(VeltoCloseAudioRecord("mic1", 1), -2000);
    ExpectLine(errorLevel, L"mic id is null or invalid", closeTag, 2);
}

TEST_F(MicrophoneRecord, CloseSucceedsWhenNothingIsOpen)
{
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

TEST_F(MicrophoneRecord, CloseEndsThreadsAndNotifications)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(audio.LiveObjects(), 0);
    header.size = 55;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 0U);
}

TEST_F(MicrophoneRecord, CloseWaitsForInitThreadBeforeItDestroysCapture)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    const HANDLE initThread = AudioCaptureProbe(*AudioCapture::Current()).InitThreadHandle();
    EXPECT_EQ(CloseRecord("mic1"), 0);
    int waits = 0;
    for (const fakewin::WaitRecord &wait : fakewin::Waits()) {
        waits += wait.handle == initThread && wait.waitMs == INFINITE ? 1 : 0;
    }
    EXPECT_EQ(waits, 2) << "one by the call, one by the destructor";
}

TEST_F(MicrophoneRecord, CloseFreesCaptureFormatEvenWhenNull)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    EXPECT_EQ(fakewin::Count(fakewin::Call::CoTaskMemFree), 0);
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CoTaskMemFree), 1);
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CoTaskMemFree), 1) << "nothing was open";
}

// The second recording has no microphone and thus no running thread. If Close wrongly deleted it, the test
// would fail instead of waiting for its threads.
TEST_F(MicrophoneRecord, CloseKeepsRecordingOpenedDuringClose)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    AudioCapture *first = AudioCapture::Current();
    AudioCapture *second = nullptr;
    audio.Before(Method::UnregisterCallback, [&] {
        audio.SetDefaultMicrophone(L"");
        EXPECT_EQ(OpenRecord("mic1"), 0);
        second = AudioCapture::Current();
    });
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(second, first);
    ASSERT_EQ(AudioCapture::Current(), second);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1) << "of the second recording";
}

TEST_F(MicrophoneRecord, ConcurrentClosesEndRecordingOnce)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    audio.Before(Method::UnregisterCallback, [] {
        EXPECT_EQ(AudioCapture::Current(), nullptr) << "the first call has already taken the capture";
        std::thread other([] { EXPECT_EQ(CloseRecord("mic1"), 0); });
        other.join();
    });
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(audio.Count(Method::UnregisterCallback), 1);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CoTaskMemFree), 1);
}

TEST_F(MicrophoneRecord, ReferencesModuleWhileOpenWithoutMicrophone)
{
    const auto references = [] { return fakewin::ModuleReferences(fakewin::ThisModule()); };
    const int others = references();
    audio.SetDefaultMicrophone(L"");
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_EQ(references(), others + 1) << "of the registered notifier";
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(references(), others);
}

// --- A device failure on the capture thread, before or after the host's thread registers -------------

struct DeviceFailure {
    Method method;
    HRESULT result;
};

class MicrophoneDeviceFailure : public MicrophoneRecord, public ::testing::WithParamInterface<DeviceFailure> {
protected:
    MicrophoneDeviceFailure()
    {
        Microphone().source = [] { return QuietPacket(1024); };
    }

    // Waits until the capture's threads have ended after the failure.
    static bool AwaitTeardown()
    {
        return Eventually([] { return State() == CAPTURE_NOT_PREPARED; });
    }
    void ChangeDefault() { audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone"); }
};

TEST_P(MicrophoneDeviceFailure, StopsFollowingDefaultWhenFailingAfterRegistration)
{
    audio.Before(GetParam().method, [] {
        EXPECT_TRUE(
            Eventually([] { return AudioCaptureProbe(*AudioCapture::Current()).Notifier() != nullptr; }));
    });
    audio.Fail(GetParam().method, GetParam().result);
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitTeardown());
    EXPECT_EQ(audio.Count(Method::RegisterCallback), 1);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    const int threads = fakewin::Count(fakewin::Call::CreateThread);
    ChangeDefault();
    EXPECT_TRUE(LogOf("AudioCapture::OnAudioStateChanged").empty());
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), threads);
    header.size = 100;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 100U) << "capture has stopped";

    // Reopening restores the recording.
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(OpenRecord("mic1"), 0);
    EXPECT_TRUE(ReadUntilPacket());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    ChangeDefault();
    EXPECT_TRUE(AwaitLine(L"OnAudioStateChanged", "AudioCapture::OnAudioStateChanged"));
}

TEST_P(MicrophoneDeviceFailure, KeepsFollowingDefaultWhenFailingBeforeRegistration)
{
    audio.Before(Method::RegisterCallback, [] { EXPECT_TRUE(AwaitTeardown()); });
    audio.Fail(GetParam().method, GetParam().result);
    EXPECT_EQ(OpenRecord("mic1"), 0);
    EXPECT_EQ(State(), CAPTURE_NOT_PREPARED);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    header.size = 100;
    EXPECT_EQ(ReadRecord(), 0);
    EXPECT_EQ(header.size, 100U) << "capture has stopped";

    ChangeDefault();
    EXPECT_TRUE(ReadUntilPacket());
}

std::string FailureName(const ::testing::TestParamInfo<DeviceFailure> &failure)
{
    switch (failure.param.result) {
    case AUDCLNT_E_DEVICE_IN_USE:
        return "InExclusiveUse";
    case E_ACCESSDENIED:
        return "DeniedForPrivacy";
    default:
        return "NotReady";
    }
}

INSTANTIATE_TEST_SUITE_P(Microphone, MicrophoneDeviceFailure,
                         ::testing::Values(DeviceFailure{Method::Initialize, AUDCLNT_E_DEVICE_IN_USE},
                                           DeviceFailure{Method::Initialize, E_ACCESSDENIED},
                                           DeviceFailure{Method::Start, AUDCLNT_E_SERVICE_NOT_RUNNING}),
                         FailureName);

TEST_F(MicrophoneRecord, CloseAfterTwoOpensLeavesFirstCaptureRunning)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    AudioCapture *first = AudioCapture::Current();
    EXPECT_EQ(OpenRecord("mic1"), 0);
    EXPECT_NE(AudioCapture::Current(), first);
    EXPECT_EQ(CloseRecord("mic1"), 0);
    EXPECT_EQ(AudioCapture::Current(), nullptr);
    EXPECT_FALSE(AudioCaptureProbe(*first).Stopped());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    AudioCapture::SetCurrent(first); // so that the fixture closes it
}

// The restart is about to prepare the capture again. If closing stopped the capture only before that, it
// would wait for threads that nothing stops.
TEST_F(MicrophoneRecord, CloseEndsRestartsBeforeItStops)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    AudioCapture *current = AudioCapture::Current();
    const AudioCaptureProbe currentProbe(*current);
    std::atomic<bool> restartRuns{false};
    std::atomic<bool> restartMayContinue{false};
    fakewin::Before(fakewin::Call::CreateEventW, [&] {
        restartRuns = true;
        Eventually([&] { return restartMayContinue.load(); });
    });
    audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone");
    ASSERT_TRUE(Eventually([&] { return restartRuns.load(); }));
    std::thread closing([] { EXPECT_EQ(CloseRecord("mic1"), 0); });
    const bool ended = Eventually([&] { return currentProbe.RestartsOver(); });
    EXPECT_TRUE(ended);
    restartMayContinue = true;
    if (!ended) { // so that closing returns
        EXPECT_TRUE(Eventually([&] { return !currentProbe.Stopped(); }));
        current->Stop();
    }
    closing.join();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(fakewin::LiveThreads(), 0);
}

TEST_F(MicrophoneRecord, CloseEndsWaitingRead)
{
    EXPECT_EQ(OpenRecord("mic1"), 0);
    ASSERT_TRUE(AwaitLoop());
    AudioCaptureProbe current(*AudioCapture::Current());
    std::thread reader([&] {
        header.size = 100000000; // more than eight minutes
        EXPECT_EQ(ReadRecord(), 0);
    });
    EXPECT_TRUE(Eventually([] { return fakes::Timeouts().size() == 1; }));
    current.PassReadLock();
    auto closing = std::async(std::launch::async, [] { EXPECT_EQ(CloseRecord("mic1"), 0); });
    ExpectReturns(closing, current); // closing waits for the read
    reader.join();
    EXPECT_EQ(header.size, 0U) << "the read was waiting";
}

// --- Events ------------------------------------------------------------------------------------------

// A host's listener that uses the recording from another thread and waits for that thread.
struct ReentrantListener {
    static void OnEvent(const char *id, uint32_t idLength, int32_t event)
    {
        if (isCalling) {
            return; // an event of the calls below
        }
        events.push_back(event);
        auto returned = std::make_shared<std::atomic<bool>>(false);
        std::thread calls([id, idLength, returned] {
            isCalling = true;
            AudioProfileList profiles{};
            std::vector<uint8_t> buffer(8192);
            HostFrame record(buffer.data(), 3840);
            EXPECT_EQ(VeltoOpenAudioRecord(id, idLength, nullptr, nullptr, &profiles), 0);
            EXPECT_EQ(VeltoReadStreamBuffer(id, idLength, nullptr, &record.frame), 0);
            EXPECT_EQ(VeltoCloseAudioRecord(id, idLength), 0);
            EXPECT_EQ(VeltoCloseAudioTrack(id, idLength), 0);
            *returned = true;
        });
        EXPECT_TRUE(Eventually([&] { return returned->load(); })) << "event " << event;
        threads.push_back(std::move(calls));
    }
    static inline thread_local bool isCalling = false;
    static inline std::vector<int32_t> events;
    static inline std::vector<std::thread> threads;
};

TEST_F(MicrophoneRecord, ListenerMayUseRecordingDuringEvent)
{
    ReentrantListener::events.clear();
    ReentrantListener::threads.clear();
    const AudioListener listener{ReentrantListener::OnEvent, nullptr};
    ASSERT_EQ(VeltoRegisterListener(&listener), 0);
    EXPECT_EQ(VeltoCloseAudioTrack("mic1", 4), 0);
    const AudioProfileEntry entry{"sampleRate", 10, 48000};
    profiles.count = 1;
    profiles.entries = &entry;
    EXPECT_EQ(VeltoSetAudioParameter("mic1", 4, nullptr, nullptr, &profiles), 0);
    for (std::thread &calls : ReentrantListener::threads) {
        calls.join();
    }
    EXPECT_EQ(ReentrantListener::events, (std::vector<int32_t>{3, 4}));
    const AudioListener none{nullptr, nullptr};
    VeltoRegisterListener(&none);
}

} // namespace
