// The speaker direction behind the host's table: starting, writing, closing and the idle release.
#include "handler/speaker_track.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "aac_units.h"
#include "failing_throwing_new.h"
#include "handler/listener.h"
#include "host_calls.h"
#include "log_lines.h"
#include "reset.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"
#include "tests/platform/threads.h"
#include "velto/audio_handler.h"

namespace {

using namespace std::chrono_literals;
using fakes::Eventually;
using fakewin::Call;
using namespace velto_test;

constexpr char writeTag[] = "`anonymous-namespace'::VeltoWriteStreamBuffer";
constexpr char closeTag[] = "`anonymous-namespace'::VeltoCloseAudioTrack";
constexpr char parameterTag[] = "`anonymous-namespace'::VeltoSetAudioParameter";
constexpr char initTag[] = "`anonymous-namespace'::InitDefaultAudioDevice";
constexpr wchar_t idleLine[] = L"No audio data for 4mins, release audio resource.";

struct SentEvent {
    std::string id;
    uint32_t idLength;
    int32_t code;
    bool operator==(const SentEvent &) const = default;
};
std::vector<SentEvent> sentEvents;

void RecordEvent(const char *id, uint32_t idLength, int32_t code)
{
    sentEvents.push_back({id, idLength, code});
}

int IdleWaits()
{
    int waits = 0;
    for (const auto &wait : fakewin::Waits()) {
        waits += wait.waitMs == idleMs ? 1 : 0;
    }
    return waits;
}

class SpeakerTrack : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::ResetAll();
        fakewin::SetClassFactory(nullptr); // the renderers find no endpoints
        sentEvents.clear();
        ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
        const AudioListener listener{RecordEvent, nullptr};
        ASSERT_EQ(table.RegisterListener(&listener), 0);
    }

    void TearDown() override
    {
        if (velto::DeviceState == velto::DEVICE_READY) {
            Release();
        } else if (velto::DeviceState != velto::DEVICE_NOT_INITIALISED) {
            velto::StopSpeakerTracks();
            velto::DeviceState = velto::DEVICE_NOT_INITIALISED;
        }
        const AudioListener none{nullptr, nullptr};
        table.RegisterListener(&none);
    }

    // Advances the clock until the watchdog has released the speakers.
    void Release()
    {
        // Advances repeatedly, because the watchdog may not have reached its next wait yet.
        ASSERT_TRUE(Eventually([] {
            fakewin::AdvanceClock(idleMs);
            std::this_thread::sleep_for(1ms);
            return velto::DeviceState == velto::DEVICE_NOT_INITIALISED;
        }));
    }

    int32_t Write(const char *id, AacUnit unit, int32_t streamType = 3)
    {
        HostFrame record(unit, streamType);
        return table.WriteStreamBuffer(id, Length(id), nullptr, &record.frame);
    }

    // Stores the stream type in the registry but decodes nothing.
    int32_t WriteUndecoded(int32_t streamType) { return Write("mic1", AacUnit{0}, streamType); }

    static std::optional<DWORD> StreamType()
    {
        return fakewin::RegistryDword(HKEY_CURRENT_USER, L"SOFTWARE\\NORVEL\\NRAudio\\NrMirror",
                                      L"StreamType");
    }

    AudioHandlerTable table{};
};

TEST_F(SpeakerTrack, FirstWriteStartsBothTracksAndWatchdog)
{
    EXPECT_EQ(velto::DeviceState, -1);
    EXPECT_EQ(Write("speaker1", EncodeTone(1)[0]), 0);
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_TRUE(Eventually([] { return fakewin::ApartmentModels().size() >= 2; }))
        << "one renderer per track";
    EXPECT_TRUE(Eventually([] { return IdleWaits() >= 1; }));
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 1) << "the watchdog";
    EXPECT_EQ(Write("ModemSpeaker1", EncodeTone(1)[0]), 0);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 1);
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

TEST_F(SpeakerTrack, StoresStreamTypeButDecodesNothingForMicrophoneId)
{
    EXPECT_EQ(Write("mic1", AacUnit{0}, 9), 0);
    EXPECT_EQ(StreamType(), 9u);
    EXPECT_EQ(CountOf(errorLevel, L"AUDIO decode error:-22"), 0);
    EXPECT_EQ(Write("SPEAKER1", AacUnit{}, 9), 0) << "ids are case-sensitive";
}

