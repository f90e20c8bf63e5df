#include "codec/av_encode_packet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "tests/fakes/failing_new.h"

namespace {

TEST(EncodePacket, HasNoBufferAfterConstruction)
{
    const AVEncodePacket packet;
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0U);
    EXPECT_EQ(packet.timeStamp, 0);
    EXPECT_EQ(packet.Capacity(), 0U);
}

TEST(EncodePacket, AllocatesAndReleasesBufferRepeatedly)
{
    AVEncodePacket packet;
    for (const uint32_t capacity : {1U, 1536U, 100U}) {
        ASSERT_TRUE(packet.AllocBuffer(capacity, false));
        EXPECT_EQ(packet.Capacity(), capacity);
        std::fill_n(packet.data, capacity, uint8_t{1}); // AddressSanitizer reports a write past the end
    }
    packet.size = 100;
    packet.ReleaseBuffer();
    packet.ReleaseBuffer();
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0U);
    EXPECT_EQ(packet.Capacity(), 0U);
    EXPECT_TRUE(packet.AllocBuffer(10, false));
}

TEST(EncodePacket, ClearsBufferOnRequest)
{
    AVEncodePacket packet;
    ASSERT_TRUE(packet.AllocBuffer(1000, false));
    std::fill_n(packet.data, 1000, uint8_t{1});
    ASSERT_TRUE(packet.AllocBuffer(1000, true));
    EXPECT_EQ(std::count(packet.data, packet.data + 1000, 0), 1000);
}

TEST(EncodePacket, ResetsSizeOnAllocation)
{
    AVEncodePacket packet;
    ASSERT_TRUE(packet.AllocBuffer(10, false));
    packet.size = 10;
    ASSERT_TRUE(packet.AllocBuffer(5, false));
    EXPECT_EQ(packet.size, 0U);
}

TEST(EncodePacket, HasNoBufferWithoutMemoryOrSize)
{
    AVEncodePacket packet;
    ASSERT_TRUE(packet.AllocBuffer(10, false));
    {
        const fakes::FailingNew noMemory(77);
        EXPECT_FALSE(packet.AllocBuffer(77, true));
    }
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.Capacity(), 0U);
    ASSERT_TRUE(packet.AllocBuffer(10, false));
    EXPECT_FALSE(packet.AllocBuffer(0, false));
    EXPECT_EQ(packet.data, nullptr);
}

// The capture thread rescales the time stamp after queuing the packet. A reader may have released its buffer
// by then.
TEST(EncodePacket, KeepsTimeStampWhenBufferIsReleased)
{
    AVEncodePacket packet;
    ASSERT_TRUE(packet.AllocBuffer(10, false));
    packet.timeStamp = 42;
    packet.ReleaseBuffer();
    EXPECT_EQ(packet.timeStamp, 42);
}

int64_t Rescaled(int64_t timeStamp, uint32_t fromHz, uint32_t toHz)
{
    AVEncodePacket packet;
    packet.timeStamp = timeStamp;
    RescalePacketTimeStamp(&packet, fromHz, toHz);
    return packet.timeStamp;
}

TEST(PacketTimeStamp, IsRoundedToNearestUnit)
{
    EXPECT_EQ(Rescaled(48000, 48000, 1000000), 1000000);
    EXPECT_EQ(Rescaled(1024, 48000, 1000000), 21333);
    EXPECT_EQ(Rescaled(2048, 48000, 1000000), 42667);
    EXPECT_EQ(Rescaled(-1024, 48000, 1000000), -21333);
    EXPECT_EQ(Rescaled(1024, 44100, 1000000), 23220);
    EXPECT_EQ(Rescaled(7, 48000, 48000), 7);
}

TEST(PacketTimeStamp, DoesNotOverflowWithinOneYear)
{
    constexpr int64_t seconds = 365LL * 24 * 3600;
    EXPECT_EQ(Rescaled(seconds * 48000, 48000, 1000000), seconds * 1000000);
    EXPECT_EQ(Rescaled(seconds * 48000, 48000, std::numeric_limits<uint32_t>::max()),
              seconds * std::numeric_limits<uint32_t>::max());
}

TEST(PacketTimeStamp, StaysUnchangedWithoutRateOrPacket)
{
    EXPECT_EQ(Rescaled(5, 0, 1000), 5);
    EXPECT_EQ(Rescaled(5, 1000, 0), 5);
    RescalePacketTimeStamp(nullptr, 48000, 1000000);
}

} // namespace
