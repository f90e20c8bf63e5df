#include "microphone_road.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "capture_fixture.h"
#include "reset.h"

namespace velto_test {
namespace {

constexpr int rounds = 5;
constexpr int stepsOfRound = 4;
const char *const stepNames[stepsOfRound] = {"opening", "capturing", "restarting", "closing"};
// What the capture thread does for each packet.
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

class MicrophoneRoad : public Road {
public:
    MicrophoneRoad()
    {
        fakes::ResetAll();
        for (const wchar_t *id : {L"microphone", L"headset"}) {
            // A packet in every pass of the loop.
            m_audio.Get(id).source = [given = false]() mutable -> std::optional<CapturedPacket> {
                given = !given;
                return given ? std::optional(QuietPacket(1024)) : std::nullopt;
            };
        }
        m_audio.Get(L"headset").mixFormat.rateHz = 44100;
    }

    // The init thread sets the ready event at each start; whether the capture thread still finds it there is
    // chance.
    int SureUses(const FaultyCall &call, int counted) const override
    {
        return call.name == "SetEvent" ? std::min(counted, 2 * rounds) : counted;
    }
    bool Polls(const FaultyCall &call) const override
    {
        return std::find(polled.begin(), polled.end(), call.name) != polled.end();
    }
    int Steps() const override { return rounds * stepsOfRound; }
    std::string StepName(int step) const override
    {
        return std::string(stepNames[step % stepsOfRound]) + " in round " +
               std::to_string(step / stepsOfRound + 1);
    }
    Expectation Expected(const FaultCase &faulty, int step, int use) const override
    {
        return ExpectedOfMicrophone(faulty, KindOf(step), use);
    }

    void Take(int step) override;
    bool LingersIn(int step) const override { return step == Steps() - 2; }
    void Linger(const std::function<bool()> &until) override;
    void Bear() override;
    bool SoundFlows() override;
    void Apply(Remedy remedy) override;
    bool FollowsTheDefault() override;
    void Finish() override;

private:
    static MicrophoneStep KindOf(int step) { return static_cast<MicrophoneStep>(step % stepsOfRound); }

    void Open();
    void Close();
    void Capture();
    void ChangeDefault();
    // Waits until the capture's threads do what they will go on doing, and nothing else begins or ends.
    void Settle();
    bool IsSettled() const;
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

void MicrophoneRoad::Take(int step)
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

void MicrophoneRoad::Open()
{
    m_capture = std::make_unique<velto::AudioCapture>();
    m_capture->SetTarget(48000, 2, 1);
    m_capture->Prepare();
    Settle(); // so that the capture thread has made its calls before these
    m_capture->Start();
}

void MicrophoneRoad::Close()
{
    if (m_capture != nullptr) {
        m_capture->EndRestarts();
        m_capture->Stop();
        m_capture->WaitInitThread();
        m_capture.reset();
    }
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 0; }));
}

// Three packets, or what comes in two seconds, had they taken their time: faults may let none come.
void MicrophoneRoad::Capture()
{
    const uint64_t begin = fakewin::WaitedMs();
    const auto over = [&] { return !Captures() || fakewin::WaitedMs() >= begin + 2000; };
    for (int packet = 0; packet < 3; ++packet) {
        Eventually([&] { return Probe().Packets().DataCount() > 0 || over(); });
        if (!over()) {
            ReadPacket();
        }
    }
}

void MicrophoneRoad::ChangeDefault()
{
    m_default = m_default == L"headset" ? L"microphone" : L"headset";
    m_audio.SetDefaultMicrophone(m_default);
    m_audio.NotifyDefaultChanged(eCapture, eConsole, m_default);
    Settle();
}

bool MicrophoneRoad::IsSettled() const
{
    if (Probe().Restarting()) {
        return false;
    }
    if (Probe().Stopped()) {
        return fakewin::LiveThreads() == 0;
    }
    const auto clients = m_audio.Clients();
    const bool runs = !clients.empty() && clients.back().starts > 0;
    const auto &log = fakes::LogRecorder::Instance();
    return runs || (fakewin::LiveThreads() == 1 &&
                    log.Count(errorLevel, noCom, "AudioCapture::AudioCaptureAndEncodeThreadProc") > 0);
}

void MicrophoneRoad::Settle()
{
    EXPECT_TRUE(Eventually([this] { return IsSettled(); }));
}

bool MicrophoneRoad::ReadPacket()
{
    return Eventually([this] {
        uint32_t size = 0;
        Probe().Read(m_buffer.data(), size);
        return size != 0 || !Captures();
    });
}

void MicrophoneRoad::Linger(const std::function<bool()> &until)
{
    EXPECT_TRUE(Eventually([&] { return until() || !Captures() || (ReadPacket() && until()); }));
}

// For a tenth of a second, had it taken its time.
void MicrophoneRoad::Bear()
{
    const uint64_t begin = fakewin::WaitedMs();
    Eventually([&] { return fakewin::WaitedMs() >= begin + 100 || fakewin::LiveThreads() == 0; });
}

bool MicrophoneRoad::SoundFlows()
{
    if (m_capture == nullptr) {
        return false;
    }
    Settle();
    while (Captures() && Probe().Packets().DataCount() > 0) {
        ReadPacket(); // what was heard earlier
    }
    return Captures() && ReadPacket() && Captures();
}

void MicrophoneRoad::Apply(Remedy remedy)
{
    if (remedy == Remedy::DefaultChange && m_capture != nullptr) {
        ChangeDefault();
    } else if (remedy == Remedy::Reopening) {
        Close();
        Open();
    }
}

bool MicrophoneRoad::FollowsTheDefault()
{
    if (m_capture == nullptr) {
        Open();
    }
    ChangeDefault();
    return SoundFlows() && m_audio.Clients().back().endpoint == m_default;
}

void MicrophoneRoad::Finish()
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

std::unique_ptr<Road> MakeMicrophoneRoad()
{
    return std::make_unique<MicrophoneRoad>();
}

} // namespace velto_test
