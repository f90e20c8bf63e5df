// From a converted block into the endpoint buffer.
#include <algorithm>

#include "render_fixture.h"

namespace {

using namespace velto_test;
using fakewin::Call;
using fakewin::WaitRecord;

constexpr char writeTag[] = "AudioPlayerWas::AudioWriteToWasClient";
constexpr char playTag[] = "AudioPlayerWas::PlayAudio";
constexpr wchar_t underrun[] = L"AudioPlayerWas padding = 0 ";
constexpr UINT32 bufferFrames = 14400;
constexpr HRESULT firstError = E_ACCESSDENIED;
constexpr HRESULT secondError = E_UNEXPECTED;

std::wstring RetryLine(int retry) { return L"AudioPlayerWas audioRetryCount=" + std::to_wstring(retry); }

std::wstring PaddingFailure(int64_t result, uint64_t padding)
{
    return L"AudioPlayerWas Unable to get padding with " + std::to_wstring(result) + L" padding=" +
           std::to_wstring(padding);
}

std::wstring RenderFailure(int64_t result, int line)
{
    return L"AudioPlayerWas Rend fail with " + std::to_wstring(result) + L". Just return. Line:" + std::to_wstring(line);
}

std::vector<uint8_t> FirstBytes(const std::vector<uint8_t> &bytes, size_t count)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

class RenderWriteLoop : public RenderTest {
protected:
    void SetUp() override { OpenWith({2, 16, 48000}); }

    // Waits and sleeps since SetUp.
    std::vector<WaitRecord> Waits() const { return fakewin::Waits(); }
    WaitRecord BufferWait() const { return {Call::WaitForSingleObject, probe.BufferEvent(), 10}; }
    static WaitRecord OneMillisecond() { return {Call::Sleep, nullptr, 1}; }
    static std::vector<LogEntry> Lines(const std::wstring &text) { return {{errorLevel, text, writeTag}}; }

    const std::vector<uint8_t> block = MakeBlock();
};

// --- What PlayAudio decides ------------------------------------------------------------------

TEST_F(RenderWriteLoop, ABlockThatFitsIsWrittenAtOnce)
{
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.RequestedFrames(), std::vector<UINT32>{1024});
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), 1);
    EXPECT_TRUE(Waits().empty()) << "nothing remains, nothing is waited for";
}

TEST_F(RenderWriteLoop, WithoutADeviceEveryBlockIsDroppedWithALineAndNothingIsQueued)
{
    audio.Invalidate(L"speakers");
    audio.Fail(Method::Activate, E_FAIL, 1, 2);
    audio.NotifyPropertyChanged(L"speakers");
    Play(MakeBlock(1));
    ClearLog();
    Play(MakeBlock(2));
    Play(MakeBlock(3));
    ExpectLine(errorLevel, L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0", playTag, 2);
    EXPECT_EQ(Log().size(), 2u);
    audio.NotifyPropertyChanged(L"speakers");
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block) << "the blocks before are gone";
}

TEST_F(RenderWriteLoop, AFailedDeviceChangeNamesTheBufferSizeAndDropsTheBlock)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, E_FAIL);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    Play(block);
    ExpectLine(errorLevel, L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=14400", playTag);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoop, ABlockThatCannotBeConvertedIsDroppedWithALine)
{
    player->PlayAudio(nullptr, 4096);
    ExpectLine(errorLevel, L"AudioPlayerWas dstFrames < 0", playTag);
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), 0);
}

// --- When nothing is written -----------------------------------------------------------------

TEST_F(RenderWriteLoop, AnOutputOfNoBytesDoesNotTouchTheClient)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    probe.OutputBytes() = 0;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

TEST_F(RenderWriteLoop, ARendererThatIsNotOpenWritesNothing)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    probe.SetOpen(false);
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

TEST_F(RenderWriteLoop, WithoutAFrameSizeNothingIsWritten)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    probe.FrameBytes() = 0;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
}

