#include "capture_fixture.h"
#include "reset.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace velto_test {

CapturedPacket FloatPacket(const std::vector<float> &samples, uint16_t channels, DWORD flags)
{
    CapturedPacket packet;
    packet.frames = static_cast<UINT32>(samples.size() / channels);
    packet.flags = flags;
    packet.data.resize(samples.size() * sizeof(float));
    std::memcpy(packet.data.data(), samples.data(), packet.data.size());
    return packet;
}

CapturedPacket QuietPacket(UINT32 frames, DWORD flags)
{
    return {{}, frames, flags};
}

std::unique_ptr<velto::AudioCapture> CaptureTest::MakeCapture()
{
    fakes::ResetAll();
    auto capture = std::make_unique<velto::AudioCapture>();
    capture->SetTarget(48000, 2, 1);
    return capture;
}

CaptureTest::CaptureTest()
    : capture(MakeCapture()),
      probe(*capture),
      m_earlierHandles(fakewin::LiveHandles()),
      m_earlierModuleReferences(fakewin::ModuleReferences(fakewin::ThisModule())),
      m_earlierImplementationReferences(fakewin::ModuleReferences(fakewin::ImplementationModule()))
{
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

CaptureTest::~CaptureTest()
{
    Destroy();
    // The thread of a restart may still have its reference when Close returns.
    EXPECT_TRUE(Eventually(
        [&] { return fakewin::ModuleReferences(fakewin::ThisModule()) == m_earlierModuleReferences; }));
    // A thread that leaves no apartment is noticed only when it has ended.
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_EQ(fakewin::LiveHandles(), m_earlierHandles);
    EXPECT_EQ(audio.LiveObjects(), objectsLeft);
#ifndef _WIN32
    EXPECT_EQ(fakewin::Violations(), violationsLeft);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
#else
    // In Windows builds the fake COM does not see that a thread ends inside an apartment.
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::OpenApartments(), openApartmentsLeft);
#endif
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), m_earlierImplementationReferences);
}

void CaptureTest::Open()
{
    capture->Prepare();
    capture->Start();
}

bool CaptureTest::AwaitLoop()
{
    return Eventually([&] { return audio.Count(Method::CaptureGetBuffer) > 0; });
}

void CaptureTest::Close()
{
    capture->EndRestarts();
    capture->Stop();
    capture->WaitInitThread();
}

void CaptureTest::Destroy()
{
    if (capture != nullptr) {
        Close();
        capture.reset();
    }
}

void CaptureTest::ExpectReturns(std::future<void> &call, velto::AudioCaptureProbe &reading)
{
    if (call.wait_for(std::chrono::seconds(10)) == std::future_status::timeout) {
        ADD_FAILURE() << "a read still waits";
        reading.WakeReads();
    }
    call.get();
}

std::vector<std::string> CaptureTest::LastReleased(size_t count) const
{
    const auto nameOf = [](const IID &iid) -> std::string {
        if (IsEqualIID(iid, __uuidof(IAudioCaptureClient))) {
            return "capture client";
        }
        if (IsEqualIID(iid, __uuidof(IAudioClient))) {
            return "audio client";
        }
        return IsEqualIID(iid, __uuidof(IAudioEndpointVolume)) ? "volume" : "other";
    };
    const std::vector<IID> released = audio.ReleasedObjects();
    std::vector<std::string> names;
    for (size_t i = released.size() - std::min(count, released.size()); i < released.size(); ++i) {
        names.push_back(nameOf(released[i]));
    }
    return names;
}

uint32_t CaptureTest::ReadPacket()
{
    uint32_t size = 0;
    const bool hasPacket = Eventually([&] {
        size = 3840; // more than any packet; a stopped capture leaves it unchanged
        probe.Read(buffer.data(), size);
        return size != 0 && size != 3840;
    });
    return hasPacket ? size : 0;
}

} // namespace velto_test
