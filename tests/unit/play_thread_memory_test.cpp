// The play thread and its queues when memory runs out.
#include <algorithm>

#include "failing_throwing_new.h"
#include "play_thread_fixture.h"

namespace {

using namespace velto_test;
using velto::AudioPlayBuffer;
using velto::AudioPlayThread;
using velto::AudioPlayThreadProbe;

constexpr wchar_t droppedLine[] = L"no memory to queue a block, dropped";

// A deque allocates memory for several blocks at once. Pushing and popping moves the deque closer to its next
// allocation without changing its content.
void Advance(std::deque<AudioPlayBuffer *> &queue, int blocks)
{
    for (int i = 0; i < blocks; ++i) {
        queue.push_back(nullptr);
        queue.pop_front();
    }
}
constexpr int blocksPerAllocation = 64; // 512 bytes of pointers

std::vector<AudioPlayBuffer *> MakeBuffers(int first, int last)
{
    std::vector<AudioPlayBuffer *> buffers;
    for (const int value : Range(first, last)) {
        buffers.push_back(MakeBuffer(static_cast<uint8_t>(value)));
    }
    return buffers;
}

int DroppedLines()
{
    return Recorded().Count(errorLevel, droppedLine, pushTag);
}

std::vector<int> Without(std::vector<int> values, int value)
{
    values.erase(std::remove(values.begin(), values.end(), value), values.end());
    return values;
}

// The cases that one run of FillCushion covered.
struct Coverage {
    bool hasFailed = false;
    bool lostBlock = false;
    bool wasHalfFlushed = false;
};

// Pushes the five blocks of a cushion, during which the nth allocation fails, then seven more blocks.
Coverage FillCushion(int advancedDelay, int advancedPlay, int nth)
{
    ClearLog();
    const velto::SpeakerAudioParams params;
    AudioPlayThread thread(&params, nullptr);
    AudioPlayThreadProbe probe(thread);
    Advance(probe.DelayQueue(), advancedDelay);
    Advance(probe.PlayQueue(), advancedPlay);
    const std::vector<AudioPlayBuffer *> cushion = MakeBuffers(1, 5);

    Coverage covered;
    int lost = 0;
    {
        const FailingThrowingNew noMemory(nth);
        for (size_t i = 0; i < cushion.size(); ++i) {
            const bool hadFailed = noMemory.HasFailed();
            thread.PushBuffer(cushion[i]);
            if (!hadFailed && noMemory.HasFailed() && DroppedLines() == 1) {
                lost = static_cast<int>(i) + 1;
            }
        }
        covered.hasFailed = noMemory.HasFailed();
    }
    covered.lostBlock = lost != 0;
    covered.wasHalfFlushed = !probe.PlayQueue().empty() && !probe.DelayQueue().empty();
    const bool isFlushed = probe.DelayQueue().empty() && probe.PlayQueue().size() == 5;
    EXPECT_EQ(isFlushed, lost == 0) << "a lost block leaves the cushion unfinished";
    const bool allMoved = probe.DelayQueue().empty() && !probe.PlayQueue().empty();
    EXPECT_EQ(thread.needDelay, !allMoved) << "moved blocks do not wait for another five";
    std::vector<int> queued = Contents(probe.PlayQueue());
    const std::vector<int> delayed = Contents(probe.DelayQueue());
    queued.insert(queued.end(), delayed.begin(), delayed.end());
    EXPECT_EQ(queued, Without(Range(1, 5), lost));

    for (AudioPlayBuffer *buffer : MakeBuffers(6, 12)) {
        thread.PushBuffer(buffer);
    }
    EXPECT_EQ(Contents(probe.PlayQueue()), Without(Range(1, 12), lost)) << "a later push flushes the rest";
    EXPECT_FALSE(thread.needDelay);
    EXPECT_EQ(DroppedLines(), lost != 0 ? 1 : 0);
    probe.FreeQueued();
    return covered;
}

TEST_F(PlayThread, LosesOnlyCushionBlockThatCannotBeQueued)
{
    int lost = 0;
    int halfFlushed = 0;
    for (int advancedDelay = 0; advancedDelay < blocksPerAllocation; ++advancedDelay) {
        for (const int advancedPlay :
             {0, blocksPerAllocation - 5, blocksPerAllocation - 4, blocksPerAllocation - 3,
              blocksPerAllocation - 2, blocksPerAllocation - 1}) {
            Coverage covered{.hasFailed = true};
            for (int nth = 1; covered.hasFailed; ++nth) {
                covered = FillCushion(advancedDelay, advancedPlay, nth);
                lost += covered.lostBlock ? 1 : 0;
                halfFlushed += covered.wasHalfFlushed ? 1 : 0;
            }
        }
    }
    EXPECT_GT(lost, halfFlushed) << "both queues ran out of memory";
    EXPECT_GT(halfFlushed, 0);
}

TEST_F(PlayThread, DropsNewBlockInsteadOfOldOneWithoutMemory)
{
    thread->needDelay = false;
    Push(1, 20);
    std::vector<int> expected = Range(1, 20);
    int lost = 0;
    for (int value = 21; value <= 20 + blocksPerAllocation; ++value) {
        AudioPlayBuffer *buffer = MakeBuffer(static_cast<uint8_t>(value));
        bool hasFailed = false;
        {
            const FailingThrowingNew noMemory(1);
            thread->PushBuffer(buffer);
            hasFailed = noMemory.HasFailed();
        }
        if (hasFailed) {
            ++lost;
        } else {
            expected.erase(expected.begin());
            expected.push_back(value);
        }
        ASSERT_EQ(Contents(probe.PlayQueue()), expected) << value;
    }
    EXPECT_GT(lost, 0);
    EXPECT_EQ(DroppedLines(), lost);
}

TEST_F(PlayThread, KeepsNoModuleReferenceWhenStartFails)
{
    UseRecordingPlayer();
    int failures = 0;
    for (bool hasFailed = true; hasFailed;) {
        const FailingThrowingNew noMemory(failures + 1);
        try {
            thread->StartPlayThread();
        } catch (const std::bad_alloc &) {
            EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0) << "allocation " << failures + 1;
            EXPECT_FALSE(probe.Joinable());
        }
        hasFailed = noMemory.HasFailed();
        failures += hasFailed ? 1 : 0;
    }
    EXPECT_GT(failures, 0);
    ASSERT_TRUE(Eventually([this] { return thread->threadStarted.load(); }))
        << "starts once memory is available";
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 1);
}

} // namespace
