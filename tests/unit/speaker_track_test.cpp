// The speaker direction behind the host's table: starting, writing, closing and the idle release.
#include "speaker_track_fixture.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "failing_throwing_new.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"
#include "tests/platform/threads.h"
#include "velto/audio_handler.h"
#include "tests/fakes/fake_registry.h"

namespace {

using namespace std::chrono_literals;
using fakewin::Call;
using namespace velto_test;

constexpr char writeTag[] = "`anonymous-namespace'::VeltoWriteStreamBuffer";
constexpr char closeTag[] = "`anonymous-namespace'::VeltoCloseAudioTrack";
constexpr char parameterTag[] = "`anonymous-namespace'::VeltoSetAudioParameter";
constexpr char initTag[] = "`anonymous-namespace'::InitDefaultAudioDevice";
constexpr wchar_t idleLine[] = L"No audio data for 4mins, release audio resource.";

int IdleWaits()
{
    int waits = 0;
    for (const auto &wait : fakewin::Waits()) {
        waits += wait.waitMs == idleMs ? 1 : 0;
    }
    return waits;
}

TEST_F(SpeakerTrack, FirstWriteStartsBothTracksAndWatchdog)
{
    EXPECT_EQ(velto::DeviceState, -1);
    std::vector<int32_t> states;
    fakewin::Before(Call::GetModuleHandleExW, [&] { states.push_back(velto::DeviceState); });
    fakewin::Before(Call::CreateThread, [&] { states.push_back(velto::DeviceState); });
    EXPECT_EQ(Write("speaker1", EncodeTone(1)[0]), 0);
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_EQ(states, (std::vector<int32_t>{1, 0})) << "at the start of the first track and of the watchdog";
    EXPECT_TRUE(Eventually([this] { return audio.RegisteredCallbacks() == 2; })) << "one renderer per track";
    EXPECT_TRUE(Eventually([] { return IdleWaits() >= 1; }));
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 1) << "the watchdog";
    EXPECT_EQ(Write("ModemSpeaker1", EncodeTone(1)[0]), 0);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 1);
}

TEST_F(SpeakerTrack, OpensBothDecodersAt48000HzInStereo)
{
    std::vector<int> rates;
    std::vector<int> channels;
    for (const int decoder : {1, 2}) {
        const auto record = [&] {
            rates.push_back(fakeffmpeg::LastOpenedCodec().sampleRateHz);
            channels.push_back(fakeffmpeg::LastOpenedCodec().channels);
        };
        fakeffmpeg::Script().Before(fakeffmpeg::Call::avcodec_open2, record, decoder);
    }
    Start();
    EXPECT_EQ(rates, (std::vector<int>{48000, 48000}));
    EXPECT_EQ(channels, (std::vector<int>{2, 2}));
}

TEST_F(SpeakerTrack, LogsEveryFiftiethWriteToSingletonOnly)
{
    const auto counters = [] {
        std::vector<LogEntry> found;
        for (const LogEntry &entry : Log()) {
            if (entry.text.starts_with(L"VeltoWriteStream has received")) {
                found.push_back(entry);
            }
        }
        return found;
    };
    for (int i = 0; i < 50; ++i) {
        WriteUndecoded(1);
    }
    ASSERT_EQ(counters().size(), 1u);
    const unsigned long first = std::stoul(counters()[0].text.substr(29));
    EXPECT_EQ(first % 50, 1u) << "1, 51, 101, ...";
    for (int i = 0; i < 50; ++i) {
        table.WriteStreamBuffer(nullptr, 0, nullptr, nullptr); // invalid calls count as well
    }
    ASSERT_EQ(counters().size(), 2u);
    const std::wstring text = L"VeltoWriteStream has received" + std::to_wstring(first + 50) + L" frame";
    EXPECT_EQ(counters()[1], (LogEntry{3, text, writeTag, false}));
}

