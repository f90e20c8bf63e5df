#include "handler/speaker_track.h"

#include <memory>
#include <mutex>
#include <string>

#include "handler/device_ids.h"
#include "handler/host_records.h"
#include "handler/idle_watchdog.h"
#include "handler/listener.h"
#include "handler/log.h"
#include "playback/audio_play_thread.h"
#include "playback/ffmpeg_decode.h"
#include "registry/registry.h"
#include "support/process_state.h"

namespace velto {

std::atomic<int32_t> DeviceState{DEVICE_NOT_INITIALISED};
std::atomic<HANDLE> IdleEvent{nullptr};

namespace {

constexpr char writeTag[] = "`anonymous-namespace'::VeltoWriteStreamBuffer";
constexpr char closeTag[] = "`anonymous-namespace'::VeltoCloseAudioTrack";
constexpr char parameterTag[] = "`anonymous-namespace'::VeltoSetAudioParameter";
constexpr char initTag[] = "`anonymous-namespace'::InitDefaultAudioDevice";
constexpr char streamTypeTag[] = "`anonymous-namespace'::SetStreamType";

constexpr int32_t decoderRateHz = 48000;
constexpr uint32_t callsPerLogLine = 50;
constexpr int32_t noStreamType = -1;

const std::wstring registryKey = L"\\SOFTWARE\\NORVEL\\NRAudio\\NrMirror";
const std::wstring streamTypeValue = L"StreamType";
constexpr REGSAM registryAccess = 0xF003F; // KEY_ALL_ACCESS

SpeakerAudioParams speakerAudioParams;

std::recursive_mutex InitMutex; // guards the start; only tried, so that no writer waits for another's start
std::mutex TrackMutex;          // guards the open flags and the decoders

void BroadcastToPlayers(bool value);

// One speaker: the play thread and the decoder that feeds it.
struct SpeakerTrack {
    std::shared_ptr<AudioPlayThread> playThread =
        std::make_shared<AudioPlayThread>(&speakerAudioParams, BroadcastToPlayers);
    std::unique_ptr<FFmpegDecode> decoder = std::make_unique<FFmpegDecode>(playThread, decoderRateHz);
    bool isOpen = false; // contract only: started or written to, and not closed; guarded by TrackMutex
};

struct SpeakerTracks {
    SpeakerTrack media; // "speaker1"
    SpeakerTrack call;  // "ModemSpeaker1"
};

// Creates the tracks at load and deletes them at unload, when no thread of the module runs any more. At
// process end the tracks are not deleted: the system has killed the play threads, and one of them may have
// left a mutex locked.
class TracksAtLoad {
public:
    TracksAtLoad() : m_tracks(new SpeakerTracks) {}
    ~TracksAtLoad()
    {
        if (!ProcessIsEnding()) {
            delete m_tracks;
        }
    }
    TracksAtLoad(const TracksAtLoad &) = delete;
    TracksAtLoad &operator=(const TracksAtLoad &) = delete;
    SpeakerTracks *operator->() const { return m_tracks; }

private:
    SpeakerTracks *m_tracks;
};

TracksAtLoad tracks;

void BroadcastToPlayers(bool value)
{
    tracks->media.playThread->SetBroadcastFlag(value);
    tracks->call.playThread->SetBroadcastFlag(value);
}

SpeakerTrack *TrackOf(const std::string &id)
{
    if (id == speakerId) {
        return &tracks->media;
    }
    if (id == modemSpeakerId) {
        return &tracks->call;
    }
    return nullptr;
}

bool StartTrack(SpeakerTrack &track, const char *failure)
{
    if (track.playThread->threadStarted) {
        return true;
    }
    DeviceState = DEVICE_INITIALISING;
    track.playThread->isRunning = 1;
    track.playThread->StartPlayThread();
    // A writer that began before the idle release may still be decoding its unit.
    const std::lock_guard lock(TrackMutex);
    if (track.decoder->InitFFmpeg() != 0) {
        LogError(initTag, failure);
        return false;
    }
    track.isOpen = true;
    return true;
}

// The caller has locked InitMutex. If a decoder or a play thread cannot be set up, DeviceState stays
// DEVICE_INITIALISING and the start is not retried until the module is reloaded. A play thread that runs by
// then keeps the module loaded until the process ends. If only the watchdog cannot be started, the speakers
// play and are never released.
int32_t InitDefaultAudioDevice()
{
    if (!StartTrack(tracks->media, "Init Audio Decode failed") ||
        !StartTrack(tracks->call, "Init modem Decodee failed")) {
        return VELTO_ERROR_INVALID;
    }
    DeviceState = DEVICE_READY;
    StartIdleWatchdog();
    return VELTO_OK;
}

// Stores a stream type in the registry, unless the registry already has it.
void SetStreamType(int32_t streamType)
{
    auto value = static_cast<DWORD>(streamType); // not const, because SetValue takes a non-const reference
    auto stored = static_cast<DWORD>(noStreamType);
    const bool isStored =
        DE::Registry::GetValue(HKEY_CURRENT_USER, registryKey, streamTypeValue, stored, registryAccess);
    if (isStored && stored == value) {
        return;
    }
    if (!DE::Registry::SetValue(HKEY_CURRENT_USER, registryKey, streamTypeValue, value, registryAccess)) {
        LogError(streamTypeTag, "Set streamType failed!");
    }
}

void CountWrite()
{
    static std::atomic<uint32_t> frameCounter{0};
    const uint32_t count = frameCounter++;
    // Signed division, by contract: after 2147483647 calls the line appears at other counts.
    if (static_cast<int32_t>(count) % static_cast<int32_t>(callsPerLogLine) == 0) {
        LogInfoToSingleton(writeTag, "VeltoWriteStream has received", count + 1, " frame");
    }
}

} // namespace

void StopSpeakerTracks()
{
    tracks->media.playThread->StopPlayThread();
    tracks->call.playThread->StopPlayThread();
}

int32_t VeltoWriteStreamBuffer(const char *id, uint32_t idLength, void *, StreamFrame *frame)
{
    CountWrite();
    {
        const std::unique_lock lock(InitMutex, std::try_to_lock);
        if (!lock.owns_lock()) {
            return VELTO_OK; // another thread starts or checks the speakers: this unit is dropped
        }
        if (DeviceState == DEVICE_NOT_INITIALISED) {
            InitDefaultAudioDevice();
        }
    }
    SetEvent(IdleEvent);
    if (!IsValidId(id, idLength)) {
        LogError(writeTag, "speaker id or data is null or invalid");
        return VELTO_ERROR_INVALID;
    }
    if (frame == nullptr || frame->header == nullptr) {
        LogError(writeTag, "Data for audio play is null");
        return VELTO_ERROR_INVALID;
    }
    SetStreamType(frame->header->streamType);

    const std::lock_guard lock(TrackMutex);
    if (SpeakerTrack *track = TrackOf(id)) {
        track->isOpen = true;
        track->decoder->DecoderAudioFrame(frame);
    }
    return VELTO_OK;
}

// Closing stops nothing: queued blocks are still played, and the watchdog releases the speakers later.
int32_t VeltoCloseAudioTrack(const char *id, uint32_t idLength)
{
    if (!IsValidId(id, idLength)) {
        LogError(closeTag, "speaker id is invalid");
        return VELTO_ERROR_INVALID;
    }
    {
        const std::lock_guard lock(TrackMutex);
        if (SpeakerTrack *track = TrackOf(id)) {
            track->isOpen = false;
        }
    }
    SendEvent(id, idLength, VELTO_EVENT_TRACK_CLOSED);
    SetStreamType(noStreamType);
    return VELTO_OK;
}

int32_t VeltoSetAudioParameter(const char *id, uint32_t idLength, void *, void *,
                               const AudioProfileList *profiles)
{
    if (!IsValidId(id, idLength)) {
        LogError(parameterTag, "speaker id invalid");
        return VELTO_ERROR_INVALID;
    }
    if (profiles == nullptr || profiles->count == 0 || profiles->entries == nullptr) {
        LogError(parameterTag, "Set Audio Parameter failed, profile is null");
        return VELTO_ERROR_INVALID;
    }
    AudioParameters parameters; // keys that the list omits return to their defaults
    GetAudioParameter(profiles, parameters);
    speakerAudioParams.sampleRate = parameters.sampleRate;
    speakerAudioParams.channels = parameters.channels;
    speakerAudioParams.bitsPerSample = parameters.bitsPerSample;

    if (SpeakerTrack *track = TrackOf(id)) {
        track->playThread->needDelay = true;
    }
    SendEvent(id, idLength, VELTO_EVENT_PARAMETERS_SET);
    return VELTO_OK;
}

} // namespace velto
