// The capture thread's loop, from the microphone's packets to encoded packets.
#include "capture_fixture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>

#include "aac_sound.h"

namespace {

using namespace velto_test;
using namespace velto;

constexpr char loopTag[] = "AudioCapture::LoopGetAudioBuffer";
constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";
constexpr char encodeTag[] = "AudioCapture::EncodeAudioFrame";

class CaptureLoop : public CaptureTest {
protected:
    size_t ReleasedPackets() { return audio.ReleasedFrames().size(); }

    // The samples in the frame that the loop is filling.
    std::vector<int16_t> Filled()
    {
        const AudioFrame &frame = probe.Frame();
        return {frame.samples, frame.samples + size_t{frame.fillCount} * frame.channelCount};
    }
    // Opens the stream and runs the loop on the test's thread, so that the frame can be inspected afterwards.
    // Ends the loop once it has read the delivered packets and then found the buffer empty `emptyPasses`
    // times.
    void RunLoopOnThisThread(int emptyPasses = 1);
};

void CaptureLoop::RunLoopOnThisThread(int emptyPasses)
{
    fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ASSERT_EQ(probe.InitAudioEncoder(), 0);
    IAudioClient *client = nullptr;
    IAudioCaptureClient *captureClient = nullptr;
    IAudioEndpointVolume *volume = nullptr;
    ASSERT_TRUE(probe.GetLoopBackAudioCapture(client, captureClient, volume));
    probe.SetStopped(false);
    probe.Frame().fillCount = 5; // the loop must empty the frame first
    const int packets = static_cast<int>(Microphone().packets.size());
    audio.Before(
        Method::CaptureGetBuffer, [&] { probe.SetStopped(true); }, packets + emptyPasses);
    probe.LoopGetAudioBuffer(captureClient, volume);
    captureClient->Release();
    client->Release();
    volume->Release();
    fakewin::CoUninitialize();
}

TEST_F(CaptureLoop, DoesNothingWithoutBothInterfaces)
{
    fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    IAudioClient *client = nullptr;
    IAudioCaptureClient *captureClient = nullptr;
    IAudioEndpointVolume *volume = nullptr;
    ASSERT_TRUE(probe.GetLoopBackAudioCapture(client, captureClient, volume));
    probe.SetStopped(false);
    probe.LoopGetAudioBuffer(nullptr, nullptr);
    probe.LoopGetAudioBuffer(nullptr, volume);
    probe.LoopGetAudioBuffer(captureClient, nullptr);
    EXPECT_EQ(fakewin::Count(fakewin::Call::Sleep), 0);
    probe.SetStopped(true);
    captureClient->Release();
    client->Release();
    volume->Release();
    fakewin::CoUninitialize();
    probe.Teardown();
}

TEST_F(CaptureLoop, LeavesWaitingPacketsOnceStopped)
{
    for (int packet = 0; packet < 5; ++packet) {
        audio.Deliver(QuietPacket(100));
    }
    audio.Before(
        Method::CaptureGetBuffer, [&] { probe.SetStopped(true); }, 2);
    RunLoopOnThisThread();
    EXPECT_EQ(ReleasedPackets(), 2U);
    EXPECT_EQ(probe.Frame().fillCount, 200U) << "the packet that was being read is kept";
    probe.Teardown();
}

TEST_F(CaptureLoop, ConvertsPacketToSixteenBitSamples)
{
    audio.Deliver(FloatPacket({1.0F, -1.0F, 0.5F, -0.5F, 2.0F, -2.0F, 0.0F, 0.25F}));
    RunLoopOnThisThread();
    EXPECT_EQ(Filled(), (std::vector<int16_t>{32767, -32767, 16383, -16383, 32767, -32767, 0, 8191}));
    probe.Teardown();
}

TEST_F(CaptureLoop, LimitsInfinityAndTurnsNanIntoSilence)
{
    const float infinity = std::numeric_limits<float>::infinity();
    audio.Deliver(FloatPacket({std::nanf(""), infinity, -infinity, 0.0F}));
    RunLoopOnThisThread();
    EXPECT_EQ(Filled(), (std::vector<int16_t>{0, 32767, -32767, 0}));
    probe.Teardown();
}

TEST_F(CaptureLoop, EncodesFrameExactlyWhenFull)
{
    std::vector<UINT32> sizes = {1, 480, 441, 1023, 479, 2048, 5, 643};
    UINT32 total = 0;
    for (const UINT32 frames : sizes) {
        audio.Deliver(QuietPacket(frames));
        total += frames;
    }
    ASSERT_EQ(total, 5120U);
    audio.Deliver(QuietPacket(7));
    RunLoopOnThisThread();
    EXPECT_EQ(probe.Frame().fillCount, 7U);
    // The encoder returns the first packet with the second frame.
    EXPECT_EQ(probe.Packets().DataCount(), 4);
    EXPECT_EQ(audio.ReleasedFrames().size(), sizes.size() + 1);
    probe.Teardown();
}

TEST_F(CaptureLoop, ReadsAllWaitingPacketsWithoutSleeping)
{
    for (int packet = 0; packet < 20; ++packet) {
        audio.Deliver(QuietPacket(480));
    }
    RunLoopOnThisThread();
    EXPECT_EQ(fakewin::Waits()[0], (fakewin::WaitRecord{fakewin::Call::Sleep, nullptr, 10}));
    EXPECT_EQ(fakewin::Count(fakewin::Call::Sleep), 2)
        << "one before the pass that reads the packets, one before the empty pass";
    probe.Teardown();
}

TEST_F(CaptureLoop, LogsEmptyBuffer)
{
    RunLoopOnThisThread(3);
    ExpectLine(errorLevel, L"Capture audio frame failed! err=0x08890001", loopTag, 3);
    probe.Teardown();
}

TEST_F(CaptureLoop, LogsFailedGetBufferAndContinues)
{
    audio.Deliver(QuietPacket(480));
    audio.Fail(Method::CaptureGetBuffer, AUDCLNT_E_BUFFER_ERROR);
    Open();
    EXPECT_TRUE(Eventually([&] { return ReleasedPackets() == 1; }));
    ExpectLine(errorLevel, L"Capture audio frame failed! err=0x88890018", loopTag);
}

TEST_F(CaptureLoop, LogsLostDeviceOnEveryPass)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    audio.Invalidate(L"microphone");
    EXPECT_TRUE(Eventually([&] {
        return fakes::LogRecorder::Instance().Count(errorLevel, L"Capture audio frame failed! err=0x88890004",
                                                    loopTag) > 3;
    }));
    EXPECT_FALSE(probe.Stopped());
    EXPECT_EQ(probe.State(), 0);
}

