// Reading packets on the host's thread.
#include "capture_fixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <thread>

namespace {

using namespace velto_test;
using namespace velto;

constexpr char readTag[] = "AudioCapture::GetAudioData";

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

TEST_F(CaptureRead, ReturnsSizeZeroAfterWaitWithoutPacket)
{
    InitQueue(2);
    for (const uint32_t asked : {0U, 3840U}) {
        uint32_t size = asked;
        const auto begin = std::chrono::steady_clock::now();
        probe.Read(buffer.data(), size);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
        EXPECT_EQ(size, 0U);
    }
    EXPECT_TRUE(LogOf(readTag).empty());
}

TEST_F(CaptureRead, ReturnsWhenSizeWrapsToNegativeWait)
{
    InitQueue(2);
    uint32_t size = 107374183; // wraps to a wait of minus nine minutes
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 0U);
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
    std::atomic<bool> returned{false};
    std::thread reader([&] {
        uint32_t size = 100000000; // more than eight minutes
        probe.Read(buffer.data(), size);
        EXPECT_EQ(size, 0U);
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned);
    capture->Stop();
    reader.join();
}

TEST_F(CaptureRead, EndsWaitWhenPacketArrives)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    std::thread speaker([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        for (int packet = 0; packet < 3; ++packet) {
            audio.Deliver(QuietPacket(1024));
        }
    });
    uint32_t size = 100000000;
    probe.Read(buffer.data(), size);
    EXPECT_GT(size, 0U);
    EXPECT_LT(size, 8192U);
    speaker.join();
}

TEST_F(CaptureRead, DeliversEachPacketToOneOfTwoReaders)
{
    InitQueue(8);
    std::atomic<int> read{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 2; ++reader) {
        readers.emplace_back([&] {
            uint8_t bytes[64];
            while (read < 2000) {
                uint32_t size = 1;
                probe.Read(bytes, size);
                read += size == 1 ? 1 : 0;
            }
        });
    }
    for (int packet = 0; packet < 2000; ++packet) {
        Queue({1});
    }
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_EQ(read, 2000);
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

TEST_F(CaptureRead, SurvivesDeletionOfCaptureDuringLongRead)
{
    auto other = std::make_unique<AudioCapture>();
    AudioCaptureProbe otherProbe(*other);
    otherProbe.SetStopped(false);
    AudioCapture::SetCurrent(other.get());
    std::atomic<bool> reading{false};
    std::thread reader([&] {
        reading = true;
        uint32_t size = 100000000;
        AudioCapture::GetAudioData(buffer.data(), size);
        EXPECT_TRUE(size == 0 || size == 100000000);
    });
    ASSERT_TRUE(Eventually([&] { return reading.load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    other.release()->Stop();
    AudioCapture::DeleteTaken(AudioCapture::TakeCurrent());
    reader.join();
    EXPECT_EQ(AudioCapture::Current(), nullptr);
}

// On a slow machine the reader may start too late to find the capture. The read then returns size 0, and the
// test retries.
TEST_F(CaptureRead, DeletionWaitsForRunningRead)
{
    uint32_t size = 0;
    while (size == 0) {
        auto *other = new AudioCapture;
        AudioCaptureProbe otherProbe(*other);
        otherProbe.Packets().SetPacketBufferSize(64);
        ASSERT_TRUE(otherProbe.Packets().Init(1));
        AVEncodePacket *packet = otherProbe.Packets().PopFree();
        packet->size = 1;
        otherProbe.Packets().PushData(packet);
        otherProbe.SetStopped(false);
        AudioCapture::SetCurrent(other);

        auto readsBlocked = otherProbe.HoldReads();
        std::thread reader([&] {
            size = 3840;
            AudioCapture::GetAudioData(buffer.data(), size);
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        AudioCapture *taken = AudioCapture::TakeCurrent();
        auto deletion = std::async(std::launch::async, [&] { AudioCapture::DeleteTaken(taken); });
        const bool waited = deletion.wait_for(std::chrono::milliseconds(30)) == std::future_status::timeout;
        readsBlocked.unlock();
        reader.join();
        deletion.get();
        EXPECT_TRUE(waited || size == 0);
    }
    EXPECT_EQ(size, 1U);
}

} // namespace
