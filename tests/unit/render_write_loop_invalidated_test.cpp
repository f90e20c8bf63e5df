// A client that is invalidated in the middle of a block.
#include "render_write_loop_fixture.h"

namespace {

using namespace velto_test;

class RenderWriteLoopInvalidated : public RenderWriteLoop {
protected:
    // Invalidates the client once 400 frames of the next block are written.
    void InvalidateAfter400Frames()
    {
        Speakers().paddingScript = {bufferFrames - 400};
        audio.Before(
            Method::GetCurrentPadding, [this] { audio.Invalidate(L"speakers"); }, 2);
    }

    // Replaces the client with one of 16-bit stereo and clears the recorded sound. During the next block, the
    // client is invalidated after 400 frames; its successor has `format`.
    void ChangeFormatAfter400Frames(const fakes::MixFormat &format)
    {
        Speakers().mixFormat = {2, 16, 48000};
        InvalidateSpeakers();
        ASSERT_EQ(probe.CheckDeviceChanged(), 0);
        Speakers().written.clear();
        InvalidateAfter400Frames();
        Speakers().mixFormat = format;
    }

    void ExpectInvalidation()
    {
        ExpectLine(errorLevel, PaddingFailure(AUDCLNT_E_DEVICE_INVALIDATED, bufferFrames), writeTag);
    }
};

TEST_F(RenderWriteLoopInvalidated, ReactivatesClientAndContinuesBlock)
{
    InvalidateAfter400Frames();
    Play(block);
    ExpectInvalidation();
    ExpectLine(infoLevel, L"AudioPlayerWas Need to deal with audio property value change",
               "AudioPlayerWas::OnAudioPropertyValueChanged");
    // The padding of the failed query stays at its initial value, a full buffer, so there is one retry.
    ExpectLine(errorLevel, RetryLine(0), writeTag);
    EXPECT_EQ(Log().size(), 3u);
    EXPECT_EQ(audio.Clients().size(), 2u);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, KeepsClientThatStillAnswers)
{
    audio.Fail(Method::GetCurrentPadding, AUDCLNT_E_DEVICE_INVALIDATED);
    Play(block);
    ExpectInvalidation();
    ExpectLine(errorLevel, RetryLine(0), writeTag);
    EXPECT_EQ(audio.Clients().size(), 1u);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, FillsLargerNewBufferUpToStalePadding)
{
    InvalidateAfter400Frames();
    Speakers().bufferFrames = bufferFrames + 100;
    Play(block);
    ExpectInvalidation();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{400, 100, 524}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, RequestsWholeRestFromSmallerNewBuffer)
{
    InvalidateAfter400Frames();
    Speakers().bufferFrames = 4800;
    Play(block);
    ExpectInvalidation();
    EXPECT_EQ(audio.RequestedFrames(), (std::vector<UINT32>{400, 624}));
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, DropsRestWhenNewBufferIsTooSmall)
{
    InvalidateAfter400Frames();
    Speakers().bufferFrames = 100;
    Play(block);
    ExpectLine(errorLevel, RenderFailure(AUDCLNT_E_BUFFER_TOO_LARGE, 458), writeTag);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
}

// The rest of the block is still in the old format. The loop writes it in whole frames of the new size and
// reads no byte past its end.
TEST_F(RenderWriteLoopInvalidated, ReadsNoFurtherThanBlockWhenFrameSizeChanges)
{
    const fakes::MixFormat formats[] = {
        {6, 32, 44100}, {8, 32, 96000}, {1, 8, 8000}, {2, 32, 48000}, {4, 16, 48000}};
    for (const fakes::MixFormat &format : formats) {
        ChangeFormatAfter400Frames(format);
        Play(block);
        const size_t rest = (4096 - 1600) / format.FrameBytes() * format.FrameBytes();
        EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600 + rest))
            << format.channels << " channels";
        Speakers().written.clear();
        Play(block);
        EXPECT_EQ(Speakers().written.size() % format.FrameBytes(), 0u);
        EXPECT_FALSE(Speakers().written.empty()) << "the next block is in the new format";
    }
}

TEST_F(RenderWriteLoopInvalidated, ReadsNoFurtherThanBlockWhenFrameSizeShrinks)
{
    Speakers().mixFormat = {6, 32, 48000};
    InvalidateSpeakers();
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

TEST_F(RenderWriteLoopInvalidated, RetriesOnceAndDropsRestWhenReactivationFails)
{
    InvalidateAfter400Frames();
    audio.Fail(Method::Activate, E_FAIL, 1, 2);
    Play(block);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{
                         {errorLevel, PaddingFailure(AUDCLNT_E_DEVICE_INVALIDATED, bufferFrames), writeTag},
                         {infoLevel, L"AudioPlayerWas Need to deal with audio property value change",
                          "AudioPlayerWas::OnAudioPropertyValueChanged"},
                         {errorLevel, FunctionFail(E_FAIL, 175), "AudioPlayerWas::ActivateWasClient"},
                         {errorLevel, RetryLine(0), writeTag}}));
    // One wait after the 400 frames, one retry in the pass that finds the client invalid.
    EXPECT_EQ(Waits(), (std::vector<WaitRecord>{BufferWait(), OneMillisecond(), BufferWait()}));
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
    ClearLog();
    Play(block);
    Play(block);
    EXPECT_EQ(Log(), std::vector<LogEntry>(2, {errorLevel, DroppedBlock(bufferFrames), playTag}));
    audio.NotifyPropertyChanged(L"speakers");
    ClearLog();
    Speakers().written.clear();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

