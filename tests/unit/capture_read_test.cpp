// Reading packets on the host's thread.
#include "capture_fixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <numeric>
#include <thread>

#include "tests/fakes/deadline_hook.h"
#include "tests/fakes/fake_deadline.h"

namespace {

using namespace velto_test;
using namespace velto;

using std::chrono::milliseconds;

constexpr char readTag[] = "AudioCapture::GetAudioData";
constexpr uint32_t longRequest = 100000000; // more than eight minutes of waiting
constexpr milliseconds longWait{520835};

class CaptureRead : public CaptureTest {
protected:
    // Initialises the packet queue without starting the capture's threads.
    void InitQueue(uint32_t packets)
    {
        probe.Packets().SetPacketBufferSize(64);
        ASSERT_TRUE(probe.Packets().Init(packets));
        probe.SetStopped(false);
    }
    void Queue(const std::vector<uint8_t> &bytes)
    {
        AVEncodePacket *packet = probe.Packets().PopFree();
        std::copy(bytes.begin(), bytes.end(), packet->data);
        packet->size = static_cast<uint32_t>(bytes.size());
        probe.Packets().PushData(packet);
    }
    // Waits until a read waits with the timeout of `longRequest`.
    static bool AwaitWaitingRead(AudioCaptureProbe &reading)
    {
        if (!Eventually([] { return fakes::Timeouts() == std::vector{longWait}; })) {
            return false;
        }
        reading.PassReadLock();
        return true;
    }
    ~CaptureRead() override
    {
        Close();
        probe.Packets().StopAndClear(); // tests that use InitQueue have no init thread to do this
    }
};

TEST_F(CaptureRead, LogsAndKeepsSizeWhenStopped)
{
    uint32_t size = 1234;
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 1234U);
    ExpectLine(errorLevel, L"m_bAtomStop is stop", readTag);
}

TEST_F(CaptureRead, WaitsPlayingTimeOfRequestAndReturnsSizeZeroWithoutPacket)
{
    InitQueue(2);
    for (const uint32_t asked : {0U, 3840U, 7680U}) {
        uint32_t size = asked;
        probe.Read(buffer.data(), size);
        EXPECT_EQ(size, 0U);
    }
    EXPECT_EQ(fakes::Timeouts(), (std::vector{milliseconds(22), milliseconds(22), milliseconds(42)}));
    EXPECT_TRUE(LogOf(readTag).empty());
}

TEST_F(CaptureRead, DoesNotWaitWhenSizeWrapsToNegativeTime)
{
    InitQueue(2);
    uint32_t size = 107374183; // wraps to a wait of minus nine minutes
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(fakes::Timeouts(), std::vector{milliseconds(-559238)});
}

TEST_F(CaptureRead, DoesNotWaitWhenPacketIsQueued)
{
    InitQueue(1);
    Queue({1});
    uint32_t size = 3840;
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 1U);
    EXPECT_TRUE(fakes::Timeouts().empty());
}

// A capture may stop between a read's look at the stop flag and its wait. The wait must not begin then:
// nothing would end it.
TEST_F(CaptureRead, DoesNotWaitWhenCaptureStopsJustBefore)
{
    InitQueue(1);
    capture->Stop();
    probe.WaitForData(3840);
    EXPECT_TRUE(fakes::Timeouts().empty());
}

// Otherwise the wait would miss a notification between its look at the queue and its begin.
TEST_F(CaptureRead, NotificationsWaitUntilReadWaits)
{
    AVPktBufQueue packets;
    PacketReader reader(packets);
    const std::atomic<bool> stop{false};
    for (const auto notify : {&PacketReader::NotifyPacket, &PacketReader::NotifyStop}) {
        std::future<void> notification;
        auto duringDecision = std::future_status::ready;
        fakes::BeforeNextDeadline([&] {
            notification = std::async(std::launch::async, [&] { (reader.*notify)(); });
            duringDecision = notification.wait_for(milliseconds(30));
        });
        reader.Wait(milliseconds(22), stop);
        notification.get();
        EXPECT_EQ(duringDecision, std::future_status::timeout);
    }
}