TEST_F(RenderWriteLoop, WithoutARenderClientNothingIsWritten)
{
    Play(block);
    const int calls = audio.Count(Method::GetCurrentPadding);
    IAudioRenderClient *client = std::exchange(probe.RenderClient(), nullptr);
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), calls);
    probe.RenderClient() = client;
}

TEST_F(RenderWriteLoop, WithoutOutputSamplesNothingIsWritten)
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

TEST_F(RenderWriteLoop, AFullBufferLogsNineRetriesAndDropsTheBlock)
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

TEST_F(RenderWriteLoop, TheNextBlockHasItsOwnRetriesAndNothingOfTheDroppedOne)
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

TEST_F(RenderWriteLoop, RetriesAreCountedPerBlockHoweverMuchIsWrittenBetweenThem)
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

TEST_F(RenderWriteLoop, ADeviceThatTakesAFewFramesAtATimeIsServedUntilTheBlockIsWritten)
{
    Speakers().paddingScript.assign(200, bufferFrames - 7);
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_EQ(audio.RequestedFrames().size(), 147u) << "1024 / 7, rounded up";
    EXPECT_EQ(audio.RequestedFrames().back(), 2u);
    EXPECT_EQ(Waits(), std::vector<WaitRecord>(146, BufferWait())) << "after each but the last";
}

TEST_F(RenderWriteLoop, ADrainingBufferTakesBlockAfterBlock)
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

TEST_F(RenderWriteLoop, AnEmptyBufferIsLoggedInEveryPassAndTheBlockIsStillWritten)
{
    Speakers().bufferFrames = 300;
    audio.Invalidate(L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
    Speakers().constantPadding = 0;
    ASSERT_EQ(probe.CheckDeviceChanged(), 0);
    ClearLog();
    Play(block);
    EXPECT_EQ(Log(), std::vector<LogEntry>(4, {errorLevel, underrun, writeTag}));
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{300, 300, 300, 124}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoop, ATrailingPartialFrameCountsAsWritten)
{
    Play(block);
    probe.OutputBytes() = 4095;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{1024, 1023}));
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Waits().empty()) << "nothing remains";
}

TEST_F(RenderWriteLoop, LessThanAFrameIsAskedForAsNoFramesAndNotCopied)
{
    Play(block);
    probe.OutputBytes() = 3;
    probe.AudioWriteToWasClient();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{1024, 0}));
    EXPECT_EQ(audio.Count(Method::ReleaseBuffer), 2);
    EXPECT_EQ(audio.Written(L"speakers"), block);
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderWriteLoop, ClosingInTheMiddleOfABlockEndsIt)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Before(Method::GetCurrentPadding, [this] { probe.SetOpen(false); }, 3);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 3 * 400)) << "the pass is finished";
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderWriteLoop, ClosingWhileTheBufferIsFullEndsTheRetries)
{
    Speakers().constantPadding = bufferFrames;
    audio.Before(Method::GetCurrentPadding, [this] { probe.SetOpen(false); }, 2);
    Play(block);
    EXPECT_EQ(Log().size(), 2u);
}

// --- Failing calls ---------------------------------------------------------------------------

TEST_F(RenderWriteLoop, AFailedPaddingQueryDropsTheBlock)
{
    audio.Fail(Method::GetCurrentPadding, firstError);
    Play(block);
    EXPECT_EQ(Log(), Lines(PaddingFailure(firstError, bufferFrames)));
    EXPECT_TRUE(audio.Written(L"speakers").empty());
    EXPECT_EQ(audio.Count(Method::GetCurrentPadding), 1) << "not called again for the log";
    EXPECT_EQ(audio.Clients().size(), 1u);
}

TEST_F(RenderWriteLoop, AFailedPaddingQueryDropsTheRestOfTheBlockOnly)
{
    Speakers().paddingScript = {bufferFrames - 100};
    audio.Fail(Method::GetCurrentPadding, firstError, 2);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderWriteLoop, APaddingAboveTheBufferSizeDropsTheBlock)
{
    Speakers().constantPadding = bufferFrames + 1;
    Play(block);
    EXPECT_EQ(Log(), Lines(PaddingFailure(0, bufferFrames + 1)));
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoop, ABufferThatIsRefusedDropsTheBlockWithTheSecondResult)
{
    audio.Fail(Method::GetBuffer, firstError, 1);
    audio.Fail(Method::GetBuffer, secondError, 2);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(secondError, 458)));
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{1024, 1024})) << "the same arguments";
    EXPECT_EQ(audio.Count(Method::ReleaseBuffer), 0);
}

