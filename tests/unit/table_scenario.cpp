#include "table_scenario.h"

#include <cstring>
#include <set>

#include "aac_units.h"
#include "capture_fixture.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "reset.h"
#include "tone.h"

namespace velto_test {
namespace {

constexpr int unitsPerStep = 12; // on each speaker
constexpr double unitHz = 440;
const char *const stepNames[] = {"starting", "writing", "closing the tracks"};
const char *const speakers[] = {"speaker1", "ModemSpeaker1"};

class TableScenario : public Scenario {
public:
    TableScenario()
    {
        fakes::ResetAll();
        for (const wchar_t *id : {L"speakers", L"headphones"}) {
            m_audio.Get(id).drainFrames = 4800;
        }
        EXPECT_EQ(VELTOGetAudioHandler(&m_table), VELTO_OK);
        m_earlierHandles = fakewin::LiveHandles();
    }

    // Starts and releases the speakers once: their renderers keep events until the process ends.
    void CreateRenderers()
    {
        Start();
        Release();
    }

    bool Covers(const FaultyCall &call) const override
    {
        static const std::set<std::string> covered{"SetEvent",     "CreateThread",   "GetModuleHandleEx",
                                                   "RegOpenKeyEx", "RegCreateKeyEx", "RegQueryValueEx",
                                                   "RegSetValueEx"};
        return covered.count(call.name) != 0;
    }
    int Steps() const override { return static_cast<int>(std::size(stepNames)); }
    std::string StepName(int step) const override { return stepNames[step]; }
    Expectation Expected(const FaultCase &faulty, int step, int use) const override;
    void RunStep(int step) override;
    bool CanKeepPolling(int) const override { return false; }
    void PollUntil(const std::function<bool()> &) override {}
    void KeepRunning() override { WriteAll(); }
    bool HasSound() override;
    void Apply(Recovery recovery) override;
    bool FollowsDefaultDevice() override;
    void Finish() override;

private:
    void Start();
    void WriteAll();
    void Write(const char *id, int unit);
    void Switch();
    void Release();
    bool BothClientsRun() const
    {
        int running = 0;
        for (const fakes::ClientRecord &client : m_audio.Clients()) {
            running += client.starts > client.stops ? 1 : 0;
        }
        return running == 2;
    }
    // Writes enough units to fill the cushion. True if the tone of the units reaches the default endpoint.
    bool SoundArrives();
    // True if the endpoint buffers written since the first `bytes` contain the tone of the units.
    bool HasTone(size_t bytes) const;

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    AudioHandlerTable m_table{};
    std::wstring m_default = L"speakers";
    int m_streamType = 0;
    int m_earlierHandles = 0;
    const int m_earlierReferences = fakewin::ModuleReferences(fakewin::ThisModule());
};

void TableScenario::RunStep(int step)
{
    switch (step) {
    case 0:
        Start();
        break;
    case 1:
        WriteAll();
        break;
    default:
        for (const char *id : speakers) {
            EXPECT_EQ(m_table.CloseAudioTrack(id, Length(id)), VELTO_OK);
        }
    }
}

void TableScenario::Start()
{
    Write(speakers[0], 0);
    EXPECT_TRUE(Eventually([this] { return BothClientsRun(); }));
}

void TableScenario::Write(const char *id, int unit)
{
    static const std::vector<AacUnit> units = EncodeTone(unitsPerStep, 2, unitHz);
    AacUnit bytes = units[static_cast<size_t>(unit)];
    HostFrame record(bytes, ++m_streamType);
    m_table.WriteStreamBuffer(id, Length(id), nullptr, &record.frame);
}

void TableScenario::WriteAll()
{
    for (int unit = 0; unit < unitsPerStep; ++unit) {
        for (const char *id : speakers) {
            Write(id, unit);
        }
    }
}

bool TableScenario::SoundArrives()
{
    const size_t before = m_audio.Written(m_default).size();
    WriteAll();
    return Eventually([&] { return HasTone(before); });
}

// Both speakers write buffers to the endpoint in turn, each a block of one of them. A block that begins or
// ends the units differs from the tone, so one block is enough.
bool TableScenario::HasTone(size_t bytes) const
{
    constexpr size_t blockFrames = 1024;
    constexpr size_t frameBytes = 2 * sizeof(int32_t);
    const std::vector<uint8_t> written = m_audio.Written(m_default);
    for (size_t at = bytes; at + blockFrames * frameBytes <= written.size(); at += blockFrames * frameBytes) {
        std::vector<double> left(blockFrames);
        for (size_t i = 0; i < blockFrames; ++i) {
            int32_t sample = 0;
            std::memcpy(&sample, written.data() + at + i * frameBytes, sizeof sample);
            left[i] = sample / 2147483648.0;
        }
        if (IsSine(left, unitHz, 48000)) {
            return true;
        }
    }
    return false;
}

bool TableScenario::HasSound()
{
    return velto::DeviceState == velto::DEVICE_READY && SoundArrives();
}

void TableScenario::Switch()
{
    m_default = m_default == L"speakers" ? L"headphones" : L"speakers";
    m_audio.ChangeDefaultSpeaker(m_default);
}

void TableScenario::Apply(Recovery recovery)
{
    if (recovery == Recovery::DefaultChange) {
        Switch();
    } else if (recovery == Recovery::Reopening) {
        Release();
        Start();
    }
}

bool TableScenario::FollowsDefaultDevice()
{
    Switch();
    return SoundArrives();
}

// Advances the clock past the idle time. Without a watchdog, stops the tracks directly.
void TableScenario::Release()
{
    const bool hasWatchdog = fakewin::LiveThreads() > 0;
    if (!hasWatchdog) {
        velto::StopSpeakerTracks();
        velto::DeviceState = velto::DEVICE_NOT_INITIALISED;
    }
    EXPECT_TRUE(Eventually([] {
        if (fakewin::LiveThreads() > 0) {
            fakewin::AdvanceClock(idleMs);
        }
        return velto::DeviceState == velto::DEVICE_NOT_INITIALISED && fakewin::LiveThreads() == 0;
    }));
}

void TableScenario::Finish()
{
    Release();
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::LiveHandles(), m_earlierHandles);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), m_earlierReferences);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(m_audio.RegisteredCallbacks(), 0);
    EXPECT_LE(m_audio.LiveObjects(), 4) << "an enumerator and a device per renderer";
}

Expectation TableScenario::Expected(const FaultCase &faulty, int, int) const
{
    const std::string &call = faulty.call.name;
    Expectation expected;
    if (faulty.fault.kind != FaultKind::Failure) {
        return expected;
    }
    // The module reopens a deleted or invalid key once per write.
    const bool isStale =
        faulty.fault.name == "ERROR_KEY_DELETED" || faulty.fault.name == "ERROR_INVALID_HANDLE";
    if (call == "RegCreateKeyEx" || (call == "RegSetValueEx" && (faulty.lasting || !isStale))) {
        expected.line = Line{"`anonymous-namespace'::SetStreamType", L"Set streamType failed!"};
    }
    return expected;
}

} // namespace

std::unique_ptr<Scenario> MakeTableScenario()
{
    TableScenario().CreateRenderers(); // each time: a test whose renderers failed to open leaves no events
    return std::make_unique<TableScenario>();
}

} // namespace velto_test