TEST_F(SpeakerTrack, DecodesForBothSpeakers)
{
    const AudioProfileEntry entry{"format", 6, 1};
    const AudioProfileList list{1, 0, &entry};
    for (const char *id : {"speaker1", "ModemSpeaker1"}) {
        // Re-arms the cushion, which earlier tests may have filled.
        ASSERT_EQ(table.SetAudioParameter(id, Length(id), nullptr, nullptr, &list), 0);
        ClearLog();
        for (const AacUnit &unit : EncodeTone(5)) {
            EXPECT_EQ(Write(id, unit), 0);
        }
        ExpectLine(infoLevel, L"needDelay. push all delay buffer queue",
                   "velto::AudioPlayThread::PushBuffer");
    }
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
    static std::optional<DWORD> seen;
    const AudioListener listener{[](const char *, uint32_t, int32_t) { seen = StreamType(); }, nullptr};
    table.RegisterListener(&listener);
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

TEST_F(SpeakerTrack, SetParameterRearmsCushionOfNamedSpeakerOnly)
{
    const auto units = EncodeTone(5);
    for (const char *id : {"speaker1", "ModemSpeaker1"}) {
        for (const AacUnit &unit : units) {
            Write(id, unit);
        }
    }
    ClearLog();
    const AudioProfileEntry entry{"format", 6, 1};
    const AudioProfileList list{1, 0, &entry};
    ASSERT_EQ(table.SetAudioParameter("ModemSpeaker1", 13, nullptr, nullptr, &list), 0);
    for (const AacUnit &unit : units) {
        Write("speaker1", unit);
    }
    EXPECT_EQ(CountOf(infoLevel, L"needDelay. push all delay buffer queue"), 0);
    for (const AacUnit &unit : units) {
        Write("ModemSpeaker1", unit);
    }
    EXPECT_EQ(CountOf(infoLevel, L"needDelay. push all delay buffer queue"), 1);
}

TEST_F(SpeakerTrack, StaysInitialisingWhenDecoderSetupFails)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -1);
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
    // Renderers and decoders both call swr_init. The decoders call it on this thread.
    const auto self = std::this_thread::get_id();
    int decoders = 0;
    for (int i = 1; i <= 4; ++i) {
        fakeffmpeg::Script().Before(
            fakeffmpeg::Call::swr_init,
            [&, self] {
                if (std::this_thread::get_id() == self && ++decoders == 1) {
                    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -1, 1, 100);
                }
            },
            i);
    }
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
    EXPECT_TRUE(Eventually([] { return fakewin::OpenApartments() == 0; })) << "both play threads leave COM";
    WriteUndecoded(1);
    EXPECT_EQ(velto::DeviceState, 0);
    EXPECT_EQ(fakewin::Count(Call::CreateThread), 2) << "a new watchdog";
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
    }
    EXPECT_EQ(CountOf(infoLevel, idleLine), 0);
}

TEST_F(SpeakerTrack, WatchdogRecreatesMissingEventWithoutSpinning)
{
    fakewin::Fail(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY, 1, 20);
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    EXPECT_EQ(velto::IdleEvent, nullptr);
    WriteUndecoded(1);
    ASSERT_TRUE(Eventually([] { return IdleWaits() > 15 && velto::IdleEvent != nullptr; }));
    EXPECT_GE(fakewin::Count(Call::Sleep), 15) << "a sleep after each failed wait";
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
    velto::StopSpeakerTracks();
    velto::DeviceState = velto::DEVICE_NOT_INITIALISED;
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0);
}

// The tracks start one after the other. Each start begins with a module reference.
TEST_F(SpeakerTrack, WriteFailsOnceAndKeepsNoReferenceWhenPlayThreadCannotStart)
{
    for (const int track : {1, 2}) {
        std::optional<FailingThrowingNew> noMemory;
        fakewin::Before(
            Call::GetModuleHandleExW, [&] { noMemory.emplace(1); }, track);
        EXPECT_EQ(WriteUndecoded(1), -2000) << "no exception reaches the host";
        ASSERT_TRUE(noMemory.has_value());
        EXPECT_TRUE(noMemory->HasFailed());
        noMemory.reset();
        EXPECT_EQ(velto::DeviceState, 1);
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), track - 1)
            << "only that of the track that started before";
        const int starts = fakewin::Count(Call::GetModuleHandleExW);
        EXPECT_EQ(WriteUndecoded(2), 0);
        EXPECT_EQ(StreamType(), 2u);
        EXPECT_EQ(fakewin::Count(Call::GetModuleHandleExW), starts) << "the setup is not retried";
        EXPECT_EQ(velto::DeviceState, 1);
        velto::StopSpeakerTracks();
        velto::DeviceState = velto::DEVICE_NOT_INITIALISED;
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
    // The queue allocates once in about 64 blocks. If the counted write did not include this allocation, it
    // is the next one, so both numbers are tried.
    ClearLog();
    for (const int nth : {allocations, allocations + 1}) {
        for (int i = 0; i < 150; ++i) {
            const FailingThrowingNew noMemory(nth);
            EXPECT_EQ(write(), 0);
        }
    }
    EXPECT_GT(CountOf(errorLevel, L"no memory to queue a block, dropped"), 0);
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
