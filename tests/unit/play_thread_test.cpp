// The queue between a decoder and a renderer, and the thread that plays it.
#include "play_thread_fixture.h"
#include "tests/fakes/failing_new.h"

namespace {

using namespace velto_test;
using fakewin::Call;
using velto::AudioPlayBuffer;
using velto::AudioPlayThread;
using velto::AudioPlayThreadProbe;

TEST_F(PlayThread, ConstructionStartsNothing)
{
    EXPECT_FALSE(thread->threadStarted);
    EXPECT_EQ(thread->isRunning, 1);
    EXPECT_EQ(thread->threadExited, 0);
    EXPECT_TRUE(thread->needDelay);
    EXPECT_TRUE(probe.PlayQueue().empty());
    EXPECT_TRUE(probe.DelayQueue().empty());
    EXPECT_EQ(probe.Player(), nullptr);
    EXPECT_FALSE(probe.Joinable());
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

// --- The cushion -----------------------------------------------------------------------------

TEST_F(PlayThread, DelaysFirstFourBlocksAndReleasesAllOnFifth)
{
    Push(1, 4);
    EXPECT_EQ(Contents(probe.DelayQueue()), Range(1, 4));
    EXPECT_TRUE(probe.PlayQueue().empty());
    EXPECT_TRUE(thread->needDelay);
    EXPECT_EQ(CushionLines(), 0);
    Push(5, 5);
    EXPECT_TRUE(probe.DelayQueue().empty());
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(1, 5));
    EXPECT_FALSE(thread->needDelay);
    EXPECT_EQ(CushionLines(), 1);
}

TEST_F(PlayThread, QueuesBlocksDirectlyAfterFifth)
{
    Push(1, 7);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(1, 7));
    EXPECT_EQ(CushionLines(), 1);
}

TEST_F(PlayThread, DelaysNextFourBlocksWhenCushionIsRearmed)
{
    Push(1, 6);
    thread->needDelay = true;
    Push(7, 10);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(1, 6));
    Push(11, 11);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(1, 11));
    EXPECT_EQ(CushionLines(), 2);
}

TEST_F(PlayThread, ReleasesWholeDelayQueueOfMoreThanFiveBlocks)
{
    for (int value = 1; value <= 7; ++value) {
        probe.DelayQueue().push_back(MakeBuffer(static_cast<uint8_t>(value)));
    }
    Push(8, 8);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(1, 8));
}

// --- The queue -------------------------------------------------------------------------------

TEST_F(PlayThread, DropsOldestBlockSilentlyAboveTwenty)
{
    Push(1, 20);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(1, 20));
    Push(21, 21);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(2, 21));
    Push(22, 100);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(81, 100));
    EXPECT_EQ(Log().size(), 1u) << "the cushion's line";
}

TEST_F(PlayThread, DropsOnlyOldestBlockWhenQueueIsOverfull)
{
    for (int value = 1; value <= 25; ++value) {
        probe.PlayQueue().push_back(MakeBuffer(static_cast<uint8_t>(value)));
    }
    thread->needDelay = false;
    Push(26, 26);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(2, 26));
}

TEST_F(PlayThread, DropsNullAndEmptyBlocksWhenQueueIsFull)
{
    thread->needDelay = false;
    probe.PlayQueue().push_back(nullptr);
    probe.PlayQueue().push_back(new AudioPlayBuffer);
    Push(3, 20);
    EXPECT_EQ(probe.PlayQueue().size(), 20u);
    Push(21, 22);
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(3, 22));
}

// --- One pass --------------------------------------------------------------------------------

TEST_F(PlayThread, PlaysAndFreesOldestBlockPerPass)
{
    UseRecordingPlayer();
    Push(1, 5);
    probe.PlayNext();
    EXPECT_EQ(record.Played(), std::vector<int>{1});
    EXPECT_EQ(record.sizes, std::vector<int64_t>{4});
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(2, 5));
}

TEST_F(PlayThread, PlaysNothingFromEmptyQueue)
{
    UseRecordingPlayer();
    probe.PlayNext();
    EXPECT_TRUE(record.Played().empty());
}

