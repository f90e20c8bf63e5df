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
        queue.Stop(); // otherwise the producer would wait forever
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
    std::this_thread::sleep_for(blockingTime);
    EXPECT_EQ(filled, 3); // no element dropped or overwritten
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

// ThreadSanitizer also checks the lock order here.
TEST_F(PacketQueue, SurvivesRestartsDuringTransfers)
{
    std::atomic<bool> done = false;
    std::thread producer([&] {
        while (!done) {
            Element *element = queue.PopFree();
            queue.PushData(element);
            element = queue.PopFree();
            queue.PushFree(element);
        }
    });
    std::thread consumer([&] {
        while (!done) {
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
    done = true;
    queue.Stop();
    producer.join();
    consumer.join();
    EXPECT_EQ(record.released.size(), record.created);
}

} // namespace