TEST_F(CaptureRead, ClearingWaitsForReadThatCopies)
{
    InitQueue(1);
    Queue({1});
    auto reading = probe.HoldReads();
    auto clearing = std::async(std::launch::async, [this] { probe.Teardown(); });
    EXPECT_EQ(clearing.wait_for(milliseconds(30)), std::future_status::timeout);
    EXPECT_EQ(probe.Packets().DataCount(), 1);
    reading.unlock();
    clearing.get();
    EXPECT_EQ(probe.Packets().DataCount(), 0);
}

TEST_F(CaptureRead, ReturnsOneWholePacketPerReadInOrder)
{
    InitQueue(3);
    Queue({1, 2, 3});
    Queue({4});
    Queue({5, 6});
    for (const std::vector<uint8_t> &expected : {std::vector<uint8_t>{1, 2, 3}, {4}, {5, 6}}) {
        uint32_t size = 1; // smaller than a packet: the size only determines the longest wait
        probe.Read(buffer.data(), size);
        ASSERT_EQ(size, expected.size());
        EXPECT_EQ(std::vector<uint8_t>(buffer.begin(), buffer.begin() + size), expected);
    }
    EXPECT_EQ(probe.Packets().DataCount(), 0);
}

TEST_F(CaptureRead, ReturnsReadPacketsToFreeQueue)
{
    InitQueue(1);
    for (uint8_t round = 0; round < 5; ++round) {
        Queue({round});
        uint32_t size = 3840;
        probe.Read(buffer.data(), size);
        ASSERT_EQ(size, 1U);
        EXPECT_EQ(buffer[0], round);
    }
}

TEST_F(CaptureRead, ReturnsSizeZeroForNullBufferAndKeepsPacket)
{
    InitQueue(1);
    Queue({1, 2});
    uint32_t size = 3840;
    probe.Read(nullptr, size);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(probe.Packets().DataCount(), 1);
}

TEST_F(CaptureRead, DoesNotReturnPacketWithoutBufferToFreeQueue)
{
    InitQueue(2);
    AVEncodePacket *packet = probe.Packets().PopFree();
    packet->ReleaseBuffer();
    probe.Packets().PushData(packet);
    uint32_t size = 3840;
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 3840U);
    EXPECT_NE(probe.Packets().PopFree(), nullptr);
    probe.Packets().Stop();
    EXPECT_EQ(probe.Packets().PopFree(), nullptr);
}

TEST_F(CaptureRead, ReturnsSizeZeroForEmptyPacketAndRecyclesIt)
{
    InitQueue(1);
    Queue({});
    uint32_t size = 3840;
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 0U);
    EXPECT_NE(probe.Packets().PopFree(), nullptr);
}

TEST_F(CaptureRead, EndsLongWaitWhenStopped)
{
    InitQueue(1);
    uint32_t size = longRequest;
    auto read = std::async(std::launch::async, [&] { probe.Read(buffer.data(), size); });
    EXPECT_TRUE(AwaitWaitingRead(probe));
    capture->Stop();
    ExpectReturns(read, probe);
    EXPECT_EQ(size, 0U);
}

TEST_F(CaptureRead, EndsWaitWhenPacketArrives)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    uint32_t size = longRequest;
    auto read = std::async(std::launch::async, [&] { probe.Read(buffer.data(), size); });
    EXPECT_TRUE(AwaitWaitingRead(probe));
    audio.Deliver(QuietPacket(1024));
    audio.Deliver(QuietPacket(1024)); // the encoder returns its first packet with the second frame
    ExpectReturns(read, probe);
    EXPECT_GT(size, 0U);
    EXPECT_LT(size, 8192U);
}