TEST_F(CaptureLoop, LogsFailedReleaseBufferAndContinues)
{
    audio.Fail(Method::CaptureReleaseBuffer, AUDCLNT_E_SERVICE_NOT_RUNNING);
    audio.Deliver(QuietPacket(480));
    audio.Deliver(QuietPacket(480));
    RunLoopOnThisThread();
    ExpectLine(errorLevel, L"ReleaseBuffer Capture audio data failed! err=0x88890010", loopTag);
    EXPECT_EQ(ReleasedPackets(), 2U);
    EXPECT_EQ(fakewin::Count(fakewin::Call::Sleep), 3) << "also one after the failure";
    probe.Teardown();
}

TEST_F(CaptureLoop, LogsFailedPacketSizeAndContinues)
{
    audio.Fail(Method::GetNextPacketSize, AUDCLNT_E_SERVICE_NOT_RUNNING);
    audio.Deliver(QuietPacket(480));
    audio.Deliver(QuietPacket(480));
    RunLoopOnThisThread();
    ExpectLine(errorLevel, L"Get next audio packet size failed! err=0x88890010", loopTag);
    EXPECT_EQ(ReleasedPackets(), 2U);
    EXPECT_EQ(fakewin::Count(fakewin::Call::Sleep), 3) << "also one after the failure";
    probe.Teardown();
}

