// Initialising, filling, emptying and stopping the queue.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <future>

#include "failing_throwing_new.h"
#include "packet_queue_fixture.h"
#include "tests/fakes/polling.h"

namespace {

using namespace velto;
using namespace velto_test;

// --- Init ----------------------------------------------------------------------------------------

TEST_F(PacketQueue, InitCreatesAllElementsAndHandsThemOutInOrder)
{
    ASSERT_TRUE(queue.Init(3));
    EXPECT_EQ(record.created, 3U);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(queue.PopFree()->number, i);
    }
    EXPECT_EQ(queue.DataCount(), 0);
}

TEST_F(PacketQueue, PopFreeWaitsAfterInitWithoutElements)
{
    ASSERT_TRUE(queue.Init(0));
    auto waiter = std::async(std::launch::async, [this] { return queue.PopFree(); });
    EXPECT_TRUE(IsBlocked(waiter));
    queue.Stop();
    EXPECT_EQ(waiter.get(), nullptr);
    EXPECT_EQ(record.created, 0U);
}

TEST_F(PacketQueue, SecondInitWhileRunningChangesNothing)
{
    ASSERT_TRUE(queue.Init(2));
    EXPECT_FALSE(queue.Init(2));
    EXPECT_FALSE(queue.Init(0));
    EXPECT_EQ(record.created, 2U);
    EXPECT_TRUE(record.released.empty());
    Element *element = queue.PopFree();
    queue.PushData(element); // still running
    EXPECT_EQ(queue.PopData(), element);
}

TEST_F(PacketQueue, SecondInitFailsWhileRunningWithoutElements)
{
    ASSERT_TRUE(queue.Init(0));
    EXPECT_FALSE(queue.Init(1));
}

TEST_F(PacketQueue, InitFailsAfterStopWhilePoolHasElements)
{
    ASSERT_TRUE(queue.Init(1));
    queue.Stop();
    EXPECT_FALSE(queue.Init(1));
    EXPECT_EQ(record.created, 1U);
    EXPECT_TRUE(record.released.empty());
}

TEST_F(PacketQueue, InitFailsAfterStopWhileCallerHasAllElements)
{
    ASSERT_TRUE(queue.Init(1));
    EXPECT_NE(queue.PopFree(), nullptr);
    queue.Stop();
    EXPECT_FALSE(queue.Init(1));
    EXPECT_EQ(record.created, 1U);
}

TEST_F(PacketQueue, InitFailsAfterStopWhileQueuesHaveElementsFromOutsidePool)
{
    Element other;
    ASSERT_TRUE(queue.Init(0));
    queue.PushFree(&other);
    queue.Stop();
    EXPECT_FALSE(queue.Init(1)) << "in the free queue";
    queue.StopAndClear();
    ASSERT_TRUE(queue.Init(0));
    queue.PushData(&other);
    queue.Stop();
    EXPECT_FALSE(queue.Init(1)) << "in the data queue";
    EXPECT_EQ(queue.PopData(), &other);
    EXPECT_EQ(record.created, 0U);
}

TEST_F(PacketQueue, InitCreatesNewElementsAfterStopAndClear)
{
    ASSERT_TRUE(queue.Init(2));
    queue.PushData(queue.PopFree());
    queue.StopAndClear();
    EXPECT_EQ(queue.DataCount(), 0);
    ASSERT_TRUE(queue.Init(3));
    EXPECT_EQ(record.created, 5U);
    EXPECT_EQ(queue.PopFree()->number, 2U);
}

TEST_F(PacketQueue, InitReleasesElementsAndStaysStoppedOnFailure)
{
    CountingQueue::Record record;
    CountingQueue queue(record, 2);
    EXPECT_FALSE(queue.Init(3));
    EXPECT_EQ(record.created, 2U);
    ASSERT_EQ(record.released.size(), 2U);
    EXPECT_LT(record.released[0]->number, record.released[1]->number);
    EXPECT_EQ(queue.PopFree(), nullptr); // returns at once, because the queue is stopped and empty
    EXPECT_EQ(queue.PopData(), nullptr);
}

