#include "microphone_scenario.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>
#include <thread>

#include "aac_sound.h"
#include "capture_fixture.h"
#include "reset.h"
#include "tests/fakes/polling.h"
#include "tone.h"

namespace velto_test {
namespace {

constexpr int rounds = 3;
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
constexpr int passesWithoutPacket = 20; // after these the capture thread waits for the next step

// Delivers the tones, one packet per pass of the capture loop: a microphone is never faster than its clock.
class ToneSource {
public:
    ToneSource(double rateHz, const std::atomic<int> &passes) : m_rateHz(rateHz), m_passes(&passes) {}

    std::optional<CapturedPacket> operator()()
    {
        if (m_lastPass == *m_passes) {
            return std::nullopt;
        }
        m_lastPass = *m_passes;
        std::vector<float> samples(size_t{2} * 1024);
        for (size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<float>(ToneSample(m_position + i / 2, i % 2, m_rateHz));
        }
        m_position += samples.size() / 2;
        return FloatPacket(samples);
    }

private:
    double m_rateHz;
    uint64_t m_position = 0;
    const std::atomic<int> *m_passes;
    int m_lastPass = 0;
};

class MicrophoneScenario : public Scenario {
public:
    explicit MicrophoneScenario(RaceOrder order) : m_order(order)
    {
        fakes::ResetAll();
        m_audio.Get(L"headset").mixFormat.rateHz = 44100;
        for (const wchar_t *id : {L"microphone", L"headset"}) {
            m_audio.Get(id).source = ToneSource(m_audio.Get(id).mixFormat.rateHz, m_allPasses);
        }
        fakewin::SetCallHook([this](fakewin::Call call) { OnCall(call); });
    }

