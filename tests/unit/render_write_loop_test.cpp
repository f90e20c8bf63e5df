// Writing a converted block into the endpoint buffer.
#include "render_write_loop_fixture.h"

namespace {

using namespace velto_test;

// --- PlayAudio -------------------------------------------------------------------------------

TEST_F(RenderWriteLoop, WritesBlockThatFitsAtOnce)
{
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.RequestedFrames(), std::vector<UINT32>{1024});
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), 1);
    EXPECT_TRUE(Waits().empty()) << "no rest, so no wait";
}

TEST_F(RenderWriteLoop, LogsAndDropsEveryBlockWithoutClient)
{
    audio.Invalidate(L"speakers");
    audio.Fail(Method::Activate, E_FAIL, 1, 2);
    audio.NotifyPropertyChanged(L"speakers");
    Play(MakeBlock(1));
    ClearLog();
    Play(MakeBlock(2));
    Play(MakeBlock(3));
    ExpectLine(errorLevel, DroppedBlock(bufferFrames), playTag, 2);
    EXPECT_EQ(Log().size(), 2u);
    audio.NotifyPropertyChanged(L"speakers");
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block) << "the dropped blocks are not played later";
}

TEST_F(RenderWriteLoop, LogsBufferSizeAndDropsBlockWhenDeviceChangeFails)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, E_FAIL);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(block);
    ExpectLine(errorLevel, DroppedBlock(bufferFrames), playTag);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoop, LogsAndDropsBlockThatCannotBeConverted)
{
    player->PlayAudio(nullptr, 4096);
    ExpectLine(errorLevel, L"AudioPlayerWas dstFrames < 0", playTag);
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), 0);
}

// --- Preconditions ---------------------------------------------------------------------------

TEST_F(RenderWriteLoop, WritesNothingForEmptyOutput)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    probe.OutputBytes() = 0;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

TEST_F(RenderWriteLoop, WritesNothingWhenRendererIsNotOpen)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    probe.SetOpen(false);
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

TEST_F(RenderWriteLoop, WritesNothingWithoutFrameSize)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    probe.FrameBytes() = 0;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

TEST_F(RenderWriteLoop, WritesNothingWithoutRenderClient)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    IAudioRenderClient *client = std::exchange(probe.RenderClient(), nullptr);
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
    probe.RenderClient() = client;
}

TEST_F(RenderWriteLoop, WritesNothingWithoutOutputSamples)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    uint8_t *plane = std::exchange(probe.OutputBuffer()[0], nullptr);
    probe.AudioWriteToWasClient();
    probe.OutputBuffer()[0] = plane;
    uint8_t **buffer = std::exchange(probe.OutputBuffer(), nullptr);
    probe.AudioWriteToWasClient();
    probe.OutputBuffer() = buffer;
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

// --- A full buffer ---------------------------------------------------------------------------

TEST_F(RenderWriteLoop, DropsBlockAfterNineRetriesOnFullBuffer)
{
    Speakers().constantPadding = bufferFrames;
    Play(block);
    std::vector<LogEntry> lines;
    std::vector<WaitRecord> waits;
    for (int retry = 0; retry <= 8; ++retry) {
        lines.push_back({errorLevel, RetryLine(retry), writeTag});
        waits.push_back(OneMillisecond());
        waits.push_back(BufferWait());
    }
    EXPECT_EQ(Log(), lines);
    EXPECT_EQ(Waits(), waits);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoop, CountsRetriesFromZeroAfterDroppedBlock)
{
    Speakers().paddingScript.assign(9, bufferFrames);
    Play(MakeBlock(7));
    ClearLog();
    Speakers().paddingScript.assign(8, bufferFrames);
    Play(block);
    EXPECT_EQ(Log().size(), 8u);
    EXPECT_EQ(Log().front(), (LogEntry{errorLevel, RetryLine(0), writeTag}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoop, CountsRetriesPerBlockDespitePartialWrites)
{
    auto &script = Speakers().paddingScript;
    script.assign(5, bufferFrames);
    script.push_back(bufferFrames - 100);
    script.insert(script.end(), 100, bufferFrames);
    Play(block);
    EXPECT_EQ(Log().size(), 9u);
    EXPECT_EQ(Log().back(), (LogEntry{errorLevel, RetryLine(8), writeTag}));
    EXPECT_EQ(script.size(), 100u - 4u);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400)) << "the rest is dropped";
}

// --- Parts of a block ------------------------------------------------------------------------

TEST_F(RenderWriteLoop, WritesBlockInPartsWhenBufferHasLittleRoom)
{
    Speakers().paddingScript.assign(200, bufferFrames - 7);
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.RequestedFrames().size(), 147u) << "1024 / 7, rounded up";
    EXPECT_EQ(audio.RequestedFrames().back(), 2u);
    EXPECT_EQ(Waits(), std::vector<WaitRecord>(146, BufferWait())) << "one wait after each part but the last";
}

TEST_F(RenderWriteLoop, WritesConsecutiveBlocksToDrainingBuffer)
{
    Speakers().drainFrames = 1000;
    Speakers().queuedFrames = 13000;
    std::vector<uint8_t> all;
    for (uint32_t i = 0; i < 20; ++i) {
        const auto next = MakeBlock(i);
        all.insert(all.end(), next.begin(), next.end());
        Play(next);
    }
    EXPECT_EQ(audio.Written(L"speakers"), all);
}