TEST_F(PlayThread, SignExtendsBlockLength)
{
    UseRecordingPlayer();
    AudioPlayBuffer *buffer = MakeBuffer(1);
    buffer->len = -4;
    probe.PlayQueue().push_back(buffer);
    probe.PlayNext();
    EXPECT_EQ(record.sizes, std::vector<int64_t>{-4});
}

TEST_F(PlayThread, UnlocksQueueWhileRendererPlays)
{
    UseRecordingPlayer();
    Push(1, 5);
    record.whilePlaying = [this] { Push(6, 6); }; // would deadlock under the queue's lock
    probe.PlayNext();
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(2, 6));
}

TEST_F(PlayThread, LeaksBlockWithoutBytes)
{
    UseRecordingPlayer();
    AudioPlayBuffer empty;
    probe.PlayQueue().push_back(&empty);
    probe.PlayNext();
    EXPECT_TRUE(probe.PlayQueue().empty());
    EXPECT_TRUE(record.Played().empty());
}

TEST_F(PlayThread, LeaksBlockWithoutRenderer)
{
    AudioPlayBuffer *buffer = MakeBuffer(9);
    probe.PlayQueue().push_back(buffer);
    probe.PlayNext();
    EXPECT_TRUE(probe.PlayQueue().empty());
    EXPECT_EQ(buffer->buf[0], 9);
    FreeBuffer(buffer);
}

// --- The thread's body -----------------------------------------------------------------------

TEST_F(PlayThread, EndsAfterOneMillisecondOnNullArgument)
{
    EXPECT_EQ(AudioPlayThread::ThreadFun(nullptr), 0u);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{
                         {errorLevel, L"playThread is nullptr", "velto::AudioPlayThread::ThreadFun"}}));
    EXPECT_EQ(fakewin::Waits(), (std::vector<fakewin::WaitRecord>{{Call::Sleep, nullptr, 1}}));
}

TEST_F(PlayThread, ReturnsZeroWhenStopped)
{
    UseRecordingPlayer();
    thread->isRunning = 0;
    EXPECT_EQ(AudioPlayThread::ThreadFun(thread.get()), 0u);
    EXPECT_EQ(record.Calls().back(), "Close");
}

TEST_F(PlayThread, OpensRendererWithConfiguredFormat)
{
    UseRecordingPlayer();
    params.bitsPerSample = 24;
    params.channels = 6;
    params.sampleRate = 44100;
    probe.InitPlayThread();
    EXPECT_EQ(record.Calls(), (std::vector<std::string>{"SetCallback", "Open 24 6 44100"}));
    EXPECT_EQ(record.callback, thread.get());
}

TEST_F(PlayThread, CreatesRendererWhenThereIsNone)
{
    probe.InitPlayThread();
    ASSERT_NE(probe.Player(), nullptr);
    EXPECT_EQ(fakes::AudioSystem::Instance().RegisteredCallbacks(), 1);
    probe.Player()->Close();
}

TEST_F(PlayThread, LeaksBlocksWithoutMemoryForRenderer)
{
    std::vector<AudioPlayBuffer *> lost;
    for (int value = 1; value <= 5; ++value) {
        lost.push_back(MakeBuffer(static_cast<uint8_t>(value)));
        thread->PushBuffer(lost.back());
    }
    const fakes::FailingNew noMemory(sizeof(velto::AudioPlayerWas));
    Start();
    EXPECT_EQ(
        Recorded().Count(errorLevel, L"audioSpkPlayer is nullptr", "velto::AudioPlayThread::InitPlayThread"),
        1);
    const int passes = fakewin::Count(Call::Sleep);
    EXPECT_TRUE(Eventually([&] { return fakewin::Count(Call::Sleep) > passes + 6; }));
    thread->StopPlayThread();
    EXPECT_EQ(thread->threadExited, 1);
    EXPECT_TRUE(probe.PlayQueue().empty());
    for (AudioPlayBuffer *buffer : lost) {
        FreeBuffer(buffer);
    }
}

TEST_F(PlayThread, UsesRendererThatFailedToOpen)
{
    UseRecordingPlayer();
    record.opens = false;
    Push(1, 5);
    Start();
    EXPECT_TRUE(Eventually([this] { return record.Played().size() == 5; }));
}

