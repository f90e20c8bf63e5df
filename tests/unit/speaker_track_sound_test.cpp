// The speakers from the host's writes to the sound at their endpoints.
#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "play_thread_probe.h"
#include "recording_player.h"
#include "speaker_track_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace velto_test;
using fakes::Method;
using velto::AudioPlayThreadProbe;

class SpeakerTrackSound : public SpeakerTrack {
protected:
    // Writes units to one speaker, each after the sound of the one before has reached the endpoint.
    void Play(const char *id, const wchar_t *endpoint, const std::vector<AacUnit> &units)
    {
        size_t played = Blocks(endpoint);
        for (const AacUnit &unit : units) {
            EXPECT_EQ(Write(id, unit), VELTO_OK);
            ASSERT_TRUE(AwaitBlocks(endpoint, ++played));
        }
    }

    // Writes the units that fill an armed cushion, and waits until all of them were played.
    void PlayFirst(const char *id, const wchar_t *endpoint, const std::vector<AacUnit> &units)
    {
        const size_t played = Blocks(endpoint);
        for (const AacUnit &unit : units) {
            EXPECT_EQ(Write(id, unit), VELTO_OK);
        }
        ASSERT_TRUE(AwaitBlocks(endpoint, played + units.size()));
    }

    static std::vector<AacUnit> Part(const std::vector<AacUnit> &units, size_t first, size_t end)
    {
        return {units.begin() + static_cast<std::ptrdiff_t>(first),
                units.begin() + static_cast<std::ptrdiff_t>(end)};
    }

    const std::vector<AacUnit> media = EncodeSweep(30, 300);
    const std::vector<AacUnit> call = EncodeSweep(30, 2000);
};

TEST_F(SpeakerTrackSound, PlaysUnitsOfEachSpeakerOnItsOwnTrack)
{
    for (size_t i = 0; i < media.size(); ++i) {
        EXPECT_EQ(Write("speaker1", media[i]), VELTO_OK);
        EXPECT_EQ(Write("ModemSpeaker1", call[i]), VELTO_OK);
        if (i + 1 >= cushionBlocks) { // later units wait for earlier ones, so no queue overflows
            ASSERT_TRUE(AwaitBlocks(mediaEndpoint, i + 1));
            ASSERT_TRUE(AwaitBlocks(callEndpoint, i + 1));
        }
    }
    ExpectSound(mediaEndpoint, media);
    ExpectSound(callEndpoint, call);
    EXPECT_EQ(CountOf(errorLevel), 0) << ::testing::PrintToString(Log());
}

TEST_F(SpeakerTrackSound, StoresStreamTypeButPlaysNothingForOtherIds)
{
    PlayFirst("speaker1", mediaEndpoint, Part(media, 0, cushionBlocks));
    PlayFirst("ModemSpeaker1", callEndpoint, Part(call, 0, cushionBlocks));
    int32_t streamType = 100;
    for (const char *id : {"mic1", "ModemMic1", "SPEAKER1", "speaker", "speaker11", "modemSpeaker1", ""}) {
        for (const AacUnit &unit : Part(call, 10, 20)) {
            EXPECT_EQ(Write(id, unit, ++streamType), VELTO_OK) << id;
        }
        EXPECT_EQ(StreamType(), static_cast<DWORD>(streamType)) << id;
    }
    // Blocks are played in order, so these arrive after all blocks of the other ids.
    Play("speaker1", mediaEndpoint, Part(media, cushionBlocks, 10));
    Play("ModemSpeaker1", callEndpoint, Part(call, cushionBlocks, 10));
    ExpectSound(mediaEndpoint, Part(media, 0, 10));
    ExpectSound(callEndpoint, Part(call, 0, 10));
}

TEST_F(SpeakerTrackSound, DelaysFourUnitsAfterParameterCallForNamedSpeaker)
{
    PlayFirst("speaker1", mediaEndpoint, Part(media, 0, cushionBlocks));
    PlayFirst("ModemSpeaker1", callEndpoint, Part(call, 0, cushionBlocks));
    ClearLog();
    ASSERT_EQ(SetParameters("ModemSpeaker1", {{"format", 6, 1}}), VELTO_OK);
    for (size_t i = 5; i < 9; ++i) {
        EXPECT_EQ(Write("ModemSpeaker1", call[i]), VELTO_OK);
    }
    Play("speaker1", mediaEndpoint, Part(media, 5, 9));
    EXPECT_EQ(AudioPlayThreadProbe(*callThread).DelayQueue().size(), 4u);
    EXPECT_EQ(Blocks(callEndpoint), 5u);
    EXPECT_EQ(CountOf(infoLevel, L"needDelay. push all delay buffer queue"), 0);
    EXPECT_EQ(Write("ModemSpeaker1", call[9]), VELTO_OK);
    ASSERT_TRUE(AwaitBlocks(callEndpoint, 10));
    EXPECT_EQ(CountOf(infoLevel, L"needDelay. push all delay buffer queue"), 1);
    ExpectSound(callEndpoint, Part(call, 0, 10));
}