TEST_F(SpeakerTrack, DropsUnitSilentlyDuringInitialisation)
{
    int32_t second = -1;
    int signalled = -1;
    fakewin::Before(Call::GetModuleHandleExW, [&] {
        std::thread other([&] {
            second = Write("speaker1", EncodeTone(1)[0], 42);
            signalled = fakewin::Count(Call::SetEvent);
        });
        other.join();
    });
    EXPECT_EQ(Write("speaker1", EncodeTone(1)[0], 7), 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(signalled, 0) << "the dropped unit does not restart the idle timeout";
    EXPECT_EQ(StreamType(), 7u);
    EXPECT_EQ(CountOf(errorLevel, L"speaker id or data is null or invalid"), 0);
}

TEST_F(SpeakerTrack, InvalidIdStillStartsTracksAndRearmsWatchdog)
{
    uint8_t byte = 0;
    HostFrame record(&byte, 1, 1);
    EXPECT_EQ(table.WriteStreamBuffer(nullptr, 8, nullptr, &record.frame), -2000);
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_EQ(fakewin::Count(Call::SetEvent), 1);
    EXPECT_EQ(table.WriteStreamBuffer("speaker1", 7, nullptr, &record.frame), -2000);
    EXPECT_EQ(table.WriteStreamBuffer("speaker1", 9, nullptr, &record.frame), -2000);
    ExpectLine(errorLevel, L"speaker id or data is null or invalid", writeTag, 3);
    EXPECT_EQ(StreamType(), std::nullopt) << "an invalid call stores no stream type";
}

TEST_F(SpeakerTrack, RefusesAndLogsMissingFrameOrHeader)
{
    StreamFrame frame{};
    EXPECT_EQ(table.WriteStreamBuffer("speaker1", 8, nullptr, nullptr), -2000);
    EXPECT_EQ(table.WriteStreamBuffer("speaker1", 8, nullptr, &frame), -2000);
    ExpectLine(errorLevel, L"Data for audio play is null", writeTag, 2);
}

TEST_F(SpeakerTrack, ReadsButDoesNotRewriteUnchangedStreamType)
{
    WriteUndecoded(5);
    const int writes = fakewin::Count(Call::RegSetValueExW);
    EXPECT_EQ(writes, 1);
    const int reads = fakewin::Count(Call::RegQueryValueExW);
    WriteUndecoded(5);
    EXPECT_EQ(fakewin::Count(Call::RegSetValueExW), writes);
    EXPECT_EQ(fakewin::Count(Call::RegQueryValueExW), reads + 1);
    WriteUndecoded(6);
    EXPECT_EQ(fakewin::Count(Call::RegSetValueExW), writes + 1);
    EXPECT_EQ(StreamType(), 6u);
}

TEST_F(SpeakerTrack, OpensRegistryKeyWithAllAccess)
{
    WriteUndecoded(5);
    EXPECT_EQ(StreamType(), 5u);
    const std::vector<REGSAM> requested = fakewin::RequestedRegistryAccess();
    EXPECT_EQ(requested, std::vector<REGSAM>(requested.size(), REGSAM{0xF003F}));
    EXPECT_GE(requested.size(), 2u) << "a read that finds no key, and a write";
}

TEST_F(SpeakerTrack, WritesStreamTypeMinusOneWhenNoneIsStored)
{
    WriteUndecoded(-1);
    EXPECT_EQ(StreamType(), 4294967295u) << "without a stored value, every value is written";
}

TEST_F(SpeakerTrack, LogsFailedRegistryWriteAndAcceptsUnit)
{
    fakewin::Fail(Call::RegCreateKeyExW, ERROR_ACCESS_DENIED, 1, 1000);
    fakewin::Fail(Call::RegSetValueExW, ERROR_ACCESS_DENIED, 1, 1000);
    EXPECT_EQ(WriteUndecoded(5), 0);
    ExpectLine(errorLevel, L"Set streamType failed!", "`anonymous-namespace'::SetStreamType");
}

TEST_F(SpeakerTrack, CloseSendsEventThreeAndResetsStreamTypeUntilNextWrite)
{
    WriteUndecoded(5);
    EXPECT_EQ(table.CloseAudioTrack("speaker1", 8), 0);
    EXPECT_EQ(StreamType(), 4294967295u);
    ASSERT_EQ(sentEvents.size(), 1u);
    EXPECT_EQ(sentEvents[0], (SentEvent{"speaker1", 8, 3}));
    WriteUndecoded(5);
    EXPECT_EQ(StreamType(), 5u);
    EXPECT_EQ(velto::DeviceState, 0) << "closing does not stop the tracks";
}

TEST_F(SpeakerTrack, CloseSendsEventBeforeResettingStreamType)
{
    WriteUndecoded(5);
    std::optional<DWORD> seen;
    onEvent = [&] { seen = StreamType(); };
    EXPECT_EQ(table.CloseAudioTrack("ModemSpeaker1", 13), 0);
    EXPECT_EQ(seen, 5u);
    EXPECT_EQ(StreamType(), 4294967295u);
}

TEST_F(SpeakerTrack, CloseSendsEventForUnknownId)
{
    EXPECT_EQ(table.CloseAudioTrack("mic1", 4), 0);
    ASSERT_EQ(sentEvents.size(), 1u);
    EXPECT_EQ(sentEvents[0], (SentEvent{"mic1", 4, 3}));
}

TEST_F(SpeakerTrack, CloseRefusesAndLogsInvalidId)
{
    EXPECT_EQ(table.CloseAudioTrack(nullptr, 0), -2000);
    EXPECT_EQ(table.CloseAudioTrack("speaker1", 3), -2000);
    ExpectLine(errorLevel, L"speaker id is invalid", closeTag, 2);
    EXPECT_TRUE(sentEvents.empty());
}

TEST_F(SpeakerTrack, CloseSendsNothingWithoutListener)
{
    const AudioListener none{nullptr, nullptr};
    table.RegisterListener(&none);
    EXPECT_EQ(table.CloseAudioTrack("speaker1", 8), 0);
    EXPECT_TRUE(sentEvents.empty());
}

TEST_F(SpeakerTrack, SetParameterRefusesAndLogsInvalidIdOrList)
{
    const AudioProfileEntry entry{"channel", 7, 1};
    const AudioProfileList list{1, 0, &entry};
    const AudioProfileList none{0, 0, &entry};
    const AudioProfileList missing{1, 0, nullptr};
    EXPECT_EQ(table.SetAudioParameter(nullptr, 0, nullptr, nullptr, &list), -2000);
    EXPECT_EQ(table.SetAudioParameter("speaker1", 7, nullptr, nullptr, &list), -2000);
    ExpectLine(errorLevel, L"speaker id invalid", parameterTag, 2);
    EXPECT_EQ(table.SetAudioParameter("speaker1", 8, nullptr, nullptr, nullptr), -2000);
    EXPECT_EQ(table.SetAudioParameter("speaker1", 8, nullptr, nullptr, &none), -2000);
    EXPECT_EQ(table.SetAudioParameter("speaker1", 8, nullptr, nullptr, &missing), -2000);
    ExpectLine(errorLevel, L"Set Audio Parameter failed, profile is null", parameterTag, 3);
    EXPECT_TRUE(sentEvents.empty());
}

TEST_F(SpeakerTrack, SetParameterSendsEventFourForAnyValidId)
{
    const AudioProfileEntry entry{"channel", 7, 12};
    const AudioProfileList list{1, 0, &entry};
    EXPECT_EQ(table.SetAudioParameter("mic1", 4, nullptr, nullptr, &list), 0);
    ASSERT_EQ(sentEvents.size(), 1u);
    EXPECT_EQ(sentEvents[0], (SentEvent{"mic1", 4, 4}));
}

TEST_F(SpeakerTrack, StaysInitialisingWhenDecoderSetupFails)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_open2, -1);
    EXPECT_EQ(WriteUndecoded(1), 0) << "the write itself succeeds";
    ExpectLine(errorLevel, L"Init Audio Decode failed", initTag);
    EXPECT_EQ(velto::DeviceState, 1);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 0) << "no watchdog";
    ClearLog();
    EXPECT_EQ(WriteUndecoded(1), 0);
    EXPECT_EQ(table.WriteStreamBuffer(nullptr, 0, nullptr, nullptr), -2000);
    EXPECT_EQ(velto::DeviceState, 1);
    EXPECT_EQ(CountOf(errorLevel, L"Init Audio Decode failed"), 0) << "the setup is not retried";
}