TEST_F(PlayThread, PlaysBlocksInOrderOnOwnThread)
{
    UseRecordingPlayer();
    Start();
    Push(1, 20);
    EXPECT_TRUE(Eventually([this] { return record.Played().size() == 20; }));
    EXPECT_EQ(record.Played(), Range(1, 20));
    EXPECT_NE(record.thread, std::this_thread::get_id());
}

TEST_F(PlayThread, SleepsOneMillisecondAndPlaysAtMostOneBlockPerPass)
{
    UseRecordingPlayer();
    std::vector<int> sleepsBefore;
    record.whilePlaying = [&] { sleepsBefore.push_back(fakewin::Count(Call::Sleep)); };
    Push(1, 10);
    Start();
    EXPECT_TRUE(Eventually([this] { return record.Played().size() == 10; }));
    const int sleeps = fakewin::Count(Call::Sleep);
    EXPECT_TRUE(Eventually([&] { return fakewin::Count(Call::Sleep) > sleeps; }))
        << "sleeps also while the queue is empty";
    thread->StopPlayThread();
    for (size_t i = 0; i < sleepsBefore.size(); ++i) {
        EXPECT_EQ(sleepsBefore[i], static_cast<int>(i));
    }
    for (const auto &wait : fakewin::Waits()) {
        EXPECT_EQ(wait, (fakewin::WaitRecord{Call::Sleep, nullptr, 1}));
    }
}

// --- Starting and stopping -------------------------------------------------------------------

// The last call of opening creates the renderer's second event, after the client has started.
TEST_F(PlayThread, DoesNotCountAsStartedBeforeRendererIsOpen)
{
    auto &audio = fakes::AudioSystem::Instance();
    std::vector<bool> started;
    int starts = 0;
    fakewin::Before(Call::CoInitializeEx, [&] { started.push_back(thread->threadStarted); });
    fakewin::Before(
        Call::CreateEventW,
        [&] {
            starts = audio.Count(fakes::Method::Start);
            started.push_back(thread->threadStarted);
        },
        2);
    Start();
    EXPECT_EQ(started, (std::vector<bool>{false, false}));
    EXPECT_EQ(starts, 1);
    EXPECT_TRUE(thread->threadStarted);
}

TEST_F(PlayThread, DoesNotCountAsStartedWhenStoppedWhileRendererOpens)
{
    UseRecordingPlayer();
    record.whileOpening = [this] { EXPECT_TRUE(Eventually([this] { return thread->isRunning == 0; })); };
    ASSERT_TRUE(thread->StartPlayThread());
    ASSERT_TRUE(Eventually([this] { return !record.Calls().empty(); }));
    thread->StopPlayThread();
    EXPECT_FALSE(thread->threadStarted) << "the next write would not start the thread again";
    EXPECT_EQ(record.Calls().back(), "Close");
}

TEST_F(PlayThread, StopClosesAndKeepsRenderer)
{
    UseRecordingPlayer();
    Start();
    thread->StopPlayThread();
    EXPECT_FALSE(thread->threadStarted);
    EXPECT_EQ(thread->isRunning, 0);
    EXPECT_EQ(thread->threadExited, 1);
    EXPECT_FALSE(probe.Joinable());
    EXPECT_NE(probe.Player(), nullptr);
    EXPECT_EQ(record.Calls(), (std::vector<std::string>{"SetCallback", "Open 16 2 48000", "Close"}));
}

TEST_F(PlayThread, StopIsHarmlessBeforeStartAndWhenRepeated)
{
    thread->StopPlayThread();
    UseRecordingPlayer();
    Start();
    thread->StopPlayThread();
    thread->StopPlayThread();
    EXPECT_EQ(record.Calls().back(), "Close");
    EXPECT_EQ(record.Calls().size(), 3u);
}