TEST_F(PacketQueue, InitCanBeRetriedAfterFailure)
{
    CountingQueue::Record record;
    CountingQueue queue(record, 2);
    EXPECT_FALSE(queue.Init(3));
    record.created = 0;
    EXPECT_TRUE(queue.Init(2));
}

TEST_F(PacketQueue, InitFailsBeforeFirstElementWhenAllocationFails)
{
    CountingQueue::Record record;
    CountingQueue queue(record, 0); // creates no element, so all allocations are the queue's own
    for (int nth = 1;; ++nth) {
        const FailingThrowingNew noMemory(nth);
        EXPECT_FALSE(queue.Init(469));
        EXPECT_EQ(queue.PopFree(), nullptr);
        if (!noMemory.HasFailed()) {
            EXPECT_EQ(nth, 4) << "two queues and the pool";
            break;
        }
    }
    EXPECT_TRUE(queue.Init(0)) << "stopped and empty";
}

// --- Push and pop --------------------------------------------------------------------------------

TEST_F(PacketQueue, ReturnsFilledElementsOldestFirst)
{
    ASSERT_TRUE(queue.Init(3));
    std::array<Element *, 3> filled{queue.PopFree(), queue.PopFree(), queue.PopFree()};
    for (Element *element : filled) {
        queue.PushData(element);
    }
    EXPECT_EQ(queue.DataCount(), 3);
    for (Element *element : filled) {
        EXPECT_EQ(queue.PopData(), element);
    }
    EXPECT_EQ(queue.DataCount(), 0);
}

TEST_F(PacketQueue, QueuesElementsFromOutsidePool)
{
    ASSERT_TRUE(queue.Init(2));
    std::array<Element, 4> others;
    queue.PushData(&others[0]);
    queue.PushData(&others[1]);
    EXPECT_EQ(queue.PopData(), &others[0]); // the oldest element is no longer at the buffer's start
    queue.PushData(&others[2]);
    queue.PushData(&others[3]);
    EXPECT_EQ(queue.DataCount(), 3);
    for (const size_t next : {1U, 2U, 3U}) {
        EXPECT_EQ(queue.PopData(), &others[next]);
    }
}

TEST_F(PacketQueue, KeepsElementsInOrderWithoutMemoryForOneFromOutsidePool)
{
    ASSERT_TRUE(queue.Init(3));
    std::array<Element, 5> others;
    for (const size_t next : {0U, 1U, 2U}) {
        queue.PushData(&others[next]);
    }
    EXPECT_EQ(queue.PopData(), &others[0]);
    queue.PushData(&others[3]); // full, and the oldest element is not at the buffer's start
    {
        const FailingThrowingNew noMemory(1);
        EXPECT_THROW(queue.PushData(&others[4]), std::bad_alloc);
    }
    EXPECT_EQ(queue.DataCount(), 3);
    queue.PushData(&others[4]);
    for (const size_t next : {1U, 2U, 3U, 4U}) {
        EXPECT_EQ(queue.PopData(), &others[next]);
    }
}

TEST_F(PacketQueue, QueuesReturnedElementsBehindFreeOnes)
{
    ASSERT_TRUE(queue.Init(2));
    Element *first = queue.PopFree();
    queue.PushFree(first);
    EXPECT_EQ(queue.PopFree()->number, 1U);
    EXPECT_EQ(queue.PopFree(), first);
}

TEST_F(PacketQueue, IgnoresNullElements)
{
    ASSERT_TRUE(queue.Init(0));
    queue.PushData(nullptr);
    queue.PushFree(nullptr);
    EXPECT_EQ(queue.DataCount(), 0);
    queue.Stop();
    EXPECT_EQ(queue.PopFree(), nullptr);
}

TEST_F(PacketQueue, PopFreeWaitsUntilElementIsReturned)
{
    ASSERT_TRUE(queue.Init(1));
    Element *only = queue.PopFree();
    auto waiter = std::async(std::launch::async, [this] { return queue.PopFree(); });
    EXPECT_TRUE(IsBlocked(waiter));
    queue.PushData(only); // does not wake a waiter for free elements
    EXPECT_TRUE(IsBlocked(waiter));
    queue.PushFree(queue.PopData());
    EXPECT_EQ(waiter.get(), only);
}

