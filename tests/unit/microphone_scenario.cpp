#include "microphone_scenario.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "capture_fixture.h"
#include "reset.h"

namespace velto_test {
namespace {

constexpr int rounds = 5;
constexpr int stepsPerRound = 4;
const char *const stepNames[stepsPerRound] = {"opening", "capturing", "restarting", "closing"};
// The calls that the capture thread makes for each packet.
constexpr std::array<std::string_view, 9> polled{"IAudioCaptureClient::GetNextPacketSize",
                                                 "IAudioCaptureClient::GetBuffer",
                                                 "IAudioCaptureClient::ReleaseBuffer",
                                                 "IAudioEndpointVolume::GetMute",
                                                 "av_samples_alloc_array_and_samples",
                                                 "av_samples_get_buffer_size",
                                                 "swr_convert",
                                                 "avcodec_send_frame",
                                                 "avcodec_receive_packet"};
const wchar_t *const noCom = L"AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed";

class MicrophoneScenario : public Scenario {
public:
    MicrophoneScenario()
    {
        fakes::ResetAll();
        for (const wchar_t *id : {L"microphone", L"headset"}) {
            // Delivers one packet per pass of the capture loop.
            m_audio.Get(id).source = [delivers = false]() mutable -> std::optional<CapturedPacket> {
                delivers = !delivers;
                return delivers ? std::optional(QuietPacket(1024)) : std::nullopt;
            };
        }
        m_audio.Get(L"headset").mixFormat.rateHz = 44100;
    }

    // Each start sets the ready event at least once, on the init thread. The capture thread sets the event as
    // well, unless Prepare has already closed it.
    int GuaranteedUses(const FaultyCall &call, int counted) const override
    {
        return call.name == "SetEvent" ? std::min(counted, 2 * rounds) : counted;
    }
    bool IsPolled(const FaultyCall &call) const override
    {
        return std::find(polled.begin(), polled.end(), call.name) != polled.end();
    }
    int Steps() const override { return rounds * stepsPerRound; }
    std::string StepName(int step) const override
    {
        return std::string(stepNames[step % stepsPerRound]) + " in round " +
               std::to_string(step / stepsPerRound + 1);
    }
    Expectation Expected(const FaultCase &faulty, int step, int use) const override
    {
        return ExpectedOfMicrophone(faulty, KindOf(step), use);
    }

    void RunStep(int step) override;
    bool CanKeepPolling(int step) const override { return step == Steps() - 2; }
    void PollUntil(const std::function<bool()> &condition) override;
    void KeepRunning() override;
    bool HasSound() override;
    void Apply(Recovery recovery) override;
    bool FollowsDefaultDevice() override;
    void Finish() override;

private:
    static MicrophoneStep KindOf(int step) { return static_cast<MicrophoneStep>(step % stepsPerRound); }

    void Open();
    void Close();
    void Capture();
    void ChangeDefault();
    // Waits until no restart is running and the capture either runs its loop or has ended all its threads.
    void AwaitSteadyState();
    bool IsSteady() const;
    bool Captures() const
    {
        return m_capture != nullptr && !Probe().Stopped() && fakewin::LiveThreads() >= 2;
    }
    bool ReadPacket();
    velto::AudioCaptureProbe Probe() const { return velto::AudioCaptureProbe(*m_capture); }

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioCapture> m_capture;
    std::wstring m_default = L"microphone";
    std::array<uint8_t, 8192> m_buffer;
    const int m_earlierHandles = fakewin::LiveHandles();
    const int m_earlierReferences = fakewin::ModuleReferences(fakewin::ThisModule());
    const int m_earlierImplementation = fakewin::ModuleReferences(fakewin::ImplementationModule());
};

void MicrophoneScenario::RunStep(int step)
{
    switch (KindOf(step)) {
    case MicrophoneStep::Opening:
        Open();
        break;
    case MicrophoneStep::Capturing:
        Capture();
        break;
    case MicrophoneStep::Restarting:
        ChangeDefault();
        break;
    case MicrophoneStep::Closing:
        Close();
    }
}

void MicrophoneScenario::Open()
{
    m_capture = std::make_unique<velto::AudioCapture>();
    m_capture->SetTarget(48000, 2, 1);
    m_capture->Prepare();
    AwaitSteadyState(); // so that the capture thread makes its calls before Start
    m_capture->Start();
}

void MicrophoneScenario::Close()
{
    if (m_capture != nullptr) {
        m_capture->EndRestarts();
        m_capture->Stop();
        m_capture->WaitInitThread();
        m_capture.reset();
    }
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 0; }));
}