TEST_F(PlayThread, KeepsQueuedBlocksAndRendererForNextStart)
{
    UseRecordingPlayer();
    const velto::IAudioPlayer *renderer = probe.Player().get();
    // The renderer is still playing the first block when the thread is stopped.
    record.whilePlaying = [this] { EXPECT_TRUE(Eventually([this] { return thread->isRunning == 0; })); };
    Start();
    Push(1, 8);
    ASSERT_TRUE(Eventually([this] { return !record.Played().empty(); }));
    thread->StopPlayThread();
    EXPECT_EQ(record.Played(), Range(1, 1));
    EXPECT_EQ(Contents(probe.PlayQueue()), Range(2, 8));
    record.whilePlaying = nullptr;
    Push(9, 10);
    params.sampleRate = 44100;
    Start();
    EXPECT_TRUE(Eventually([this] { return record.Played().size() == 10; }));
    EXPECT_EQ(record.Played(), Range(1, 10));
    EXPECT_EQ(probe.Player().get(), renderer);
    EXPECT_EQ(record.Calls().back(), "Open 16 2 44100") << "with the current parameters";
}

TEST_F(PlayThread, KeepsDelayedBlocksWhenStopped)
{
    UseRecordingPlayer();
    Push(1, 3);
    Start();
    thread->StopPlayThread();
    EXPECT_EQ(Contents(probe.DelayQueue()), Range(1, 3));
    EXPECT_TRUE(record.Played().empty());
}

TEST_F(PlayThread, DestructionClosesAndDeletesRenderer)
{
    auto other = std::make_unique<AudioPlayThread>(&params, nullptr);
    AudioPlayThreadProbe(*other).Player() = std::make_unique<RecordingPlayer>(record);
    ASSERT_TRUE(other->StartPlayThread());
    ASSERT_TRUE(Eventually([&] { return other->threadStarted.load(); }));
    other.reset();
    EXPECT_EQ(record.Calls(),
              (std::vector<std::string>{"SetCallback", "Open 16 2 48000", "Close", "delete"}));
}

TEST_F(PlayThread, DestructionFreesNoQueuedBlock)
{
    std::vector<AudioPlayBuffer *> queued;
    {
        AudioPlayThread other(&params, nullptr);
        for (int value = 1; value <= 8; ++value) {
            queued.push_back(MakeBuffer(static_cast<uint8_t>(value)));
            other.PushBuffer(queued.back());
        }
    }
    for (AudioPlayBuffer *buffer : queued) {
        FreeBuffer(buffer);
    }
}

TEST_F(PlayThread, ReferencesModuleWhileRunning)
{
    UseRecordingPlayer();
    const int references = fakewin::ModuleReferences(fakewin::ThisModule());
    Start();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), references + 1);
    thread->StopPlayThread();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), references);
}

#if GTEST_HAS_DEATH_TEST && !defined(_WIN32)
TEST_F(PlayThread, TerminatesProcessWhenStartedTwice)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    velto::SpeakerAudioParams params;
    EXPECT_DEATH(
        {
            AudioPlayThread thread(&params, nullptr);
            thread.StartPlayThread();
            thread.StartPlayThread();
        },
        "");
}
#endif

// --- The broadcast flag ----------------------------------------------------------------------

TEST_F(PlayThread, ForwardsBroadcastFlagToCallback)
{
    thread->OnBroadcastFlag(true);
    thread->OnBroadcastFlag(false);
    EXPECT_EQ(forwardedFlags, (std::vector<bool>{true, false}));
    AudioPlayThread silent(&params, nullptr);
    silent.OnBroadcastFlag(true);
    EXPECT_EQ(forwardedFlags.size(), 2u);
}

TEST_F(PlayThread, IgnoresPlayerEvents)
{
    thread->OnPlayerEvent();
    EXPECT_TRUE(forwardedFlags.empty());
    EXPECT_EQ(fakewin::TotalCalls(), 0);
}

TEST_F(PlayThread, PassesBroadcastFlagToRendererOnceItExists)
{
    thread->SetBroadcastFlag(true);
    Start();
    velto::AudioPlayerWasProbe renderer(static_cast<velto::AudioPlayerWas &>(*probe.Player()));
    EXPECT_FALSE(renderer.BroadcastFlag());
    thread->SetBroadcastFlag(true);
    EXPECT_TRUE(renderer.BroadcastFlag());
    thread->SetBroadcastFlag(false);
    EXPECT_FALSE(renderer.BroadcastFlag());
}

} // namespace
