// Results that Windows does not document, or that occur only after an earlier failure.
#include "capture_fixture.h"

namespace {

using namespace velto_test;
using fakewin::Call;

constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";

class Capture : public CaptureTest {};

// The packet's frames exceed a signed 32-bit count before the conversion, after it, or both.
TEST_F(Capture, DropsPacketOfMoreFramesThanConverterCanCount)
{
    struct Row {
        uint32_t rateHz;
        uint32_t frames;
    };
    for (const auto &[rateHz, frames] :
         {Row{44100, 0x80000001}, Row{768000, 0x80000001}, Row{8000, 0x2AAAAAAB}}) {
        ClearLog();
        Microphone().mixFormat.rateHz = rateHz;
        audio.Fail(Method::CaptureGetBuffer, fakes::SizeResult(frames));
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

TEST_F(Capture, IgnoresPointerThatFailedCallsStore)
{
    struct Row {
        std::function<void()> inject;
        const wchar_t *line;
    };
    const std::vector<Row> rows = {
        {[] { fakewin::Fail(Call::CoCreateInstance, fakes::BadPointerResult(E_FAIL)); },
         L"Create IMMDeviceEnumerator failed, err=0x80004005"},
        {[this] { audio.Fail(Method::Activate, fakes::BadPointerResult(E_FAIL)); },
         L"Activate AudioClient failed, err=0x80004005"},
        {[this] { audio.Fail(Method::GetMixFormat, fakes::BadPointerResult(E_FAIL)); },
         L"Get audio mix format failed, err=0x80004005"},
    };
    fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    for (const Row &row : rows) {
        row.inject();
        WAVEFORMATEX *format = nullptr;
        IMMDevice *device = nullptr;
        EXPECT_EQ(probe.GetDefaultMicAudioClient(&format, &device), nullptr);
        EXPECT_EQ(format, nullptr);
        EXPECT_EQ(device, nullptr);
        EXPECT_EQ(audio.LiveObjects(), 0);
        ExpectLine(errorLevel, row.line, "AudioCapture::GetDefaultMicAudioClient");
    }
    fakewin::CoUninitialize();
}

TEST_F(Capture, AcceptsPositiveResultsOfConverter)
{
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_alloc_set_opts2, 1);
    fakeffmpeg::Script().Fail(fakeffmpeg::Call::swr_init, 1);
    Microphone().source = [] { return QuietPacket(1024); };
    Open();
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