TEST_F(RenderWriteLoopInvalidated, DropsRestWhenLaterReactivationStepFails)
{
    for (const Method method :
         {Method::GetMixFormat, Method::Initialize, Method::SetEventHandle, Method::GetService}) {
        Speakers().written.clear();
        InvalidateAfter400Frames();
        Speakers().mixFormat = {6, 32, 44100};
        audio.Fail(method, E_FAIL, 1, 2);
        Play(block);
        EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
        ExpectLine(errorLevel, RetryLine(0), writeTag);
        ClearLog();
        Play(block);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(bufferFrames), playTag}}));
        Speakers().mixFormat = {2, 16, 48000};
        audio.NotifyPropertyChanged(L"speakers");
        ASSERT_EQ(probe.CheckDeviceChanged(), 0);
        ClearLog();
    }
}

// The stale padding differs from the new buffer size, so the buffer does not look full.
TEST_F(RenderWriteLoopInvalidated, DropsRestWhenReactivationFailsAfterBufferSizeChange)
{
    std::vector<WaitRecord> bufferWaits;
    for (const UINT32 frames : {UINT32{100}, bufferFrames + 100}) {
        Speakers().written.clear();
        InvalidateAfter400Frames();
        Speakers().bufferFrames = frames;
        audio.Fail(Method::GetService, E_FAIL, 1, 2);
        Play(block);
        EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
        ExpectLine(errorLevel, RetryLine(0), writeTag, 0);
        bufferWaits.push_back(BufferWait());
        EXPECT_EQ(Waits(), bufferWaits) << "one wait after the 400 frames";
        ClearLog();
        Play(block);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(frames), playTag}}));
        Speakers().bufferFrames = bufferFrames;
        audio.NotifyPropertyChanged(L"speakers");
        ASSERT_EQ(probe.CheckDeviceChanged(), 0);
        ClearLog();
    }
}

TEST_F(RenderWriteLoopInvalidated, DropsRestWhenReactivationFailsAfterQueryWrotePadding)
{
    InvalidateAfter400Frames();
    Speakers().paddingOfFailure = 480;
    audio.Fail(Method::Activate, E_FAIL, 1, 2);
    Play(block);
    ExpectLine(errorLevel, PaddingFailure(AUDCLNT_E_DEVICE_INVALIDATED, 480), writeTag);
    ExpectLine(errorLevel, RetryLine(0), writeTag, 0);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
}

TEST_F(RenderWriteLoopInvalidated, GivesUpAfterNineRetriesWhenEveryQueryFails)
{
    audio.Fail(Method::GetCurrentPadding, AUDCLNT_E_DEVICE_INVALIDATED, 1, 1000);
    Play(block);
    ExpectLine(errorLevel, PaddingFailure(AUDCLNT_E_DEVICE_INVALIDATED, bufferFrames), writeTag, 9);
    ExpectLine(errorLevel, RetryLine(8), writeTag);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
}

TEST_F(RenderWriteLoopInvalidated, DropsRestWhenNewMixFormatIsNull)
{
    InvalidateAfter400Frames();
    audio.Fail(Method::GetMixFormat, fakes::nullResult);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
    ClearLog();
    Play(block);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(bufferFrames), playTag}}));
}

TEST_F(RenderWriteLoopInvalidated, FinishesBlockWhenConverterSetupFails)
{
    InvalidateAfter400Frames();
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, -22);
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
}

// --- Without memory for the new output buffer --------------------------------------------------

// Without memory for a new output buffer the renderer keeps the old one. Later blocks enlarge it as needed.
TEST_F(RenderWriteLoopInvalidated, StaysWithinOldOutputBufferWithoutMemoryForNewOne)
{
    const std::pair<fakes::MixFormat, size_t> formats[] = {
        {{8, 32, 48000}, 1024 * 32}, {{2, 16, 96000}, 0}, {{8, 32, 96000}, 0}, {{1, 8, 48000}, 1024}};
    for (const auto &[format, bytesOfBlock] : formats) {
        ChangeFormatAfter400Frames(format);
        // The first allocation is the input buffer, the second the output buffer.
        fakeffmpeg::Script().Fail(fakeffmpeg::Call::av_samples_alloc_array_and_samples, -12, 2);
        Play(block);
        const size_t rest = (4096 - 1600) / format.FrameBytes() * format.FrameBytes();
        EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600 + rest));
        Speakers().written.clear();
        ClearLog();
        for (uint32_t seed = 1; seed < 4; ++seed) {
            Play(MakeBlock(seed));
        }
        EXPECT_TRUE(Log().empty());
        const size_t bytes = Speakers().written.size();
        EXPECT_GT(bytes, 0U) << format.channels << " channels, " << format.rateHz << " Hz";
        if (bytesOfBlock != 0) {
            EXPECT_EQ(bytes, 3 * bytesOfBlock);
        }
    }
}

