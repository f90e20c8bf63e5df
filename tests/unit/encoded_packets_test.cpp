#include "capture/avpkt_buf_queue.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/fakes/failing_new.h"

namespace {

using namespace velto;

// --- Packets -------------------------------------------------------------------------------------

class EncodedPacketQueue : public ::testing::Test {
protected:
    // The queue leaks the records (known leak); freed here for LeakSanitizer.
    void TearDown() override
    {
        for (AVEncodePacket *packet : packets) {
            delete packet;
        }
    }

    void InitAndRemember(AVPktBufQueue &queue, uint32_t count)
    {
        ASSERT_TRUE(queue.Init(count));
        for (uint32_t i = 0; i < count; ++i) {
            packets.push_back(queue.PopFree());
        }
        for (AVEncodePacket *packet : packets) {
            queue.PushFree(packet);
        }
    }

    std::vector<AVEncodePacket *> packets;
};

TEST_F(EncodedPacketQueue, GivesEachPacketBufferOfConfiguredSize)
{
    AVPktBufQueue queue;
    queue.SetPacketBufferSize(1536);
    InitAndRemember(queue, 3);
    for (AVEncodePacket *packet : packets) {
        ASSERT_NE(packet->data, nullptr);
        EXPECT_EQ(packet->Capacity(), 1536U);
        EXPECT_EQ(packet->size, 0U);
    }
}

TEST_F(EncodedPacketQueue, GivesPacketNoBufferWithoutConfiguredSize)
{
    AVPktBufQueue queue;
    InitAndRemember(queue, 1);
    EXPECT_EQ(packets[0]->data, nullptr);
}

TEST_F(EncodedPacketQueue, GivesPacketBufferOfOneByte)
{
    AVPktBufQueue queue;
    queue.SetPacketBufferSize(1);
    InitAndRemember(queue, 1);
    EXPECT_EQ(packets[0]->Capacity(), 1U);
}

TEST_F(EncodedPacketQueue, FreesBuffersButKeepsRecordsOnDestruction)
{
    {
        AVPktBufQueue queue;
        queue.SetPacketBufferSize(100);
        InitAndRemember(queue, 3);
        queue.PopFree(); // in neither queue at the destruction
        queue.PushData(queue.PopFree());
        packets[2]->timeStamp = 7;
    }
    for (const AVEncodePacket *packet : packets) {
        EXPECT_EQ(packet->data, nullptr);
        EXPECT_EQ(packet->Capacity(), 0U);
    }
    EXPECT_EQ(packets[2]->timeStamp, 7);
}

TEST_F(EncodedPacketQueue, CreatesNewPacketsAfterClearing)
{
    AVPktBufQueue queue;
    queue.SetPacketBufferSize(10);
    InitAndRemember(queue, 1);
    queue.StopAndClear();
    EXPECT_EQ(packets[0]->data, nullptr);
    queue.SetPacketBufferSize(20);
    ASSERT_TRUE(queue.Init(1));
    packets.push_back(queue.PopFree());
    EXPECT_NE(packets[1], packets[0]);
    EXPECT_EQ(packets[1]->Capacity(), 20U);
}

TEST_F(EncodedPacketQueue, InitFailsWithoutMemoryForRecord)
{
    AVPktBufQueue queue;
    const fakes::FailingNew noRecord(sizeof(AVEncodePacket));
    EXPECT_FALSE(queue.Init(2));
    EXPECT_EQ(queue.PopFree(), nullptr);
}

TEST_F(EncodedPacketQueue, QueuesPacketWithoutBufferWhenOutOfMemory)
{
    AVPktBufQueue queue;
    queue.SetPacketBufferSize(1536);
    const fakes::FailingNew noBuffer(1536);
    InitAndRemember(queue, 2);
    EXPECT_EQ(packets[0]->data, nullptr);
    EXPECT_EQ(packets[1]->data, nullptr);
}

// --- Pool size -----------------------------------------------------------------------------------

TEST(PacketPoolSize, CoversTenSecondsPlusOnePacket)
{
    EXPECT_EQ(PacketPoolSize(48000, 1024), 469U);
    EXPECT_EQ(PacketPoolSize(44100, 1024), 431U);
    EXPECT_EQ(PacketPoolSize(48000, 480000), 2U);
    EXPECT_EQ(PacketPoolSize(48000, 480001), 1U);
    EXPECT_EQ(PacketPoolSize(0, 1024), 1U);
}

// No rate of a sound device overflows the multiplication. Higher rates wrap at 32 bits.
TEST(PacketPoolSize, WrapsAt32BitsOnlyAboveDeviceRates)
{
    EXPECT_EQ(PacketPoolSize(384000, 1024), 3751U);
    EXPECT_EQ(PacketPoolSize(429497, 1), (429497U * 10000U) / 1000U + 1U);
}

} // namespace