// Reads up to three packets within two simulated seconds. A fault may leave no packets to read.
void MicrophoneScenario::Capture()
{
    const uint64_t begin = fakewin::WaitedMs();
    const auto timedOut = [&] { return !Captures() || fakewin::WaitedMs() >= begin + 2000; };
    for (int packet = 0; packet < 3; ++packet) {
        Eventually([&] { return Probe().Packets().DataCount() > 0 || timedOut(); });
        if (!timedOut()) {
            ReadPacket();
        }
    }
}

void MicrophoneScenario::ChangeDefault()
{
    m_default = m_default == L"headset" ? L"microphone" : L"headset";
    m_audio.ChangeDefaultMicrophone(m_default);
    AwaitSteadyState();
}

bool MicrophoneScenario::IsSteady() const
{
    if (Probe().Restarting()) {
        return false;
    }
    if (Probe().Stopped()) {
        return fakewin::LiveThreads() == 0;
    }
    const auto clients = m_audio.Clients();
    const bool isRunning = !clients.empty() && clients.back().starts > 0;
    const auto &log = fakes::LogRecorder::Instance();
    return isRunning || (fakewin::LiveThreads() == 1 &&
                         log.Count(errorLevel, noCom, "AudioCapture::AudioCaptureAndEncodeThreadProc") > 0);
}

void MicrophoneScenario::AwaitSteadyState()
{
    EXPECT_TRUE(Eventually([this] { return IsSteady(); }));
}

bool MicrophoneScenario::ReadPacket()
{
    return Eventually([this] {
        uint32_t size = 0;
        Probe().Read(m_buffer.data(), size);
        return size != 0 || !Captures();
    });
}

void MicrophoneScenario::PollUntil(const std::function<bool()> &condition)
{
    EXPECT_TRUE(Eventually([&] { return condition() || !Captures() || (ReadPacket() && condition()); }));
}

// Continues for 100 ms of simulated time, or until the threads have ended.
void MicrophoneScenario::KeepRunning()
{
    const uint64_t begin = fakewin::WaitedMs();
    Eventually([&] { return fakewin::WaitedMs() >= begin + 100 || fakewin::LiveThreads() == 0; });
}

bool MicrophoneScenario::HasSound()
{
    if (m_capture == nullptr) {
        return false;
    }
    AwaitSteadyState();
    while (Captures() && Probe().Packets().DataCount() > 0) {
        ReadPacket(); // recorded before the fault was cleared
    }
    return Captures() && ReadPacket() && Captures();
}

void MicrophoneScenario::Apply(Recovery recovery)
{
    if (recovery == Recovery::DefaultChange && m_capture != nullptr) {
        ChangeDefault();
    } else if (recovery == Recovery::Reopening) {
        Close();
        Open();
    }
}

bool MicrophoneScenario::FollowsDefaultDevice()
{
    if (m_capture == nullptr) {
        Open();
    }
    ChangeDefault();
    return HasSound() && m_audio.Clients().back().endpoint == m_default;
}

void MicrophoneScenario::Finish()
{
    Close();
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::LiveHandles(), m_earlierHandles);
    EXPECT_EQ(m_audio.LiveObjects(), 0);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(m_audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), m_earlierReferences);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), m_earlierImplementation);
}

} // namespace

std::unique_ptr<Scenario> MakeMicrophoneScenario()
{
    return std::make_unique<MicrophoneScenario>();
}

} // namespace velto_test