TEST_F(RenderWriteLoopInvalidated, DropsBlocksWhileOldOutputBufferCannotGrow)
{
    InvalidateAfter400Frames();
    Speakers().mixFormat = {8, 32, 48000};
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::av_samples_alloc_array_and_samples, -12, 2);
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::av_samples_alloc, -12, 1, 2);
    Play(block);
    Speakers().written.clear();
    ClearLog();
    Play(block);
    Play(block);
    ExpectLine(errorLevel, L"AudioPlayerWas av_samples_alloc failed", "AudioPlayerWas::Resample", 2);
    EXPECT_TRUE(audio.Written(L"speakers").empty());
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers").size(), 1024U * 32);
}

// --- Mix formats that no audio engine uses -----------------------------------------------------

struct UnusableFormat {
    const char *name;
    fakes::MixFormat mix;
    UINT32 newBufferFrames;
    bool isAccepted; // by Initialize
};

std::vector<UnusableFormat> UnusableFormats()
{
    fakes::MixFormat withoutFrameSize{2, 16, 48000};
    withoutFrameSize.blockAlign = 0;
    const std::pair<const char *, fakes::MixFormat> formats[] = {
        {"BlockAlignZero", withoutFrameSize},
        {"Zeros", {0, 0, 0}},
        {"HugeNumbers", {0xFFFF, 0xFFFF, 0xFFFFFFFF}},
    };
    std::vector<UnusableFormat> all;
    for (const auto &[name, mix] : formats) {
        for (const UINT32 frames : {bufferFrames, bufferFrames + 100, UINT32{4800}}) {
            all.push_back({name, mix, frames, false});
            all.push_back({name, mix, frames, true});
        }
    }
    return all;
}

class RenderUnusableFormat : public RenderWriteLoopInvalidated,
                             public ::testing::WithParamInterface<UnusableFormat> {
protected:
    // Gives the endpoint the unusable format. The next client gets it.
    void ChangeFormat()
    {
        Speakers().mixFormat = GetParam().mix;
        Speakers().bufferFrames = GetParam().newBufferFrames;
        Speakers().acceptsAnyFormat = GetParam().isAccepted;
    }

    void ExpectSilenceUntilAnotherDefaultDevice()
    {
        const size_t written = Speakers().writtenFrames.size();
        ClearLog();
        Play(block);
        EXPECT_EQ(Speakers().writtenFrames.size(), written);
        if (!GetParam().isAccepted) {
            EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(bufferFrames), playTag}}));
        }
        audio.Add(L"headset").mixFormat = {2, 16, 48000};
        audio.ChangeDefaultSpeaker(L"headset");
        Play(block);
        EXPECT_EQ(audio.Written(L"headset"), block);
    }
};

TEST_P(RenderUnusableFormat, DropsRestOfBlockWhenAppearingMidBlock)
{
    InvalidateAfter400Frames();
    ChangeFormat();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
    if (!GetParam().isAccepted) {
        ExpectLine(errorLevel, FunctionFail(E_INVALIDARG, 186), "AudioPlayerWas::ActivateWasClient");
        ExpectLine(errorLevel, RetryLine(0), writeTag);
        EXPECT_EQ(Log().size(), 4U);
    }
    ExpectSilenceUntilAnotherDefaultDevice();
}

TEST_P(RenderUnusableFormat, DropsRestOfBlockWhenFailedQueryWrotePadding)
{
    InvalidateAfter400Frames();
    Speakers().paddingOfFailure = 480;
    ChangeFormat();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), FirstBytes(block, 1600));
    ExpectSilenceUntilAnotherDefaultDevice();
}

TEST_P(RenderUnusableFormat, DropsBlocksWhenAppearingBetweenBlocks)
{
    Play(block);
    InvalidateSpeakers();
    ChangeFormat();
    Play(block);
    EXPECT_EQ(audio.Written(L"speakers"), block);
    ExpectSilenceUntilAnotherDefaultDevice();
}

INSTANTIATE_TEST_SUITE_P(, RenderUnusableFormat, ::testing::ValuesIn(UnusableFormats()),
                         [](const ::testing::TestParamInfo<UnusableFormat> &info) {
                             return std::string(info.param.name) +
                                    std::to_string(info.param.newBufferFrames) +
                                    (info.param.isAccepted ? "Accepted" : "Refused");
                         });

} // namespace