TEST_F(RenderWriteLoop, LogsUnderrunInEveryPassAndWritesBlock)
{
    Speakers().bufferFrames = 300;
    InvalidateSpeakers();
    Speakers().constantPadding = 0;
    ASSERT_EQ(probe.CheckDeviceChanged(), 0);
    ClearLog();
    Play(block);
    EXPECT_EQ(Log(), std::vector<LogEntry>(4, {errorLevel, underrun, writeTag}));
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{300, 300, 300, 124}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoop, CountsTrailingPartialFrameAsWritten)
{
    Play(block);
    probe.OutputBytes() = 4095;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{1024, 1023}));
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Waits().empty()) << "no rest, so no wait";
}

TEST_F(RenderWriteLoop, RequestsZeroFramesForLessThanOneFrame)
{
    Play(block);
    probe.OutputBytes() = 3;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{1024, 0}));
    EXPECT_EQ(audio.Count(Method::ReleaseBuffer), 2);
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderWriteLoop, EndsBlockWhenClosedMidway)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Before(
        Method::GetCurrentPadding, [this] { probe.SetOpen(false); }, 3);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 3 * 400)) << "the current pass is completed";
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderWriteLoop, EndsRetriesWhenClosed)
{
    Speakers().constantPadding = bufferFrames;
    audio.Before(
        Method::GetCurrentPadding, [this] { probe.SetOpen(false); }, 2);
    Play(block);
    EXPECT_EQ(Log().size(), 2u);
}

TEST_F(RenderWriteLoop, WaitsOnlyUntilEngineSignalsBufferEvent)
{
    const HANDLE event = audio.Clients().at(0).event;
    EXPECT_EQ(event, probe.BufferEvent());
    Speakers().paddingScript.assign(3, bufferFrames);
    audio.Before(
        Method::GetCurrentPadding, [event] { fakewin::SetEvent(event); }, 2);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(fakewin::WaitedMs(), 3 * 1u + 2 * 10u)
        << "three sleeps; the wait of the second pass ends at once and consumes the signal";
}

TEST_F(RenderWriteLoop, WritesBlockWhenCallsReturnOtherSuccessCodes)
{
    audio.Fail(Method::GetCurrentPadding, S_FALSE);
    audio.Fail(Method::GetBuffer, S_FALSE);
    audio.Fail(Method::ReleaseBuffer, S_FALSE);
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.TotalCalls(), callsOfOpening + 3) << "none is repeated";
}

// --- Failing calls ---------------------------------------------------------------------------

TEST_F(RenderWriteLoop, DropsBlockWhenPaddingQueryFails)
{
    audio.Fail(Method::GetCurrentPadding, firstError);
    Play(block);
    EXPECT_EQ(Log(), Lines(PaddingFailure(firstError, bufferFrames)));
    EXPECT_TRUE(audio.Written(L"speakers").empty());
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), 1) << "not repeated for the log";
    EXPECT_EQ(audio.Clients().size(), 1u);
}

TEST_F(RenderWriteLoop, DropsOnlyRestOfBlockWhenLaterPaddingQueryFails)
{
    Speakers().paddingScript = {bufferFrames - 100};
    audio.Fail(Method::GetCurrentPadding, firstError, 2);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderWriteLoop, DropsBlockWhenPaddingExceedsBufferSize)
{
    Speakers().constantPadding = bufferFrames + 1;
    Play(block);
    EXPECT_EQ(Log(), Lines(PaddingFailure(0, bufferFrames + 1)));
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoop, LogsSecondResultAndDropsBlockWhenGetBufferFails)
{
    audio.Fail(Method::GetBuffer, firstError, 1);
    audio.Fail(Method::GetBuffer, secondError, 2);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(secondError, 458)));
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{1024, 1024})) << "the same arguments";
    EXPECT_EQ(audio.Count(Method::ReleaseBuffer), 0);
}

TEST_F(RenderWriteLoop, DropsRestWhenLaterGetBufferFails)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Fail(Method::GetBuffer, firstError, 2, 2);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(firstError, 458)));
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
}

TEST_F(RenderWriteLoop, DropsRestWhenLaterBufferIsNull)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Fail(Method::GetBuffer, fakes::nullResult, 2);
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
}

TEST_F(RenderWriteLoop, ReleasesUnusedBufferFromSecondGetBuffer)
{
    audio.Fail(Method::GetBuffer, firstError);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(S_OK, 458)));
    EXPECT_TRUE(audio.Written(L"speakers").empty());
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty()) << "no buffer is outstanding";
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoop, DropsBlockAndReleasesNullBuffer)
{
    audio.Fail(Method::GetBuffer, fakes::nullResult);
    Play(block);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoop, LogsSecondResultAndDropsRestWhenReleaseBufferFails)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Fail(Method::ReleaseBuffer, firstError, 2);
    audio.Fail(Method::ReleaseBuffer, secondError, 3);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(secondError, 464)));
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
    ASSERT_EQ(audio.Count(Method::ReleaseBuffer), 3);
    // The scripted failures left the buffer unreleased in the fake.
    probe.RenderClient()->ReleaseBuffer(0, 0);
}

TEST_F(RenderWriteLoop, DropsRestWhenReleaseBufferSucceedsOnRetry)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Fail(Method::ReleaseBuffer, firstError);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(S_OK, 464)));
    EXPECT_EQ(audio.Count(Method::ReleaseBuffer), 2);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty());
}

} // namespace