TEST_F(PacketQueue, PopDataWaitsUntilElementIsFilled)
{
    ASSERT_TRUE(queue.Init(1));
    auto reader = std::async(std::launch::async, [this] { return queue.PopData(); });
    EXPECT_TRUE(IsBlocked(reader));
    Element *element = queue.PopFree();
    queue.PushData(element);
    EXPECT_EQ(reader.get(), element);
}

TEST_F(PacketQueue, EachPushServesOneOfTwoWaiters)
{
    ASSERT_TRUE(queue.Init(2));
    std::array<Element *, 2> elements{queue.PopFree(), queue.PopFree()};
    std::array readers{std::async(std::launch::async, [this] { return queue.PopData(); }),
                       std::async(std::launch::async, [this] { return queue.PopData(); })};
    EXPECT_TRUE(IsBlocked(readers[0]));
    EXPECT_TRUE(IsBlocked(readers[1]));
    const auto isServed = [&](size_t reader) {
        return readers[reader].wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    };
    queue.PushData(elements[0]);
    EXPECT_TRUE(fakes::Eventually([&] { return isServed(0) || isServed(1); }));
    const size_t served = isServed(0) ? 0 : 1;
    const size_t other = 1 - served;
    EXPECT_TRUE(IsBlocked(readers[other]));
    queue.PushData(elements[1]);
    EXPECT_EQ(readers[served].get(), elements[0]);
    EXPECT_EQ(readers[other].get(), elements[1]);
}

// --- Stop ----------------------------------------------------------------------------------------

TEST_F(PacketQueue, IsStoppedBeforeInit)
{
    EXPECT_EQ(queue.PopFree(), nullptr);
    EXPECT_EQ(queue.PopData(), nullptr);
    Element other;
    queue.PushData(&other);
    EXPECT_EQ(queue.DataCount(), 0);
}

TEST_F(PacketQueue, StopWakesAllWaitersOnBothQueues)
{
    ASSERT_TRUE(queue.Init(0));
    std::array waiters{std::async(std::launch::async, [this] { return queue.PopFree(); }),
                       std::async(std::launch::async, [this] { return queue.PopFree(); }),
                       std::async(std::launch::async, [this] { return queue.PopData(); }),
                       std::async(std::launch::async, [this] { return queue.PopData(); })};
    for (auto &waiter : waiters) {
        EXPECT_TRUE(IsBlocked(waiter));
    }
    queue.Stop();
    for (auto &waiter : waiters) {
        EXPECT_EQ(waiter.get(), nullptr);
    }
}

TEST_F(PacketQueue, ReturnsQueuedElementsAfterStop)
{
    ASSERT_TRUE(queue.Init(3));
    Element *first = queue.PopFree();
    Element *second = queue.PopFree();
    queue.PushData(first);
    queue.PushData(second);
    queue.Stop();
    EXPECT_EQ(queue.DataCount(), 2);
    EXPECT_EQ(queue.PopData(), first);
    EXPECT_EQ(queue.PopData(), second);
    EXPECT_EQ(queue.PopData(), nullptr);
    EXPECT_EQ(queue.PopFree()->number, 2U);
    EXPECT_EQ(queue.PopFree(), nullptr);
}

TEST_F(PacketQueue, QueuesNothingAfterStop)
{
    ASSERT_TRUE(queue.Init(2));
    Element *first = queue.PopFree();
    Element *second = queue.PopFree();
    queue.Stop();
    queue.PushData(first);
    queue.PushFree(second);
    EXPECT_EQ(queue.DataCount(), 0);
    EXPECT_EQ(queue.PopData(), nullptr);
    EXPECT_EQ(queue.PopFree(), nullptr);
    queue.StopAndClear();
    EXPECT_EQ(record.released.size(), 2U); // both were still in the pool
}

TEST_F(PacketQueue, StopCanBeRepeatedAndReleasesNothing)
{
    ASSERT_TRUE(queue.Init(1));
    queue.Stop();
    queue.Stop();
    EXPECT_TRUE(record.released.empty());
    EXPECT_NE(queue.PopFree(), nullptr);
}

} // namespace