TEST_F(SpeakerTrack, LogsDifferentLineWhenSecondDecoderSetupFails)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_open2, -1, 2);
    EXPECT_EQ(WriteUndecoded(1), 0);
    ExpectLine(errorLevel, L"Init modem Decodee failed", initTag);
    EXPECT_EQ(CountOf(errorLevel, L"Init Audio Decode failed"), 0);
    EXPECT_EQ(velto::DeviceState, 1);
}

TEST_F(SpeakerTrack, ReleasesAfterFourIdleMinutesAndRestartsOnNextWrite)
{
    WriteUndecoded(1);
    ASSERT_TRUE(fakewin::AwaitClockWaiters(1));
    fakewin::AdvanceClock(idleMs - 1);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(velto::DeviceState, 0);
    fakewin::AdvanceClock(1);
    ASSERT_TRUE(Eventually([] { return velto::DeviceState == -1; }));
    EXPECT_EQ(CountOf(infoLevel, idleLine), 1);
    for (const LogEntry &entry : Log()) {
        if (entry.text == idleLine) {
            EXPECT_TRUE(entry.tag.starts_with("`anonymous-namespace'::InitDefaultAudioDevice::"));
        }
    }
    EXPECT_EQ(fakewin::OpenApartments(), 0) << "both play threads left COM";
    SeparateEndpoints();
    Start();
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 2) << "a new watchdog";
}

