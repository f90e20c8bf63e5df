// Results that Windows does not document, or that occur only after an earlier failure.
#include "render_fixture.h"

namespace {

using namespace velto_test;

constexpr char initTag[] = "AudioPlayerWas::InitDefaultAudioDevice";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";
constexpr char deviceTag[] = "AudioPlayerWas::OnAudioDeviceChanged";
constexpr wchar_t noEndpoint[] = L"AudioPlayer GetDefaultAudioEndpoint fail with 0. Just return";

class Renderer : public RenderTest {
protected:
    void ChangeDefault(const std::wstring &id)
    {
        audio.Get(id); // creates the endpoint if necessary
        audio.ChangeDefaultSpeaker(id);
        Play(MakeBlock());
    }
    size_t BlocksWritten(const std::wstring &id) { return audio.Get(id).writtenFrames.size(); }
};

TEST_F(Renderer, StaysOpenWithoutClientWhenEndpointIsNull)
{
    audio.Fail(Method::GetDefaultAudioEndpoint, fakes::nullResult);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, MemoryFail(296), initTag);
    EXPECT_EQ(probe.Device(), nullptr);
    ChangeDefault(L"headset");
    EXPECT_EQ(BlocksWritten(L"headset"), 1U);
}

TEST_F(Renderer, StaysOpenWithoutClientWhenActivatedClientIsNull)
{
    audio.Fail(Method::Activate, fakes::nullResult);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, MemoryFail(307), initTag);
    EXPECT_EQ(probe.AudioClient(), nullptr);
    ChangeDefault(L"headset");
    EXPECT_EQ(BlocksWritten(L"headset"), 1U);
}

TEST_F(Renderer, KeepsOldEndpointWhenNewEndpointIsNull)
{
    ASSERT_TRUE(Open());
    audio.Fail(Method::GetDefaultAudioEndpoint, fakes::nullResult, 1);
    ChangeDefault(L"headset");
    ExpectLine(errorLevel, noEndpoint, deviceTag);
    Play(MakeBlock());
    EXPECT_EQ(BlocksWritten(L"speakers"), 1U);
}

TEST_F(Renderer, KeepsOldEndpointWhenFailedCallStoresBadPointer)
{
    ASSERT_TRUE(Open());
    audio.Fail(Method::GetDefaultAudioEndpoint, fakes::BadPointerResult(E_FAIL));
    ChangeDefault(L"headset");
    ExpectLine(errorLevel,
               L"AudioPlayer GetDefaultAudioEndpoint fail with " + std::to_wstring(E_FAIL) + L". Just return",
               deviceTag);
    Play(MakeBlock());
    EXPECT_EQ(BlocksWritten(L"speakers"), 1U);
}

TEST_F(Renderer, TreatsEndpointThatStoresNoStateAsInactive)
{
    audio.Fail(Method::GetState, fakes::nullResult);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Log(),
              (std::vector<LogEntry>{{errorLevel, L"AudioPlayerWas endpointDevice is not active", initTag}}));
    EXPECT_EQ(probe.Device(), nullptr);
}

TEST_F(Renderer, DropsBlocksWhenBufferHasNoFrames)
{
    Speakers().bufferFrames = 0;
    ASSERT_TRUE(Open());
    ASSERT_NE(probe.RenderClient(), nullptr);
    ClearLog();
    Play(MakeBlock());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(0), playTag}}));
}

TEST_F(Renderer, HasNoClientUntilNotificationWhenNewClientIsNull)
{
    ASSERT_TRUE(Open());
    audio.Fail(Method::Activate, fakes::nullResult);
    ChangeDefault(L"headset");
    ExpectLine(errorLevel, MemoryFail(175), activateTag);
    audio.NotifyPropertyChanged(L"headset");
    Play(MakeBlock());
    EXPECT_EQ(BlocksWritten(L"headset"), 1U);
}

TEST_F(Renderer, LogsNullRenderClientOnOpen)
{
    audio.Fail(Method::GetService, fakes::nullResult);
    EXPECT_TRUE(Open());
    ExpectLine(errorLevel, MemoryFail(323), initTag);
    EXPECT_EQ(probe.Device(), nullptr);
    EXPECT_EQ(probe.AudioClient(), nullptr);
    ClearLog();
    Play(MakeBlock());
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{errorLevel, DroppedBlock(14400), playTag}}));
    ChangeDefault(L"headset");
    EXPECT_EQ(BlocksWritten(L"headset"), 1U);
}

TEST_F(Renderer, LogsNullRenderClientOnReactivation)
{
    ASSERT_TRUE(Open());
    audio.Fail(Method::GetService, fakes::nullResult);
    ChangeDefault(L"headset");
    ExpectLine(errorLevel, MemoryFail(191), activateTag);
    ExpectLine(errorLevel, DroppedBlock(14400), playTag);
    EXPECT_EQ(probe.AudioClient(), nullptr);
    audio.NotifyPropertyChanged(L"headset");
    Play(MakeBlock());
    EXPECT_EQ(BlocksWritten(L"headset"), 1U);
}

TEST_F(Renderer, ReleasesEndpointObjectsOnCloseWithoutReferenceToDll)
{
    fakewin::Fail(fakewin::Call::GetModuleHandleExW, ERROR_NOT_ENOUGH_MEMORY);
    ASSERT_TRUE(Open());
    player->Close();
    EXPECT_EQ(audio.LiveObjects(), 0);
    SwrContext *converter = probe.TakeResampler(); // the next Open would leak the converter
    swr_free(&converter);
    ASSERT_TRUE(Open());
    Play(MakeBlock());
    EXPECT_EQ(BlocksWritten(L"speakers"), 1U);
}

TEST_F(Renderer, LosesOnlyTwoBlocksWhenBufferCannotBeReleased)
{
    ASSERT_TRUE(Open());
    audio.Fail(Method::ReleaseBuffer, AUDCLNT_E_SERVICE_NOT_RUNNING, 1, 2);
    for (int block = 0; block < 3; ++block) {
        Play(MakeBlock());
    }
    EXPECT_EQ(BlocksWritten(L"speakers"), 1U);
}

} // namespace