TEST_F(CaptureRead, DeliversEachPacketToOneOfTwoReaders)
{
    constexpr uint16_t packets = 2000;
    InitQueue(8);
    std::atomic<size_t> total{0};
    std::vector<uint16_t> delivered[2]; // by each reader
    std::vector<std::thread> readers;
    for (std::vector<uint16_t> &numbers : delivered) {
        readers.emplace_back([&] {
            uint8_t bytes[64];
            while (total < packets) {
                uint32_t size = 1;
                probe.Read(bytes, size);
                if (size == 2) {
                    numbers.push_back(static_cast<uint16_t>(bytes[0] | bytes[1] << 8));
                    ++total;
                }
            }
        });
    }
    std::vector<uint16_t> sent(packets);
    std::iota(sent.begin(), sent.end(), uint16_t{0});
    for (const uint16_t number : sent) {
        Queue({static_cast<uint8_t>(number & 0xFF), static_cast<uint8_t>(number >> 8)});
    }
    for (std::thread &reader : readers) {
        reader.join();
    }
    for (const std::vector<uint16_t> &numbers : delivered) {
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end())) << "each reader gets packets in order";
    }
    std::vector<uint16_t> all = delivered[0];
    all.insert(all.end(), delivered[1].begin(), delivered[1].end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, sent);
}

// --- The current capture -----------------------------------------------------------------------

TEST_F(CaptureRead, ReturnsSizeZeroWithoutCurrentCapture)
{
    uint32_t size = 77;
    AudioCapture::GetAudioData(buffer.data(), size);
    EXPECT_EQ(size, 0U);
}

TEST_F(CaptureRead, ReadsFromCurrentCapture)
{
    InitQueue(1);
    Queue({9});
    AudioCapture::SetCurrent(capture.get());
    EXPECT_EQ(AudioCapture::Current(), capture.get());
    uint32_t size = 3840;
    AudioCapture::GetAudioData(buffer.data(), size);
    EXPECT_EQ(size, 1U);
    AudioCapture::SetCurrent(nullptr);
}

TEST_F(CaptureRead, DeletionWaitsForReadThatStopEnds)
{
    auto *other = new AudioCapture;
    AudioCaptureProbe otherProbe(*other);
    otherProbe.Packets().SetPacketBufferSize(64);
    ASSERT_TRUE(otherProbe.Packets().Init(1));
    otherProbe.SetStopped(false);
    AudioCapture::SetCurrent(other);
    uint32_t size = longRequest;
    std::thread reader([&] { AudioCapture::GetAudioData(buffer.data(), size); });
    EXPECT_TRUE(AwaitWaitingRead(otherProbe));

    AVEncodePacket *packet = otherProbe.Packets().PopFree();
    packet->data[0] = 7;
    packet->size = 1;
    otherProbe.Packets().PushData(packet); // does not wake the read
    auto readBlocked = otherProbe.HoldReads();
    other->Stop(); // wakes the read, which blocks before it takes the packet
    AudioCapture *taken = AudioCapture::TakeCurrent();
    EXPECT_EQ(taken, other);
    EXPECT_EQ(AudioCapture::Current(), nullptr);
    auto deletion = std::async(std::launch::async, [taken] { AudioCapture::DeleteTaken(taken); });
    EXPECT_EQ(deletion.wait_for(milliseconds(30)), std::future_status::timeout);
    readBlocked.unlock();
    deletion.get();
    reader.join();
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(buffer[0], 7);
}

// The capture thread, for which the deletion waits, does not end before the test allows it.
TEST_F(CaptureRead, DoesNotWaitForRunningDeletion)
{
    auto *other = new AudioCapture;
    other->SetTarget(48000, 2, 1);
    std::atomic<bool> mayEnd{false};
    audio.Before(Method::Stop, [&] { Eventually([&] { return mayEnd.load(); }); });
    ASSERT_EQ(other->Prepare(), 0);
    ASSERT_TRUE(AwaitLoop());
    const fakewin::WaitRecord wait{fakewin::Call::WaitForSingleObject,
                                   AudioCaptureProbe(*other).InitThreadHandle(), INFINITE};
    other->Stop();
    auto deletion = std::async(std::launch::async, [other] { AudioCapture::DeleteTaken(other); });
    EXPECT_TRUE(Eventually([&] {
        const auto waits = fakewin::Waits();
        return std::find(waits.begin(), waits.end(), wait) != waits.end();
    }));
    uint32_t size = 77;
    auto read = std::async(std::launch::async, [&] { AudioCapture::GetAudioData(buffer.data(), size); });
    EXPECT_EQ(read.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    mayEnd = true;
    read.get();
    deletion.get();
    EXPECT_EQ(size, 0U) << "no capture is open";
}

} // namespace