TEST_F(RenderWriteLoop, ABufferFromTheSecondCallIsGivenBackUnused)
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

TEST_F(RenderWriteLoop, ANullBufferAbandonsTheBlockAndIsGivenBack)
{
    audio.Fail(Method::GetBuffer, fakes::nullResult);
    Play(block);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
    ClearLog();
    Play(block);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoop, ABufferThatCannotBeGivenBackDropsTheRestWithTheSecondResult)
{
    Speakers().paddingScript.assign(100, bufferFrames - 100);
    audio.Fail(Method::ReleaseBuffer, firstError, 2);
    audio.Fail(Method::ReleaseBuffer, secondError, 3);
    Play(block);
    EXPECT_EQ(Log(), Lines(RenderFailure(secondError, 464)));
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 400));
    ASSERT_EQ(audio.Count(Method::ReleaseBuffer), 3);
    probe.RenderClient()->ReleaseBuffer(0, 0); // what the fake still holds out
}

TEST_F(RenderWriteLoop, ABufferThatIsGivenBackAtTheSecondCallStillEndsTheBlock)
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

// --- A client that is invalidated in the middle of a block -----------------------------------

class RenderWriteLoopInvalidated : public RenderWriteLoop {
protected:
    // 400 frames of the block are written; then the client turns out to be invalid.
    void InvalidateAfter400Frames()
    {
        Speakers().paddingScript = {bufferFrames - 400};
        audio.Before(Method::GetCurrentPadding, [this] { audio.Invalidate(L"speakers"); }, 2);
    }

    void ExpectInvalidation() { ExpectLine(errorLevel, PaddingFailure(AUDCLNT_E_DEVICE_INVALIDATED, bufferFrames), writeTag); }
};

TEST_F(RenderWriteLoopInvalidated, TheClientIsActivatedAgainAndTheBlockGoesOn)
{
    InvalidateAfter400Frames();
    Play(block);
    ExpectInvalidation();
    ExpectLine(infoLevel, L"AudioPlayerWas Need to deal with audio property value change",
               "AudioPlayerWas::OnAudioPropertyValueChanged");
    // The padding is still the one of before the query, a full buffer: one retry.
    ExpectLine(errorLevel, RetryLine(0), writeTag);
    EXPECT_EQ(Log().size(), 3u);
    EXPECT_EQ(audio.Clients().size(), 2u);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, AClientThatStillAnswersOtherwiseIsKept)
{
    audio.Fail(Method::GetCurrentPadding, AUDCLNT_E_DEVICE_INVALIDATED);
    Play(block);
    ExpectInvalidation();
    ExpectLine(errorLevel, RetryLine(0), writeTag);
    EXPECT_EQ(audio.Clients().size(), 1u);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, ALargerNewBufferIsFilledAsFarAsTheStalePaddingAllows)
{
    InvalidateAfter400Frames();
    Speakers().bufferFrames = bufferFrames + 100;
    Play(block);
    ExpectInvalidation();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{400, 100, 524}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, ASmallerNewBufferIsOfferedTheWholeRest)
{
    InvalidateAfter400Frames();
    Speakers().bufferFrames = 4800;
    Play(block);
    ExpectInvalidation();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{400, 624}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, ANewBufferTooSmallForTheRestIsRefusedByTheDevice)
{
    InvalidateAfter400Frames();
    Speakers().bufferFrames = 100;
    Play(block);
    ExpectLine(errorLevel, RenderFailure(AUDCLNT_E_BUFFER_TOO_LARGE, 458), writeTag);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
}