// Both play threads run, although the speakers count as not initialised.
TEST_F(SpeakerTrack, StartsOnlyWatchdogWhenBothPlayThreadsRun)
{
    ForgetEndpoints();
    for (velto::AudioPlayThread *thread : {mediaThread, callThread}) {
        thread->isRunning = 1;
        ASSERT_TRUE(thread->StartPlayThread());
        ASSERT_TRUE(Eventually([thread] { return thread->threadStarted.load(); }));
    }
    EXPECT_EQ(velto::DeviceState, -1);
    int32_t state = -1;
    fakewin::Before(Call::CreateThread, [&] { state = velto::DeviceState; });
    EXPECT_EQ(WriteUndecoded(1), 0);
    EXPECT_EQ(state, 0);
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 1);
    EXPECT_EQ(fakewin::ApartmentModels().size(), 2u) << "no third renderer was opened";
    EXPECT_EQ(fakeffmpeg::Script().Count(fakeffmpeg::Call::avformat_alloc_context), 0) << "no decoder";
}

TEST_F(SpeakerTrack, ReleasesMediaBeforeCallInStateTwo)
{
    Start();
    std::vector<int32_t> states;
    int stoppedBefore = -1; // the endpoint whose client was stopped first
    audio.Before(fakes::Method::Stop, [&] { states.push_back(velto::DeviceState); });
    audio.Before(
        fakes::Method::Stop,
        [&] {
            states.push_back(velto::DeviceState);
            for (const fakes::ClientRecord &client : audio.Clients()) {
                stoppedBefore = client.stops == 0 ? stoppedBefore : client.endpoint == mediaEndpoint ? 1 : 0;
            }
        },
        2);
    Release();
    EXPECT_EQ(states, (std::vector<int32_t>{2, 2}));
    EXPECT_EQ(stoppedBefore, 1);
    EXPECT_EQ(velto::DeviceState, -1);
}

TEST_F(SpeakerTrack, RestartsIdleTimeoutOnEveryWrite)
{
    WriteUndecoded(1);
    ASSERT_TRUE(fakewin::AwaitClockWaiters(1));
    for (int i = 2; i <= 4; ++i) {
        fakewin::AdvanceClock(idleMs - 1);
        table.WriteStreamBuffer(nullptr, 0, nullptr, nullptr); // a refused write counts, too
        ASSERT_TRUE(fakewin::AwaitClockWaiters(1)) << i;
        EXPECT_EQ(velto::DeviceState, 0);
        EXPECT_EQ(fakewin::Count(Call::ResetEvent), 1 + IdleWaits()) << "by the entry, and before each wait";
    }
    EXPECT_EQ(CountOf(infoLevel, idleLine), 0);
}