TEST_F(CaptureLoop, DropsAndLogsEachPacketOfMutedMicrophone)
{
    Microphone().muted = TRUE;
    for (int packet = 0; packet < 10; ++packet) {
        audio.Deliver(QuietPacket(1024));
    }
    RunLoopOnThisThread();
    EXPECT_EQ(probe.Packets().DataCount(), 0);
    EXPECT_EQ(probe.Frame().fillCount, 0U);
    EXPECT_EQ(audio.ReleasedFrames(), std::vector<UINT32>(10, 1024));
    int lines = 0;
    for (const LogEntry &entry : fakes::LogRecorder::Instance().Entries()) {
        if (entry.text == L"Audio device is disabled") {
            EXPECT_EQ(entry.tag, "?"); // written to the channel only
            EXPECT_EQ(entry.level, errorLevel);
            ++lines;
        }
    }
    EXPECT_EQ(lines, 10);
    probe.Teardown();
}

TEST_F(CaptureLoop, DropsSilentPacketAndKeepsFrameFill)
{
    audio.Deliver(QuietPacket(300));
    audio.Deliver(QuietPacket(480, AUDCLNT_BUFFERFLAGS_SILENT));
    audio.Deliver(QuietPacket(100, AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY));
    RunLoopOnThisThread();
    EXPECT_EQ(probe.Frame().fillCount, 400U);
    probe.Teardown();
}

TEST_F(CaptureLoop, TreatsUnreadableMuteStateAsNotMuted)
{
    audio.Fail(Method::GetMute, E_FAIL);
    Microphone().muted = TRUE;
    audio.Deliver(QuietPacket(100));
    RunLoopOnThisThread();
    EXPECT_EQ(probe.Frame().fillCount, 100U);
    probe.Teardown();
}

TEST_F(CaptureLoop, LogsAndDropsPacketWithoutData)
{
    audio.Deliver(QuietPacket(100));
    audio.Fail(Method::CaptureGetBuffer, fakes::nullResult);
    RunLoopOnThisThread();
    ExpectLine(errorLevel, L"Error while converting", convertTag);
    EXPECT_EQ(probe.Frame().fillCount, 0U);
    EXPECT_EQ(audio.ReleasedFrames(), std::vector<UINT32>{100});
    probe.Teardown();
}

struct ConvertFault {
    fakeffmpeg::Call call;
    int64_t result;
    const wchar_t *line;
};
class CaptureConversionFault : public CaptureLoop, public ::testing::WithParamInterface<ConvertFault> {};

TEST_P(CaptureConversionFault, IsLoggedAndDropsOnlyItsPacket)
{
    fakeffmpeg::Script().Fail(GetParam().call, GetParam().result);
    audio.Deliver(QuietPacket(100));
    audio.Deliver(QuietPacket(30));
    RunLoopOnThisThread();
    ExpectLine(errorLevel, GetParam().line, convertTag);
    EXPECT_EQ(probe.Frame().fillCount, 30U);
    EXPECT_EQ(audio.ReleasedFrames(), (std::vector<UINT32>{100, 30}));
    probe.Teardown();
}

// FFmpeg calculates no size for zero frames.
INSTANTIATE_TEST_SUITE_P(
    Faults, CaptureConversionFault,
    ::testing::Values(ConvertFault{fakeffmpeg::Call::av_samples_alloc_array_and_samples, -12,
                                   L"Could not allocate destination samples"},
                      ConvertFault{fakeffmpeg::Call::swr_convert, -12, L"Error while converting"},
                      ConvertFault{fakeffmpeg::Call::swr_convert, 0, L"Could not get sample buffer size"},
                      ConvertFault{fakeffmpeg::Call::av_samples_get_buffer_size, -12,
                                   L"Could not get sample buffer size"}));