// The rest of the block is still of the old format; it goes out in whole frames of the new size,
// and never a byte from behind it.
TEST_F(RenderWriteLoopInvalidated, AnotherFrameSizeReadsNoFurtherThanTheBlock)
{
    const fakes::MixFormat formats[] = {{6, 32, 44100}, {8, 32, 96000}, {1, 8, 8000}, {2, 32, 48000}, {4, 16, 48000}};
    for (const fakes::MixFormat &format : formats) {
        Speakers().mixFormat = {2, 16, 48000};
        audio.Invalidate(L"speakers");
        audio.NotifyPropertyChanged(L"speakers");
        ASSERT_EQ(probe.CheckDeviceChanged(), 0);
        Speakers().written.clear();
        InvalidateAfter400Frames();
        Speakers().mixFormat = format;
        Play(block);
        const size_t rest = (4096 - 1600) / format.FrameBytes() * format.FrameBytes();
        EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600 + rest)) << format.channels << " channels";
        Speakers().written.clear();
        Play(block);
        EXPECT_EQ(Speakers().written.size() % format.FrameBytes(), 0u);
        EXPECT_FALSE(Speakers().written.empty()) << "the next block is of the new format";
    }
}

TEST_F(RenderWriteLoopInvalidated, ASmallerFrameSizeAfterALargerOneReadsNoFurtherThanTheBlock)
{
    Speakers().mixFormat = {6, 32, 48000};
    audio.Invalidate(L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
    ASSERT_EQ(probe.CheckDeviceChanged(), 0);
    Play(block);
    const auto whole = audio.Written(L"speakers");
    ASSERT_EQ(whole.size(), 24576u);
    Speakers().written.clear();
    InvalidateAfter400Frames();
    Speakers().mixFormat = {1, 8, 48000};
    Speakers().bufferFrames = 48000;
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), whole);
}

TEST_F(RenderWriteLoopInvalidated, AFailedReactivationDropsTheRestAndEveryLaterBlock)
{
    InvalidateAfter400Frames();
    audio.Fail(Method::Activate, E_FAIL, 1, 2);
    Play(block);
    ExpectInvalidation();
    ExpectLine(errorLevel, FunctionFail(E_FAIL, 175), "AudioPlayerWas::ActivateWasClient");
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
    ClearLog();
    Play(block);
    Play(block);
    EXPECT_EQ(Log(), std::vector<LogEntry>(2, {errorLevel, L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0", playTag}));
    audio.NotifyPropertyChanged(L"speakers");
    ClearLog();
    Speakers().written.clear();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, AReactivationThatFailsLateDropsTheRestToo)
{
    for (const Method method : {Method::GetMixFormat, Method::Initialize, Method::SetEventHandle, Method::GetService}) {
        Speakers().written.clear();
        InvalidateAfter400Frames();
        Speakers().mixFormat = {6, 32, 44100};
        audio.Fail(method, E_FAIL, 1, 2);
        Play(block);
        EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
        ClearLog();
        Play(block);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0", playTag}}));
        Speakers().mixFormat = {2, 16, 48000};
        audio.NotifyPropertyChanged(L"speakers");
        ASSERT_EQ(probe.CheckDeviceChanged(), 0);
    }
}

TEST_F(RenderWriteLoopInvalidated, ADeviceThatIsInvalidatedAtEveryQueryEndsWithTheRetries)
{
    audio.Fail(Method::GetCurrentPadding, AUDCLNT_E_DEVICE_INVALIDATED, 1, 1000);
    Play(block);
    ExpectLine(errorLevel, PaddingFailure(AUDCLNT_E_DEVICE_INVALIDATED, bufferFrames), writeTag, 9);
    ExpectLine(errorLevel, RetryLine(8), writeTag);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoopInvalidated, ANullMixFormatOfTheNewClientEndsTheBlock)
{
    InvalidateAfter400Frames();
    audio.Fail(Method::GetMixFormat, fakes::nullResult);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
    ClearLog();
    Play(block);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0", playTag}}));
}

TEST_F(RenderWriteLoopInvalidated, AConverterThatCannotBeSetUpAgainKeepsTheOldBlockReadable)
{
    InvalidateAfter400Frames();
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -22);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

} // namespace