    // If the init thread cannot set the ready event, Prepare waits for the capture thread, so registration
    // cannot come first.
    bool Covers(const FaultyCall &call) const override
    {
        return m_order == RaceOrder::DeviceFirst || call.name != "SetEvent";
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
        return ExpectedOfMicrophone(faulty, KindOf(step), m_moment, use);
    }
    void OnFault() override
    {
        // A recording that has been stopped loses nothing more.
        if (const MicrophoneMoment moment = CurrentMoment(); moment != MicrophoneMoment::Ending) {
            m_moment = moment;
        }
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

    // --- Order of the threads, on the module's threads
    void OnCall(fakewin::Call call);
    // 0: the thread that prepares and registers; 1: the init thread; 2: the capture thread.
    static int Role() { return fakewin::ThreadDepth() - (fakewin::StartedByNotification() ? 1 : 0); }
    MicrophoneMoment CurrentMoment() const;
    // True once Start, which races with the calling capture thread, has returned.
    bool IsRegistered() const
    {
        return fakewin::StartedByNotification() ? !Probe().Restarting() : m_openingIsOver.load();
    }
    // True if the capture thread captures and waits, or if it has ended. `others`: the number of threads that
    // run besides those of the capture.
    bool IsSettled(int others) const;
    void WaitInLoop();

    // --- On the test's thread
    // Lets the capture loop run until it has a packet, has made its passes in vain or hangs.
    void RunLoop();
    // Waits until no restart is running and the capture is settled.
    void AwaitSteadyState();
    bool Captures() const
    {
        return m_capture != nullptr && !Probe().Stopped() && fakewin::LiveThreads() >= 2;
    }
    // Returns the size of a packet, or 0 without one.
    uint32_t ReadPacket();
    velto::AudioCaptureProbe Probe() const { return velto::AudioCaptureProbe(*m_capture); }

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioCapture> m_capture;
    std::wstring m_default = L"microphone";
    std::array<uint8_t, 8192> m_buffer;
    const RaceOrder m_order;
    std::atomic<bool> m_openingIsOver{false};
    std::atomic<bool> m_isRegistering{false}; // Start has begun
    std::atomic<bool> m_loopWaits{false};
    std::atomic<int> m_passes{0}; // of the capture loop, since the test has let it run
    std::atomic<int> m_allPasses{0};
    std::atomic<MicrophoneMoment> m_moment{MicrophoneMoment::Ending};
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
    m_openingIsOver = false;
    m_isRegistering = false;
    m_passes = 0;
    m_capture = std::make_unique<velto::AudioCapture>();
    m_capture->SetTarget(48000, 2, 1);
    m_capture->Prepare();
    m_capture->Start();
    m_openingIsOver = true;
    AwaitSteadyState();
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

// Reads up to three packets. A fault may leave no packets to read.
void MicrophoneScenario::Capture()
{
    for (int packet = 0; packet < 3; ++packet) {
        RunLoop();
        ReadPacket();
    }
    RunLoop();
}

void MicrophoneScenario::ChangeDefault()
{
    m_isRegistering = false;
    m_passes = 0;
    m_default = m_default == L"headset" ? L"microphone" : L"headset";
    m_audio.ChangeDefaultMicrophone(m_default);
    AwaitSteadyState();
}

// Orders the threads that race, and makes the capture loop wait between steps.
void MicrophoneScenario::OnCall(fakewin::Call call)
{
    const bool entersCom = call == fakewin::Call::CoInitializeEx;
    const bool isRestart = fakewin::StartedByNotification();
    if (entersCom && Role() == 0) {
        m_isRegistering = true;
        if (m_order == RaceOrder::DeviceFirst) {
            EXPECT_TRUE(Eventually([&] { return IsSettled(isRestart ? 1 : 0); }));
        }
    }
    if (entersCom && Role() == 2 && m_order == RaceOrder::RegistrationFirst) {
        EXPECT_TRUE(Eventually([this] { return IsRegistered(); }));
    }
    if (call == fakewin::Call::Sleep && Role() == 2) {
        WaitInLoop();
    }
}

void MicrophoneScenario::WaitInLoop()
{
    const auto mayRun = [this] {
        return Probe().Stopped() || (Probe().Packets().DataCount() == 0 && m_passes < passesWithoutPacket);
    };
    if (!mayRun()) {
        m_loopWaits = true;
        while (!mayRun()) { // for as long as the test does something else
            std::this_thread::sleep_for(fakes::pollTime);
        }
        m_loopWaits = false;
    }
    ++m_passes;
    ++m_allPasses;
}

MicrophoneMoment MicrophoneScenario::CurrentMoment() const
{
    if (fakewin::InNotification()) {
        return MicrophoneMoment::Notifying;
    }
    switch (Role()) {
    case 0:
        return m_isRegistering ? MicrophoneMoment::Registering : MicrophoneMoment::Preparing;
    case 1:
        return MicrophoneMoment::SettingUp;
    default:
        return Probe().Stopped() ? MicrophoneMoment::Ending
               : IsRegistered()  ? MicrophoneMoment::Registered
                                 : MicrophoneMoment::Unregistered;
    }
}

// Without an error, a capture has its init thread and its capture thread. If the capture thread cannot enter
// COM, it ends and the init thread stays.
bool MicrophoneScenario::IsSettled(int others) const
{
    const int threads = fakewin::LiveThreads() - others;
    return Probe().Stopped() ? threads == 0 : threads == 1 || m_loopWaits;
}

void MicrophoneScenario::AwaitSteadyState()
{
    EXPECT_TRUE(Eventually([this] { return !Probe().Restarting() && IsSettled(0); }));
}

void MicrophoneScenario::RunLoop()
{
    constexpr uint64_t longestMs = 30000; // simulated; passes while a call of the capture thread hangs
    const uint64_t begin = fakewin::WaitedMs();
    m_passes = 0;
    EXPECT_TRUE(Eventually([&] {
        const bool hasRun = Probe().Packets().DataCount() > 0 || m_passes >= passesWithoutPacket;
        return !Captures() || (hasRun && m_loopWaits) || fakewin::WaitedMs() > begin + longestMs;
    }));
}

uint32_t MicrophoneScenario::ReadPacket()
{
    uint32_t size = 0;
    Probe().Read(m_buffer.data(), size);
    return size;
}

void MicrophoneScenario::PollUntil(const std::function<bool()> &condition)
{
    while (!condition() && Captures()) {
        RunLoop();
        ReadPacket();
    }
}

void MicrophoneScenario::KeepRunning()
{
    RunLoop();
}

// Reads more packets than were recorded before the fault was cleared, and decodes the last ones: the encoder
// and the decoder each need a packet before the sound is whole.
bool MicrophoneScenario::HasSound()
{
    constexpr int packets = 8;
    if (m_capture == nullptr) {
        return false;
    }
    AwaitSteadyState();
    AacSound sound;
    for (int packet = 0; packet < packets; ++packet) {
        uint32_t size = 0;
        do {
            RunLoop(); // may end early on a busy machine
            size = Captures() ? ReadPacket() : 0;
        } while (size == 0 && Captures() && m_passes < passesWithoutPacket);
        if (size == 0) {
            return false;
        }
        sound.Add(m_buffer.data(), size);
    }
    const std::vector<float> &samples = sound.Samples();
    constexpr auto endSamples = std::ptrdiff_t{2} * 2 * aacFrameLength;
    if (std::ssize(samples) < endSamples) {
        return false; // a packet did not decode
    }
    const std::vector<double> end(samples.end() - endSamples, samples.end());
    return AreTones(end, 2, 48000);
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
    // A notifier that the system does not unregister stays, with its two references.
    const int lost = m_audio.FailedUnregistrations();
    EXPECT_EQ(m_audio.RegisteredCallbacks(), lost);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), m_earlierReferences + lost);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), m_earlierImplementation + lost);
}

} // namespace

std::unique_ptr<Scenario> MakeMicrophoneDeviceFirst()
{
    return std::make_unique<MicrophoneScenario>(RaceOrder::DeviceFirst);
}

std::unique_ptr<Scenario> MakeMicrophoneRegistrationFirst()
{
    return std::make_unique<MicrophoneScenario>(RaceOrder::RegistrationFirst);
}

} // namespace velto_test