TEST_F(CaptureLoop, AllocatesAlignedSamplesAndMeasuresThemUnaligned)
{
    audio.Deliver(QuietPacket(100));
    RunLoopOnThisThread();
    EXPECT_EQ(fakeffmpeg::Alignments(), (std::vector{0, 1}));
    EXPECT_EQ(fakeffmpeg::LogOffsets(), std::vector{0});
    probe.Teardown();
}

TEST_F(CaptureLoop, LogsFailedAllocationForEmptyPacket)
{
    audio.Deliver(QuietPacket(0));
    RunLoopOnThisThread();
    ExpectLine(errorLevel, L"Could not allocate destination samples", convertTag);
    probe.Teardown();
}

// The loop reads any samples as 32-bit floats. A packet of 8-bit or 16-bit samples has fewer floats than
// samples: the loop reads each byte at most once and none past the end; silence fills the rest.
TEST_F(CaptureLoop, ReadsNarrowSamplesAsFloatsWithinTheirBuffer)
{
    for (const uint16_t bits : {8, 16}) {
        Microphone().mixFormat.bits = bits;
        CapturedPacket packet;
        packet.frames = 400;
        packet.data.resize(size_t{400} * 2 * bits / 8, 0x3F); // 0.747 as a float
        audio.Deliver(packet);
        RunLoopOnThisThread();
        const std::vector<int16_t> filled = Filled();
        ASSERT_EQ(filled.size(), 800U);
        const size_t floats = packet.data.size() / 4;
        for (size_t i = 0; i < filled.size(); ++i) {
            ASSERT_EQ(filled[i], i < floats ? static_cast<int16_t>(0x1.7e7e7ep-1F * 32767) : 0) << i;
        }
        probe.Teardown();
    }
}

// Packets of 32-bit integers, with 32 or 24 valid bits, are read as floats, too: the loop looks at the size
// of a sample and not at the sub-format.
TEST_F(CaptureLoop, ReadsBitsOf32BitIntegersAsFloats)
{
    const std::vector<uint32_t> samples = {0x3F800000, 0xBF800000, 0x3F000000, 0xBF000000, 0xC0000000,
                                           0x40000000, 0x7F000000, 0x7FFFFF00, 0xFFFFFF00, 0x00000100};
    for (const uint16_t validBits : {32, 24}) {
        Microphone().mixFormat.isFloat = false;
        Microphone().mixFormat.validBits = validBits;
        CapturedPacket packet;
        packet.frames = static_cast<UINT32>(samples.size() / 2);
        packet.data.resize(samples.size() * sizeof(uint32_t));
        std::memcpy(packet.data.data(), samples.data(), packet.data.size());
        audio.Deliver(packet);
        RunLoopOnThisThread();
        EXPECT_EQ(Filled(),
                  (std::vector<int16_t>{32767, -32767, 16383, -16383, -32767, 32767, 32767, 0, 0, 0}))
            << validBits;
        probe.Teardown();
    }
}

TEST_F(CaptureLoop, ConvertsMonoAt16000HzToStereoAt48000Hz)
{
    Microphone().mixFormat = {1, 32, 16000, true, 4};
    std::vector<float> tone(16000);
    for (size_t i = 0; i < tone.size(); ++i) {
        tone[i] = 0.5F * std::sin(static_cast<float>(i) * 0.2F);
    }
    for (size_t at = 0; at < tone.size(); at += 160) {
        audio.Deliver(FloatPacket({tone.begin() + static_cast<std::ptrdiff_t>(at),
                                   tone.begin() + static_cast<std::ptrdiff_t>(at) + 160},
                                  1));
    }
    RunLoopOnThisThread();
    const std::vector<int16_t> filled = Filled();
    for (size_t i = 0; i < filled.size(); i += 2) {
        ASSERT_EQ(filled[i], filled[i + 1]);
    }
    // 48000 samples less the converter's delay fill 46 frames. The first frame yields no packet.
    EXPECT_EQ(probe.Packets().DataCount(), 45);
    probe.Teardown();
}

// --- Encoding --------------------------------------------------------------------------------