TEST_F(SpeakerTrackSound, PlaysQueuedUnitsAfterClose)
{
    for (const AacUnit &unit : Part(media, 0, 10)) {
        EXPECT_EQ(Write("speaker1", unit), VELTO_OK);
    }
    EXPECT_EQ(Close("speaker1"), VELTO_OK);
    ASSERT_TRUE(AwaitBlocks(mediaEndpoint, 10));
    Play("speaker1", mediaEndpoint, Part(media, 10, 12));
    ExpectSound(mediaEndpoint, Part(media, 0, 12));
}

// The watchdog stops the threads one after the other. A unit that is written meanwhile is decoded, and is the
// first to be played after the next start.
TEST_F(SpeakerTrackSound, KeepsUnitWrittenDuringReleaseForNextStart)
{
    PlayFirst("speaker1", mediaEndpoint, Part(media, 0, cushionBlocks));
    int32_t state = 0;
    audio.Before(Method::Stop, [&] {
        std::thread([&] { EXPECT_EQ(Write("speaker1", media[cushionBlocks]), VELTO_OK); }).join();
        state = velto::DeviceState;
    });
    Release();
    EXPECT_EQ(state, velto::DEVICE_RELEASING) << "the write started nothing";
    EXPECT_EQ(Blocks(mediaEndpoint), cushionBlocks);
    SeparateEndpoints();
    Start();
    ASSERT_TRUE(AwaitBlocks(mediaEndpoint, cushionBlocks + 1));
    ExpectSound(mediaEndpoint, Part(media, 0, cushionBlocks + 1));
}

TEST_F(SpeakerTrackSound, IsSilentAfterParameterCallWithRateOfZeroUntilNextStartWithValidRate)
{
    PlayFirst("speaker1", mediaEndpoint, Part(media, 0, cushionBlocks));
    ASSERT_EQ(SetParameters("mic1", {{"sampleRate", 10, 0}}), VELTO_OK);
    Play("speaker1", mediaEndpoint, Part(media, cushionBlocks, 10));
    ExpectSound(mediaEndpoint, Part(media, 0, 10)); // an open renderer is not reopened
    Release();

    const size_t clients = audio.Clients().size();
    EXPECT_EQ(WriteUndecoded(1), VELTO_OK);
    ASSERT_TRUE(Eventually([this] { return mediaThread->threadStarted && callThread->threadStarted; }));
    EXPECT_EQ(audio.Clients().size(), clients);
    Release();

    ASSERT_EQ(SetParameters("mic1", {{"format", 6, 1}}), VELTO_OK); // the rate returns to its default
    SeparateEndpoints();
    Start();
    EXPECT_EQ(audio.Clients().size(), clients + 2);
}

// --- The listener ------------------------------------------------------------------------------

class SpeakerListener : public SpeakerTrackSound {
protected:
    // Calls the functions that lock the speakers' mutexes.
    void CallTable()
    {
        for (const char *id : {"speaker1", "ModemSpeaker1"}) {
            EXPECT_EQ(Write(id, media[0]), VELTO_OK);
            EXPECT_EQ(SetParameters(id, {{"format", 6, 1}}), VELTO_OK);
            EXPECT_EQ(Close(id), VELTO_OK);
        }
    }

    // Makes the listener call the table, first from another thread: if `send` has locked a mutex, that
    // thread waits for it, and the listener returns after ten seconds instead of waiting for itself.
    void ExpectListenerMayCallTable(const std::function<int32_t()> &send)
    {
        std::promise<void> finished;
        std::future<void> otherFinished = finished.get_future();
        std::thread other;
        bool returned = false;
        onEvent = [&] {
            other = std::thread([&] {
                CallTable();
                finished.set_value();
            });
            returned = otherFinished.wait_for(10s) == std::future_status::ready;
            if (returned) {
                CallTable();
            }
        };
        EXPECT_EQ(send(), VELTO_OK);
        ASSERT_TRUE(other.joinable()) << "no event";
        other.join();
        EXPECT_TRUE(returned) << "the event was sent while a mutex was locked";
    }
};

