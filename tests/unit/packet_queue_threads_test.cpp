#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "packet_queue_fixture.h"

namespace {

using namespace velto;
using namespace velto_test;

TEST_F(PacketQueue, DeliversAllElementsInOrderThroughSmallPool)
{
    constexpr size_t total = 20000;
    ASSERT_TRUE(queue.Init(4));
    std::thread producer([this] {
        for (size_t i = 0; i < total; ++i) {
            Element *element = queue.PopFree();
            element->number = i;
            queue.PushData(element);
        }
    });
    size_t arrived = 0;
    for (; arrived < total; ++arrived) {
        Element *element = queue.PopData();
        if (element->number != arrived) {
            break;
        }
        queue.PushFree(element);
    }
    if (arrived != total) {
        queue.Stop(); // the producer would wait forever; its next element is null then
    }
    EXPECT_EQ(arrived, total);
    producer.join();
}

TEST_F(PacketQueue, BlocksProducerUntilConsumerReads)
{
    ASSERT_TRUE(queue.Init(3));
    std::atomic<int> filled = 0;
    std::thread producer([&] {
        while (Element *element = queue.PopFree()) {
            queue.PushData(element);
            ++filled;
        }
    });
    while (queue.DataCount() != 3) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(aMoment);
    EXPECT_EQ(filled, 3); // nothing dropped, nothing overwritten
    for (size_t i = 0; i < 3; ++i) {
        Element *oldest = queue.PopData();
        EXPECT_EQ(oldest->number, i);
        queue.PushFree(oldest);
        while (filled != static_cast<int>(4 + i)) {
            std::this_thread::yield();
        }
    }
    queue.Stop();
    producer.join();
}

// A thread sanitizer also sees here in which order the locks are taken.
TEST_F(PacketQueue, SurvivesRestartsDuringTransfers)
{
    std::atomic<bool> ends = false;
    std::thread producer([&] {
        while (!ends) {
            Element *element = queue.PopFree();
            queue.PushData(element);
            element = queue.PopFree();
            queue.PushFree(element);
        }
    });
    std::thread consumer([&] {
        while (!ends) {
            if (queue.DataCount() > 0) {
                queue.PushFree(queue.PopData());
            }
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_TRUE(queue.Init(5));
        std::this_thread::yield();
        if (i % 2 == 0) {
            queue.Stop();
        }
        queue.StopAndClear();
    }
    ends = true;
    queue.Stop();
    producer.join();
    consumer.join();
    EXPECT_EQ(record.released.size(), record.created);
}

} // namespace