TEST_F(CaptureLoop, ProducesPacketsThatDecodeToMicrophoneSound)
{
    std::vector<float> tone(size_t{48000} * 2);
    for (size_t i = 0; i < tone.size() / 2; ++i) {
        tone[2 * i] = 0.4F * std::sin(static_cast<float>(i) * 0.6F);
        tone[2 * i + 1] = 0.3F * std::sin(static_cast<float>(i) * 0.37F);
    }
    for (size_t at = 0; at < tone.size(); at += 960) {
        audio.Deliver(FloatPacket({tone.begin() + static_cast<std::ptrdiff_t>(at),
                                   tone.begin() + static_cast<std::ptrdiff_t>(at) + 960}));
    }
    Open();
    AacSound sound;
    for (int packet = 0; packet < 45; ++packet) {
        const uint32_t size = ReadPacket();
        ASSERT_GT(size, 0U) << packet;
        sound.Add(buffer.data(), size);
    }
    // The codec alone stays above 18 dB. A shift by one sample would leave 8 dB.
    EXPECT_GT(sound.SignalToNoiseDb(tone), 18.0);
}

TEST_F(CaptureLoop, StopsCaptureAndUnregistersNotifierWhenEncoderFails)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::avcodec_send_frame, -1094995529, 2);
    for (int packet = 0; packet < 4; ++packet) {
        audio.Deliver(QuietPacket(1024));
    }
    EXPECT_TRUE(AwaitLine(L"Error code: -104", "AudioCapture::OnError"));
    EXPECT_EQ(LogOf(encodeTag).size(), 1U);
    EXPECT_EQ(LogOf(encodeTag)[0].text.find(L"AAC encode failed! Err=-"), 0U);
    EXPECT_TRUE(Eventually([&] { return probe.State() == -10000; }));
    EXPECT_EQ(audio.Clients()[1].stops, 1);
    EXPECT_EQ(probe.Notifier(), nullptr);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    uint32_t size = 77;
    probe.Read(buffer.data(), size);
    EXPECT_EQ(size, 77U);
    ExpectLine(errorLevel, L"m_bAtomStop is stop", "AudioCapture::GetAudioData");
}

TEST_F(CaptureLoop, ErrorIsLoggedAndStopsCaptureAndNotifierBeforeItReturns)
{
    ASSERT_TRUE(probe.Packets().Init(1));
    probe.SetStopped(false);
    capture->Start();
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    probe.OnError(CAPTURE_ENCODING_FAILED);
    ExpectLine(errorLevel, L"Error code: -104", "AudioCapture::OnError");
    EXPECT_TRUE(probe.Stopped());
    EXPECT_EQ(probe.Notifier(), nullptr);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    probe.Packets().PushFree(probe.Packets().PopFree()); // a stopped queue ignores it
    EXPECT_EQ(probe.Packets().PopFree(), nullptr);
    probe.Teardown();
}

// The test sets only the stop flag, so that the packets of the drain can still be queued.
TEST_F(CaptureLoop, DrainsEncoderThenStopsQueueThenClientAtEnd)
{
    audio.Deliver(QuietPacket(1024));
    audio.Deliver(QuietPacket(1024));
    Open();
    ASSERT_TRUE(Eventually([&] { return probe.Packets().DataCount() == 1; }));
    int queued = 0;
    bool queueStopped = false;
    audio.Before(Method::Stop, [&] {
        queued = probe.Packets().DataCount();
        probe.Packets().PushData(probe.Packets().PopData()); // a stopped queue ignores it
        queueStopped = probe.Packets().DataCount() == queued - 1;
    });
    probe.SetStopped(true);
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_EQ(queued, 3) << "the priming and two frames";
    EXPECT_TRUE(queueStopped);
}

