// Clearing the packet queue, its locks and its allocations.
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
    Element *outside = queue.PopFree();
    queue.PushData(queue.PopFree());
    queue.PushFree(queue.PopFree()); // moves the element to the end of the free queue
    EXPECT_NE(outside, nullptr);
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
    EXPECT_TRUE(IsBlocked(waiters[0]));
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
        Element *outside = queue.PopFree();
        Element *filled = queue.PopFree();
        queue.PushData(filled);
        Element *free = queue.PopFree();
        queue.PushFree(free);
        all = {outside, filled, free};
    }
    EXPECT_EQ(record.released.size(), 3U);
    EXPECT_EQ(std::set<Element *>(record.released.begin(), record.released.end()), all);
}

// ReleaseElement starts two operations that must block until clearing is complete.
class ConcurrentlyUsedQueue : public BufferQueue<Element *> {
public:
    ~ConcurrentlyUsedQueue() override { StopAndClear(); }

    std::future<int32_t> counting;
    std::future<Element *> taking;
    bool wereBlocked = false;

protected:
    Element *CreateElement() override { return new Element; }
    void ReleaseElement(Element *element) override
    {
        counting = std::async(std::launch::async, [this] { return DataCount(); });
        taking = std::async(std::launch::async, [this] { return PopFree(); });
        wereBlocked = IsBlocked(counting) && IsBlocked(taking);
        BufferQueue::ReleaseElement(element);
    }
};

TEST_F(PacketQueue, ClearingLocksBothQueues)
{
    ConcurrentlyUsedQueue queue;
    ASSERT_TRUE(queue.Init(1));
    queue.StopAndClear();
    EXPECT_TRUE(queue.wereBlocked);
    EXPECT_EQ(queue.counting.get(), 0);
    EXPECT_EQ(queue.taking.get(), nullptr);
}

// CreateElement starts two operations that must block until Init is complete.
class QueueUsedDuringInit : public BufferQueue<Element *> {
public:
    ~QueueUsedDuringInit() override { StopAndClear(); }

    std::future<int32_t> counting;
    std::future<Element *> taking;
    bool wereBlocked = false;

protected:
    Element *CreateElement() override
    {
        counting = std::async(std::launch::async, [this] { return DataCount(); });
        taking = std::async(std::launch::async, [this] { return PopFree(); });
        wereBlocked = IsBlocked(counting) && IsBlocked(taking);
        return new Element;
    }
};

TEST_F(PacketQueue, InitLocksBothQueues)
{
    QueueUsedDuringInit queue;
    ASSERT_TRUE(queue.Init(1));
    EXPECT_TRUE(queue.wereBlocked);
    EXPECT_EQ(queue.counting.get(), 0);
    EXPECT_NE(queue.taking.get(), nullptr);
}

// --- The default release -------------------------------------------------------------------------

struct CountedElement {
    explicit CountedElement(int &deletions) : m_deletions(deletions) {}
    ~CountedElement() { ++m_deletions; }
    CountedElement(const CountedElement &) = delete;
    CountedElement &operator=(const CountedElement &) = delete;

private:
    int &m_deletions;
};

class DefaultReleaseQueue : public BufferQueue<CountedElement *> {
public:
    explicit DefaultReleaseQueue(int &deletions) : m_deletions(deletions) {}
    using BufferQueue::ReleaseElement;

protected:
    CountedElement *CreateElement() override { return new CountedElement(m_deletions); }

private:
    int &m_deletions;
};

TEST_F(PacketQueue, DeletesElementsUnlessReleaseIsOverridden)
{
    int deletions = 0;
    DefaultReleaseQueue queue(deletions);
    ASSERT_TRUE(queue.Init(3));
    queue.StopAndClear();
    EXPECT_EQ(deletions, 3);
    queue.ReleaseElement(nullptr);
    EXPECT_EQ(deletions, 3);
}

TEST_F(PacketQueue, DestructionDeletesElementsUnlessReleaseIsOverridden)
{
    int deletions = 0;
    {
        DefaultReleaseQueue queue(deletions);
        ASSERT_TRUE(queue.Init(3));
    }
    EXPECT_EQ(deletions, 3);
}

// --- Memory --------------------------------------------------------------------------------------

// Fills and empties the queues until their ring buffers have wrapped around.
TEST_F(PacketQueue, AllocatesOnlyDuringInit)
{
    for (const uint32_t count : {0U, 1U, 63U, 64U, 65U, 469U, 2000U}) {
        CountingQueue::Record record;
        CountingQueue queue(record);
        ASSERT_TRUE(queue.Init(count));
        const FailingThrowingNew noMemory(1);
        for (size_t filled = 0; count != 0 && filled < 6000;) {
            const size_t fill = filled % 3 == 0 ? count : 1 + filled % count;
            for (size_t i = 0; i < fill; ++i, ++filled) {
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
