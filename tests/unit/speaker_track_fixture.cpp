#include "speaker_track_fixture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>

#include "aac_sound.h"
#include "audio_player_probe.h"
#include "handler/listener.h"
#include "play_thread_probe.h"
#include "render/wasapi_device_events.h"
#include "reset.h"
#include "tests/fakes/fake_ffmpeg.h"

namespace velto {

// Gives unit tests access to the renderer behind a notification client.
class WasapiDeviceEventsProbe {
public:
    static IAudioPlayer *Player(const WasapiDeviceEvents &events) { return events.m_player; }
};

} // namespace velto

namespace velto_test {
namespace {

using namespace std::chrono_literals;

// The play thread that owns the renderer behind a registered notification client.
velto::AudioPlayThread *OwnerOf(IMMNotificationClient *client)
{
    const auto &events = static_cast<velto::WasapiDeviceEvents &>(*client);
    auto &player = static_cast<velto::AudioPlayerWas &>(*velto::WasapiDeviceEventsProbe::Player(events));
    return static_cast<velto::AudioPlayThread *>(velto::AudioPlayerWasProbe(player).Callback());
}

// Decodes units without the module, to 16 bits.
std::vector<int16_t> ReferenceSound(const std::vector<AacUnit> &units)
{
    AacSound sound;
    for (const AacUnit &unit : units) {
        sound.Add(unit.data(), static_cast<uint32_t>(unit.size()));
    }
    std::vector<int16_t> samples;
    for (const float value : sound.Samples()) {
        const float scaled = std::clamp(std::round(value * 32768), -32768.0F, 32767.0F);
        samples.push_back(static_cast<int16_t>(scaled));
    }
    return samples;
}

} // namespace

SpeakerTrack *SpeakerTrack::s_current = nullptr;

SpeakerTrack::SpeakerTrack()
{
    fakes::ResetAll();
    if (velto::DeviceState != velto::DEVICE_NOT_INITIALISED) {
        StopWithoutWatchdog(); // an earlier test left the speakers running
    }
    static std::pair<velto::AudioPlayThread *, velto::AudioPlayThread *> threads;
    if (threads.first == nullptr) {
        FindPlayThreads();
        threads = {mediaThread, callThread};
    }
    std::tie(mediaThread, callThread) = threads;
    for (velto::AudioPlayThread *thread : {mediaThread, callThread}) {
        velto::AudioPlayThreadProbe(*thread).FreeQueued();
        // A notification of an earlier test would let the renderer change its endpoint at the first block.
        velto::AudioPlayThreadProbe(*thread).Player()->SetDeviceChanged(false);
        velto::AudioPlayThreadProbe(*thread).Player()->SetPropertyChanged(false);
        thread->needDelay = true;
    }
    fakes::ResetAll();
    AddEndpoints();
    SeparateEndpoints();
    s_current = this;
    EXPECT_EQ(VELTOGetAudioHandler(&table), VELTO_OK);
    const AudioListener listener{RecordEvent, nullptr};
    EXPECT_EQ(table.RegisterListener(&listener), VELTO_OK);
}

SpeakerTrack::~SpeakerTrack()
{
    if (velto::DeviceState == velto::DEVICE_READY) {
        Release();
    } else if (velto::DeviceState != velto::DEVICE_NOT_INITIALISED) {
        StopWithoutWatchdog();
    }
    const AudioListener none{nullptr, nullptr};
    table.RegisterListener(&none);
    s_current = nullptr;
    EXPECT_TRUE(Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

// Each track's renderer registers a notification client when it opens: first that of "speaker1".
void SpeakerTrack::FindPlayThreads()
{
    EXPECT_EQ(VELTOGetAudioHandler(&table), VELTO_OK);
    AddEndpoints();
    SeparateEndpoints();
    Start();
    const std::vector<IMMNotificationClient *> clients = audio.Callbacks();
    mediaThread = OwnerOf(clients.at(0));
    callThread = OwnerOf(clients.at(1));
    Release();
}

void SpeakerTrack::AddEndpoints()
{
    for (const wchar_t *id : {mediaEndpoint, callEndpoint}) {
        audio.Get(id).mixFormat = {2, 16, 48000};
    }
}

// Between the starts of both tracks, the media track's decoder is set up.
void SpeakerTrack::SeparateEndpoints()
{
    audio.SetDefaultForAllRoles(mediaEndpoint);
    fakeffmpeg::Script().Before(fakeffmpeg::Call::avformat_alloc_context, [this] {
        EXPECT_TRUE(Eventually([this] { return Runs(mediaEndpoint); }));
        audio.SetDefaultForAllRoles(callEndpoint);
    });
}

void SpeakerTrack::ForgetEndpoints()
{
    fakeffmpeg::Script().ClearFaults();
}

bool SpeakerTrack::Runs(const std::wstring &endpoint) const
{
    const std::vector<fakes::ClientRecord> clients = audio.Clients();
    return std::any_of(clients.begin(), clients.end(), [&](const fakes::ClientRecord &client) {
        return client.alive && client.endpoint == endpoint && client.starts > client.stops;
    });
}

void SpeakerTrack::Start()
{
    EXPECT_EQ(WriteUndecoded(1), VELTO_OK);
    EXPECT_TRUE(Eventually([this] { return Runs(mediaEndpoint) && Runs(callEndpoint); }));
}

// Advances the clock repeatedly, because the watchdog may not have reached its next wait yet.
void SpeakerTrack::Release()
{
    EXPECT_TRUE(Eventually([] {
        fakewin::AdvanceClock(idleMs);
        std::this_thread::sleep_for(1ms);
        return velto::DeviceState == velto::DEVICE_NOT_INITIALISED && fakewin::LiveThreads() == 0;
    }));
}

void SpeakerTrack::StopWithoutWatchdog()
{
    velto::StopSpeakerTracks();
    velto::DeviceState = velto::DEVICE_NOT_INITIALISED;
}

int32_t SpeakerTrack::Write(const char *id, AacUnit unit, int32_t streamType)
{
    HostFrame record(unit, streamType);
    return table.WriteStreamBuffer(id, Length(id), nullptr, &record.frame);
}

int32_t SpeakerTrack::SetParameters(const char *id, const std::vector<AudioProfileEntry> &entries)
{
    const AudioProfileList list{static_cast<uint32_t>(entries.size()), 0, entries.data()};
    return table.SetAudioParameter(id, Length(id), nullptr, nullptr, &list);
}

bool SpeakerTrack::AwaitBlocks(const wchar_t *endpoint, size_t blocks) const
{
    return Eventually([&] { return audio.Written(endpoint).size() >= blocks * blockBytes; }) &&
           audio.Written(endpoint).size() == blocks * blockBytes;
}

void SpeakerTrack::ExpectSound(const wchar_t *endpoint, const std::vector<AacUnit> &units) const
{
    const std::vector<uint8_t> written = audio.Written(endpoint);
    std::vector<int16_t> heard(written.size() / sizeof(int16_t));
    std::memcpy(heard.data(), written.data(), heard.size() * sizeof(int16_t));
    const std::vector<int16_t> reference = ReferenceSound(units);
    ASSERT_EQ(heard.size(), reference.size()) << "samples of " << units.size() << " units";
    int largest = 0;
    size_t differing = heard.size();
    for (size_t i = 0; i < heard.size(); ++i) {
        const int difference = std::abs(heard[i] - reference[i]);
        differing = difference > 1 ? std::min(differing, i) : differing;
        largest = std::max(largest, std::abs(int{reference[i]}));
    }
    EXPECT_EQ(differing, heard.size()) << "first sample that differs by more than rounding, in unit "
                                       << differing * sizeof(int16_t) / blockBytes;
    EXPECT_GT(largest, 8000) << "the reference is silent";
}

std::optional<DWORD> SpeakerTrack::StreamType()
{
    return fakewin::RegistryDword(HKEY_CURRENT_USER, L"SOFTWARE\\NORVEL\\NRAudio\\NrMirror", L"StreamType");
}

void SpeakerTrack::RecordEvent(const char *id, uint32_t idLength, int32_t code)
{
    static std::mutex mutex;
    std::function<void()> action;
    {
        const std::lock_guard lock(mutex);
        s_current->sentEvents.push_back({id, idLength, code});
        action = std::exchange(s_current->onEvent, nullptr);
    }
    if (action) {
        action();
    }
}

} // namespace velto_test