TEST_F(CaptureLoop, KeepsPacketOutOfQueuesWhenEncodingFails)
{
    ASSERT_EQ(probe.InitAudioEncoder(), 0);
    probe.Encoder().Close();
    probe.SetStopped(false);
    probe.Frame().fillCount = 1024;
    EXPECT_FALSE(probe.EncodeAudioFrame(&probe.Frame()));
    EXPECT_TRUE(probe.Stopped());
    int free = 0;
    while (probe.Packets().PopFree() != nullptr) {
        ++free;
    }
    EXPECT_EQ(free, 468);
    EXPECT_EQ(probe.Packets().DataCount(), 0);
    probe.Teardown();
}

TEST_F(CaptureLoop, GivesUpEncodingWhenQueueIsStopped)
{
    EXPECT_FALSE(probe.EncodeAudioFrame(nullptr));
    EXPECT_TRUE(LogOf(encodeTag).empty());
}

TEST_F(CaptureLoop, QueuesNoPacketForFirstFrameButOnePerDrainCall)
{
    ASSERT_EQ(probe.InitAudioEncoder(), 0);
    probe.Frame().fillCount = 1024;
    EXPECT_TRUE(probe.EncodeAudioFrame(&probe.Frame()));
    EXPECT_EQ(probe.Packets().DataCount(), 0);
    int drained = 0;
    while (probe.EncodeAudioFrame(nullptr)) {
        ++drained;
    }
    EXPECT_EQ(drained, 2) << "the priming and one frame";
    EXPECT_EQ(probe.Packets().DataCount(), drained);
    probe.Packets().Stop();
    int free = 0;
    while (probe.Packets().PopFree() != nullptr) {
        ++free;
    }
    EXPECT_EQ(free, 469 - drained) << "calls without a packet have returned theirs";
    probe.Teardown();
}

// The time stamps count the microphone's samples, although the encoder's rate is the target's.
TEST_F(CaptureLoop, RescalesTimeStampsFromMicrophoneRateToMicroseconds)
{
    struct Row {
        uint32_t rateHz;
        int64_t microseconds; // the duration of a full frame
    };
    for (const Row &row : {Row{44100, 23220}, Row{48000, 21333}, Row{96000, 10667}}) {
        Microphone().mixFormat.rateHz = row.rateHz;
        ASSERT_EQ(probe.InitAudioEncoder(), 0);
        for (int frame = 0; frame < 4; ++frame) {
            probe.Frame().fillCount = 1024;
            ASSERT_TRUE(probe.EncodeAudioFrame(&probe.Frame()));
        }
        ASSERT_EQ(probe.Packets().DataCount(), 3);
        // The encoder's priming has negative time stamps.
        EXPECT_EQ(probe.Packets().PopData()->timeStamp, -row.microseconds);
        EXPECT_EQ(probe.Packets().PopData()->timeStamp, 0);
        EXPECT_EQ(probe.Packets().PopData()->timeStamp, row.microseconds);
        probe.Teardown();
    }
}

TEST_F(CaptureLoop, BlocksOnFullQueueUntilHostReadsAgain)
{
    Microphone().source = [] { return QuietPacket(480); };
    Open();
    ASSERT_TRUE(Eventually([&] { return probe.Packets().DataCount() == 469; }));
    // The loop can read up to three more microphone packets until the next frame is full and blocks for lack
    // of a free packet.
    constexpr int packetsPerFrame = 3;
    const int full = audio.Count(Method::CaptureGetBuffer);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const int blocked = audio.Count(Method::CaptureGetBuffer);
    EXPECT_LE(blocked, full + packetsPerFrame);
    EXPECT_GT(ReadPacket(), 0U);
    EXPECT_TRUE(Eventually([&] { return audio.Count(Method::CaptureGetBuffer) > blocked; }));
    EXPECT_TRUE(Eventually([&] { return probe.Packets().DataCount() == 469; }));
}

TEST_F(CaptureLoop, EndsWhenStoppedWhileQueueIsFull)
{
    Microphone().source = [] { return QuietPacket(480); };
    Open();
    ASSERT_TRUE(Eventually([&] { return probe.Packets().DataCount() == 469; }));
    Close();
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_EQ(probe.Packets().DataCount(), 0);
}

} // namespace
