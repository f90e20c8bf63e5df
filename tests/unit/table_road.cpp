#include "table_road.h"

#include <cstring>
#include <set>

#include "aac_frames.h"
#include "capture_fixture.h"
#include "handler/speaker_track.h"
#include "reset.h"

extern "C" int32_t VELTOGetAudioHandler(AudioHandlerTable *table);

namespace velto_test {
namespace {

constexpr DWORD idleMs = 240000;
constexpr int framesOfStep = 12; // on each speaker
const char *const stepNames[] = {"starting", "writing", "closing the tracks"};
const char *const speakers[] = {"speaker1", "ModemSpeaker1"};

class TableRoad : public Road {
public:
    TableRoad()
    {
        fakes::ResetAll();
        for (const wchar_t *id : {L"speakers", L"headphones"}) {
            m_audio.Get(id).drainFrames = 4800;
        }
        EXPECT_EQ(VELTOGetAudioHandler(&m_table), VELTO_OK);
        m_earlierHandles = fakewin::LiveHandles();
    }

    // Once made, the renderers keep their events.
    void MakeRenderers()
    {
        Start();
        Release();
    }

    bool Meets(const FaultyCall &call) const override
    {
        static const std::set<std::string> met{"SetEvent",     "CreateThread",   "GetModuleHandleEx",
                                               "RegOpenKeyEx", "RegCreateKeyEx", "RegQueryValueEx",
                                               "RegSetValueEx"};
        return met.count(call.name) != 0;
    }
    int Steps() const override { return static_cast<int>(std::size(stepNames)); }
    std::string StepName(int step) const override { return stepNames[step]; }
    Expectation Expected(const FaultCase &faulty, int step, int use) const override;
    void Take(int step) override;
    bool LingersIn(int) const override { return false; }
    void Linger(const std::function<bool()> &) override {}
    void Bear() override { WriteAll(); }
    bool SoundFlows() override;
    void Apply(Remedy remedy) override;
    bool FollowsTheDefault() override;
    void Finish() override;

private:
    void Start();
    void WriteAll();
    void Write(const char *id, int frame);
    void Switch();
    void Release();
    bool ClientsRun() const
    {
        int running = 0;
        for (const fakes::ClientRecord &client : m_audio.Clients()) {
            running += client.starts > client.stops ? 1 : 0;
        }
        return running == 2;
    }
    // What comes to the default endpoint after so many frames as fill the cushion.
    bool Arrives();

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    AudioHandlerTable m_table{};
    std::wstring m_default = L"speakers";
    int m_streamType = 0;
    int m_earlierHandles = 0;
    const int m_earlierReferences = fakewin::ModuleReferences(fakewin::ThisModule());
};

void TableRoad::Take(int step)
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
            EXPECT_EQ(m_table.CloseAudioTrack(id, static_cast<uint32_t>(std::strlen(id))), VELTO_OK);
        }
    }
}

void TableRoad::Start()
{
    Write(speakers[0], 0);
    EXPECT_TRUE(Eventually([this] { return ClientsRun(); }));
}

void TableRoad::Write(const char *id, int frame)
{
    static const std::vector<AacFrame> frames = EncodeTone(framesOfStep);
    AacFrame bytes = frames[static_cast<size_t>(frame)];
    StreamFrameHeader header{++m_streamType, static_cast<uint32_t>(bytes.size()), 0};
    StreamFrame record{bytes.data(), {}, &header};
    m_table.WriteStreamBuffer(id, static_cast<uint32_t>(std::strlen(id)), nullptr, &record);
}

void TableRoad::WriteAll()
{
    for (int frame = 0; frame < framesOfStep; ++frame) {
        for (const char *id : speakers) {
            Write(id, frame);
        }
    }
}

bool TableRoad::Arrives()
{
    const size_t before = m_audio.Written(m_default).size();
    WriteAll();
    return Eventually([&] { return m_audio.Written(m_default).size() > before; });
}

bool TableRoad::SoundFlows()
{
    return velto::DeviceState == velto::DEVICE_READY && Arrives();
}

void TableRoad::Switch()
{
    m_default = m_default == L"speakers" ? L"headphones" : L"speakers";
    m_audio.SetDefaultForAllRoles(m_default);
    m_audio.NotifyDefaultChanged(eRender, eMultimedia, m_default);
}

void TableRoad::Apply(Remedy remedy)
{
    if (remedy == Remedy::DefaultChange) {
        Switch();
    } else if (remedy == Remedy::Reopening) {
        Release();
        Start();
    }
}

bool TableRoad::FollowsTheDefault()
{
    Switch();
    return Arrives();
}

// After four minutes, or at once where no watchdog could be started.
void TableRoad::Release()
{
    const bool isWatched = fakewin::LiveThreads() > 0;
    if (!isWatched) {
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

void TableRoad::Finish()
{
    Release();
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::LiveHandles(), m_earlierHandles);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), m_earlierReferences);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(m_audio.RegisteredCallbacks(), 0);
    EXPECT_LE(m_audio.LiveObjects(), 4) << "an enumerator and a device a renderer";
}

Expectation TableRoad::Expected(const FaultCase &faulty, int, int) const
{
    const std::string &call = faulty.call.name;
    Expectation expected{{}, {Remedy::None}};
    if (faulty.fault.kind != FaultKind::Failure) {
        return expected;
    }
    // A key that has gone is opened anew, once.
    const bool isStale =
        faulty.fault.name == "ERROR_KEY_DELETED" || faulty.fault.name == "ERROR_INVALID_HANDLE";
    if (call == "RegCreateKeyEx" || (call == "RegSetValueEx" && (faulty.lasting || !isStale))) {
        expected.lines.push_back({"`anonymous-namespace'::SetStreamType", L"Set streamType failed!"});
    }
    return expected;
}

} // namespace

std::unique_ptr<Road> MakeTableRoad()
{
    [[maybe_unused]] static const bool renderersMade = [] {
        TableRoad().MakeRenderers();
        return true;
    }();
    return std::make_unique<TableRoad>();
}

} // namespace velto_test
