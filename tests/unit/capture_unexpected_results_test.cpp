// Results that Windows does not document, or that occur only after an earlier failure.
#include "capture_fixture.h"

namespace {

using namespace velto_test;
using fakewin::Call;

constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";

class Capture : public CaptureTest {};

// 0xF0000000 frames exceed a signed 32-bit count, both at 44100 Hz and converted to 48000 Hz.
TEST_F(Capture, DropsPacketOfMoreFramesThanConverterCanCount)
{
    Microphone().mixFormat.rateHz = 44100;
    audio.Fail(Method::CaptureGetBuffer, fakes::SizeResult(0xF0000000));
    for (int packet = 0; packet < 6; ++packet) {
        audio.Deliver(QuietPacket(1024));
    }
    Open();
    EXPECT_TRUE(AwaitLine(L"Could not allocate destination samples", convertTag));
    EXPECT_GT(ReadPacket(), 0U);
}

TEST_F(Capture, DoesNotFollowDefaultWithoutReferenceToEndpointDll)
{
    fakewin::Fail(Call::GetModuleHandleExW, ERROR_NOT_ENOUGH_MEMORY, 1, 100);
    Microphone().source = [] { return QuietPacket(1024); };
    Open();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    ExpectLine(errorLevel, L"Cannot hold the endpoints' DLL, default device changes are not followed! err=8",
               "AudioDeviceNotify::Initialize");
    EXPECT_GT(ReadPacket(), 0U);
}

// Five waits: one in Prepare, one for the end of each of the two threads, and two retries.
TEST_F(Capture, RetriesFailedWaitForThread)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    fakewin::Fail(Call::WaitForSingleObject, WAIT_FAILED, 1, 2);
    Close();
    EXPECT_EQ(fakewin::Count(Call::WaitForSingleObject), 5);
    EXPECT_EQ(probe.State(), velto::CAPTURE_NOT_PREPARED);
}

} // namespace
