// What is released, and the memory that the queue itself takes.
#include <gtest/gtest.h>

#include <array>
#include <future>
#include <set>

#include "failing_throwing_new.h"
#include "packet_queue_fixture.h"

namespace {

using namespace velto;
using namespace velto_test;

// --- Clearing ------------------------------------------------------------------------------------

TEST_F(PacketQueue, ClearingReleasesEachElementOnceInCreationOrder)
{
    ASSERT_TRUE(queue.Init(4));
    Element *held = queue.PopFree();
    queue.PushData(queue.PopFree());
    queue.PushFree(queue.PopFree()); // now behind the last
    EXPECT_NE(held, nullptr);
    queue.StopAndClear();
    ASSERT_EQ(record.released.size(), 4U);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(record.released[i]->number, i);
    }
    queue.StopAndClear();
    EXPECT_EQ(record.released.size(), 4U);
}

TEST_F(PacketQueue, ClearingAfterStopReleasesRemainingElements)
{
    ASSERT_TRUE(queue.Init(2));
    queue.Stop();
    queue.StopAndClear();
    EXPECT_EQ(record.released.size(), 2U);
    EXPECT_TRUE(queue.Init(1));
}

TEST_F(PacketQueue, ClearingWakesAllWaiters)
{
    ASSERT_TRUE(queue.Init(0));
    std::array waiters{std::async(std::launch::async, [this] { return queue.PopFree(); }),
                       std::async(std::launch::async, [this] { return queue.PopData(); })};
    EXPECT_TRUE(StillWaits(waiters[0]));
    queue.StopAndClear();
    EXPECT_EQ(waiters[0].get(), nullptr);
    EXPECT_EQ(waiters[1].get(), nullptr);
}

TEST_F(PacketQueue, DestructionReleasesEachElementOnce)
{
    CountingQueue::Record record;
    std::set<Element *> all;
    {
        CountingQueue queue(record);
        ASSERT_TRUE(queue.Init(3));
        Element *held = queue.PopFree();
        Element *filled = queue.PopFree();
        queue.PushData(filled);
        Element *free = queue.PopFree();
        queue.PushFree(free);
        all = {held, filled, free};
    }
    EXPECT_EQ(record.released.size(), 3U);
    EXPECT_EQ(std::set<Element *>(record.released.begin(), record.released.end()), all);
}

// Each operation that a releasing queue must keep out starts while it releases, and ends only after.
class WatchfulQueue : public BufferQueue<Element *> {
public:
    ~WatchfulQueue() override { StopAndClear(); }

    std::future<int32_t> counting;
    std::future<Element *> taking;
    bool keptOut = false;

protected:
    Element *CreateElement() override { return new Element; }
    void ReleaseElement(Element *element) override
    {
        counting = std::async(std::launch::async, [this] { return DataCount(); });
        taking = std::async(std::launch::async, [this] { return PopFree(); });
        keptOut = StillWaits(counting) && StillWaits(taking);
        BufferQueue::ReleaseElement(element);
    }
};

TEST_F(PacketQueue, ClearingLocksBothQueues)
{
    WatchfulQueue queue;
    ASSERT_TRUE(queue.Init(1));
    queue.StopAndClear();
    EXPECT_TRUE(queue.keptOut);
    EXPECT_EQ(queue.counting.get(), 0);
    EXPECT_EQ(queue.taking.get(), nullptr);
}

// --- The element type's own release --------------------------------------------------------------

struct Mortal {
    explicit Mortal(int &deaths) : m_deaths(deaths) {}
    ~Mortal() { ++m_deaths; }
    Mortal(const Mortal &) = delete;
    Mortal &operator=(const Mortal &) = delete;

private:
    int &m_deaths;
};

class MortalQueue : public BufferQueue<Mortal *> {
public:
    using BufferQueue::ReleaseElement;
    int deaths = 0;

protected:
    Mortal *CreateElement() override { return new Mortal(deaths); }
};

TEST_F(PacketQueue, DeletesElementsUnlessReleaseIsOverridden)
{
    MortalQueue queue;
    ASSERT_TRUE(queue.Init(3));
    queue.StopAndClear();
    EXPECT_EQ(queue.deaths, 3);
    queue.ReleaseElement(nullptr);
    EXPECT_EQ(queue.deaths, 3);
}

// --- Memory --------------------------------------------------------------------------------------

// From the first fill to an overflow and further, at all places that the queues' ends can be at.
TEST_F(PacketQueue, AllocatesOnlyDuringInit)
{
    for (const uint32_t count : {0U, 1U, 63U, 64U, 65U, 469U, 2000U}) {
        CountingQueue::Record record;
        CountingQueue queue(record);
        ASSERT_TRUE(queue.Init(count));
        const FailingThrowingNew noMemory(1);
        for (size_t filled = 0; count != 0 && filled < 6000;) {
            const size_t most = filled % 3 == 0 ? count : 1 + filled % count;
            for (size_t i = 0; i < most; ++i, ++filled) {
                queue.PushData(queue.PopFree());
            }
            while (queue.DataCount() != 0) {
                queue.PushFree(queue.PopData());
            }
        }
        queue.Stop();
        EXPECT_FALSE(noMemory.HasFailed()) << count;
    }
}

TEST_F(PacketQueue, ConstructionAllocatesNothing)
{
    CountingQueue::Record record;
    const FailingThrowingNew noMemory(1);
    {
        const CountingQueue queue(record);
    }
    EXPECT_FALSE(noMemory.HasFailed());
}

} // namespace