TEST_F(SpeakerListener, RunsOnCallersThreadBeforeCallReturns)
{
    for (const std::function<int32_t()> &send :
         {std::function<int32_t()>([&] { return Close("speaker1"); }), std::function<int32_t()>([&] {
              return SetParameters("speaker1", {{"format", 6, 1}});
          })}) {
        std::thread::id thread;
        onEvent = [&] { thread = std::this_thread::get_id(); };
        EXPECT_EQ(send(), VELTO_OK);
        EXPECT_EQ(thread, std::this_thread::get_id());
    }
}

TEST_F(SpeakerListener, MayCallTableDuringCloseEvent)
{
    Start();
    for (const char *id : {"speaker1", "ModemSpeaker1", "mic1"}) {
        ExpectListenerMayCallTable([&] { return Close(id); });
    }
}

TEST_F(SpeakerListener, MayCallTableDuringParameterEvent)
{
    Start();
    for (const char *id : {"speaker1", "ModemSpeaker1", "mic1"}) {
        ExpectListenerMayCallTable([&] { return SetParameters(id, {{"format", 6, 1}}); });
    }
}

// --- Between the tracks and their renderers -----------------------------------------------------

// Both play threads have renderers that record their calls, in one record.
class SpeakerRenderers : public SpeakerTrack {
protected:
    SpeakerRenderers()
    {
        ForgetEndpoints();
        m_media = AudioPlayThreadProbe(*mediaThread)
                      .ReplacePlayer(std::make_unique<RecordingPlayer>(record, "media: "));
        m_call = AudioPlayThreadProbe(*callThread)
                     .ReplacePlayer(std::make_unique<RecordingPlayer>(record, "call: "));
    }

    ~SpeakerRenderers() override
    {
        if (velto::DeviceState == velto::DEVICE_READY) {
            Release();
        }
        AudioPlayThreadProbe(*mediaThread).ReplacePlayer(std::move(m_media));
        AudioPlayThreadProbe(*callThread).ReplacePlayer(std::move(m_call));
    }

    void StartThreads()
    {
        EXPECT_EQ(WriteUndecoded(1), VELTO_OK);
        ASSERT_TRUE(Eventually([this] { return mediaThread->threadStarted && callThread->threadStarted; }));
    }

    int CountCalls(const std::string &call)
    {
        const std::vector<std::string> calls = record.Calls();
        return static_cast<int>(std::count(calls.begin(), calls.end(), call));
    }

    RecordingPlayer::Record record;

private:
    std::unique_ptr<velto::IAudioPlayer> m_media;
    std::unique_ptr<velto::IAudioPlayer> m_call;
};

TEST_F(SpeakerRenderers, ReceiveBroadcastFlagMediaFirst)
{
    callThread->OnBroadcastFlag(true);
    EXPECT_EQ(record.Calls(),
              (std::vector<std::string>{"media: SetBroadcastFlag true", "call: SetBroadcastFlag true"}));
    record.calls.clear();
    mediaThread->OnBroadcastFlag(false);
    EXPECT_EQ(record.Calls(),
              (std::vector<std::string>{"media: SetBroadcastFlag false", "call: SetBroadcastFlag false"}));
}

TEST_F(SpeakerRenderers, ReceiveBroadcastFlagWithoutOtherRenderer)
{
    const auto renderer = AudioPlayThreadProbe(*mediaThread).ReplacePlayer(nullptr);
    callThread->OnBroadcastFlag(true);
    EXPECT_EQ(record.Calls(), std::vector<std::string>{"call: SetBroadcastFlag true"});
}

TEST_F(SpeakerRenderers, OpenWithLatestParametersOfAnyId)
{
    ASSERT_EQ(SetParameters("speaker1", {{"sampleRate", 10, 44100}, {"channel", 7, 1}, {"format", 6, 3}}), 0);
    StartThreads();
    EXPECT_EQ(CountCalls("media: Open 32 1 44100"), 1);
    EXPECT_EQ(CountCalls("call: Open 32 1 44100"), 1);

    ASSERT_EQ(SetParameters("mic1", {{"sampleRate", 10, 22050}}), 0);
    EXPECT_EQ(CountCalls("media: Open 16 2 22050"), 0) << "an open renderer is not reopened";
    Release();
    StartThreads();
    EXPECT_EQ(CountCalls("media: Open 16 2 22050"), 1);
    EXPECT_EQ(CountCalls("call: Open 16 2 22050"), 1);
    ASSERT_EQ(SetParameters("mic1", {{"format", 6, 1}}), 0);
    const velto::SpeakerAudioParams &parameters = AudioPlayThreadProbe(*callThread).Parameters();
    EXPECT_EQ(parameters.sampleRate, 48000u) << "a key that the list omits returns to its default";
    EXPECT_EQ(&parameters, &AudioPlayThreadProbe(*mediaThread).Parameters());
}

} // namespace