// Both play threads count as started, so the watchdog is the only thread that sleeps.
TEST_F(SpeakerTrack, WatchdogRecreatesMissingEventAndSleepsAfterEachFailure)
{
    ForgetEndpoints();
    constexpr int failures = 20;
    fakewin::Fail(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY, 1, failures);
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    EXPECT_EQ(velto::IdleEvent, nullptr);
    mediaThread->threadStarted = true;
    callThread->threadStarted = true;
    WriteUndecoded(1);
    ASSERT_TRUE(fakewin::AwaitClockWaiters(1));
    EXPECT_NE(velto::IdleEvent, nullptr);
    EXPECT_EQ(fakewin::Count(Call::CreateEventW), 1 + failures + 1) << "the first by the fixture";
    const fakewin::EventRecord created = fakewin::CreatedEvents().back();
    EXPECT_EQ(created.handle, velto::IdleEvent);
    EXPECT_FALSE(created.manualReset);
    EXPECT_FALSE(created.initialState);
    EXPECT_TRUE(created.plain);
    const std::vector<fakewin::WaitRecord> sleeps(failures - 1, {Call::Sleep, nullptr, 1});
    std::vector<fakewin::WaitRecord> slept = fakewin::Waits();
    std::erase_if(slept, [](const fakewin::WaitRecord &wait) { return wait.call != Call::Sleep; });
    EXPECT_EQ(slept, sleeps) << "one for each failure but that of the entry";
    Release();
}

TEST_F(SpeakerTrack, IdleReleaseKeepsRegistryValue)
{
    WriteUndecoded(8);
    Release();
    EXPECT_EQ(StreamType(), 8u);
}

TEST_F(SpeakerTrack, ReferencesModuleWhileAnyThreadRuns)
{
    WriteUndecoded(1);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 3) << "two play threads and the watchdog";
    Release();
    EXPECT_TRUE(Eventually([] { return fakewin::ModuleReferences(fakewin::ThisModule()) == 0; }));
    EXPECT_EQ(fakewin::Count(Call::FreeLibraryAndExitThread), 1) << "by the watchdog";
}

TEST_F(SpeakerTrack, WriteFailsOnceWhenWatchdogCannotStart)
{
    fakewin::Fail(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(WriteUndecoded(1), -2000) << "no exception reaches the host";
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 2) << "only those of the play threads";
    const int threads = fakewin::Count(Call::CreateThread);
    EXPECT_EQ(WriteUndecoded(2), 0) << "later writes succeed";
    EXPECT_EQ(StreamType(), 2u);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), threads) << "the watchdog is not retried";
    StopWithoutWatchdog();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0);
}

// The tracks start one after the other. Each start begins with a module reference on this thread; the
// renderer of the first track takes another one on its thread.
TEST_F(SpeakerTrack, WriteFailsOnceAndKeepsNoReferenceWhenPlayThreadCannotStart)
{
    const auto self = std::this_thread::get_id();
    for (const int track : {1, 2}) {
        ForgetEndpoints();
        SeparateEndpoints();
        std::optional<FailingThrowingNew> noMemory;
        int starts = 0;
        for (const int nth : {1, 2, 3}) {
            fakewin::Before(
                Call::GetModuleHandleExW,
                [&] {
                    if (std::this_thread::get_id() == self && ++starts == track) {
                        noMemory.emplace(1);
                    }
                },
                nth);
        }
        EXPECT_EQ(WriteUndecoded(1), -2000) << "no exception reaches the host";
        ASSERT_TRUE(noMemory.has_value());
        EXPECT_TRUE(noMemory->HasFailed());
        noMemory.reset();
        EXPECT_EQ(velto::DeviceState, 1);
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), track - 1)
            << "only that of the track that started before";
        EXPECT_EQ(WriteUndecoded(2), 0);
        EXPECT_EQ(StreamType(), 2u);
        EXPECT_EQ(starts, track) << "the setup is not retried";
        EXPECT_EQ(velto::DeviceState, 1);
        StopWithoutWatchdog();
        fakewin::ClearFaults();
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0);
    }
}

