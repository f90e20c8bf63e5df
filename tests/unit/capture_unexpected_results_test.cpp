// Results that Windows does not document, or that occur only after an earlier failure.
#include "capture_fixture.h"

namespace {

using namespace velto_test;
using fakewin::Call;

constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";

class Capture : public CaptureTest {};

// The frames of the packet exceed a signed 32-bit count. Converted from 44100 Hz they still do, converted
// from 768000 Hz they do not.
TEST_F(Capture, DropsPacketOfMoreFramesThanConverterCanCount)
{
    for (const uint32_t rateHz : {44100U, 768000U}) {
        ClearLog();
        Microphone().mixFormat.rateHz = rateHz;
        audio.Fail(Method::CaptureGetBuffer, fakes::SizeResult(0x80000001));
        for (int packet = 0; packet < 6; ++packet) {
            audio.Deliver(QuietPacket(16 * 1024));
        }
        Open();
        EXPECT_TRUE(AwaitLine(L"Could not allocate destination samples", convertTag)) << rateHz;
        EXPECT_GT(ReadPacket(), 0U) << rateHz;
        ExpectLine(errorLevel, L"Could not allocate destination samples", convertTag);
        capture->Stop();
        capture->WaitInitThread();
    }
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