TEST_F(SpeakerTrack, WriteReturnsZeroWhenAnyAllocationFails)
{
    AacUnit payload = EncodeTone(2)[1];
    HostFrame record(payload, 1);
    const auto write = [&] { return table.WriteStreamBuffer("speaker1", 8, nullptr, &record.frame); };
    ASSERT_EQ(write(), 0); // includes the first allocations of the fakes
    ASSERT_EQ(write(), 0);
    int allocations = 0;
    for (bool hasFailed = true; hasFailed;) {
        const FailingThrowingNew noMemory(allocations + 1);
        EXPECT_EQ(write(), 0) << "allocation " << allocations + 1;
        hasFailed = noMemory.HasFailed();
        allocations += hasFailed ? 1 : 0;
    }
    // The queue allocates once in about 64 blocks, so 150 writes include such a write. Its number depends on
    // the counted write, which may have included allocations that are as rare.
    ClearLog();
    const auto dropped = [] { return CountOf(errorLevel, L"no memory to queue a block, dropped"); };
    for (int nth = allocations + 1; nth >= 1 && dropped() == 0; --nth) {
        for (int i = 0; i < 150; ++i) {
            const FailingThrowingNew noMemory(nth);
            EXPECT_EQ(write(), 0);
        }
    }
    EXPECT_GT(dropped(), 0);
}

// The watchdog releases the speakers while a unit is still being decoded, and another thread writes the first
// unit after the release.
TEST_F(SpeakerTrack, SetsUpDecoderOnlyAfterUnitOfEarlierRunWasDecoded)
{
    Start();
    ForgetEndpoints();
    std::atomic<bool> decoding{false};
    std::atomic<bool> setUpWhileDecoding{false};
    fakeffmpeg::Script().Before(fakeffmpeg::Call::avformat_alloc_context,
                                [&] { setUpWhileDecoding = decoding.load(); });
    std::thread other;
    // The renderers convert, too, but have no sound yet.
    fakeffmpeg::Script().Before(fakeffmpeg::Call::swr_convert, [&] {
        decoding = true;
        Release();
        other = std::thread([this] { EXPECT_EQ(WriteUndecoded(2), 0); });
        EXPECT_TRUE(Eventually([this] { return mediaThread->threadStarted.load(); }));
        // Without the lock, the other thread sets up the decoder now.
        for (int wait = 0; wait < 200 && !setUpWhileDecoding; ++wait) {
            std::this_thread::sleep_for(1ms);
        }
        decoding = false;
    });
    EXPECT_EQ(Write("speaker1", EncodeTone(1)[0]), 0);
    ASSERT_TRUE(other.joinable());
    other.join();
    EXPECT_FALSE(setUpWhileDecoding);
    EXPECT_EQ(velto::DeviceState, 0);
}

// ThreadSanitizer reports a race of the open flags.
TEST_F(SpeakerTrack, AcceptsClosesDuringWritesOnBothSpeakers)
{
    Start();
    ForgetEndpoints();
    const AacUnit unit = EncodeTone(1)[0];
    RunOnThreads(4, [&](int thread) {
        const char *id = thread < 2 ? "speaker1" : "ModemSpeaker1";
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(thread % 2 == 0 ? Write(id, unit) : Close(id), 0);
        }
    });
}

TEST_F(SpeakerTrack, AcceptsConcurrentWritesOnBothSpeakers)
{
    const auto units = EncodeTone(40);
    std::atomic<int> failures{0};
    RunOnThreads(4, [&](int writer) {
        for (const AacUnit &unit : units) {
            failures += Write(writer % 2 == 0 ? "speaker1" : "ModemSpeaker1", unit) == 0 ? 0 : 1;
        }
    });
    EXPECT_EQ(failures, 0);
}

} // namespace
