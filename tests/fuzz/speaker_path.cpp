// Fuzzes the path from the host's writes to the speaker: any bytes in any sequence on both ids, through the
// table and FFmpeg's decoder to the fake endpoint.
//
// Varied: the endpoint's mix format; the payloads and their sizes, among them empty payloads and sizes
// smaller than the payload; ids and their lengths; missing records and payloads; sizes that cannot be
// allocated; parameters; closes; invalidated endpoints, other default endpoints and property changes; idle
// releases and new starts. Not varied, because hosts must not do it: a size larger than the payload.
//
// Each input begins and ends with the module in the state after loading, so that a finding needs only its own
// input.
#include "tests/fakes/redirect.h"

// Includes the source, so that this target can destroy and reconstruct the tracks, as unloading and loading
// do.
#include "handler/speaker_track.cpp"

#undef Sleep // below, fakewin::Call::Sleep is named

#include <array>
#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "effects.h"
#include "ffmpeg_messages.h"
#include "input.h"
#include "module_table.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/log_recorder.h"
#include "tests/unit/audio_player_probe.h"
#include "tests/unit/play_thread_probe.h"

namespace velto {

class FFmpegDecodeProbe {
public:
    static AVCodecContext *Codec(const FFmpegDecode &decoder) { return decoder.codecContext; }
    // Counts the decoded frames since the last start.
    static int64_t DecodedFrames(const FFmpegDecode &decoder)
    {
        return decoder.codecContext == nullptr ? 0 : decoder.codecContext->frame_number;
    }
};

} // namespace velto

namespace {

using velto_fuzz::Effect;
using velto_fuzz::Expect;
using velto_fuzz::Input;
using velto_fuzz::Table;

Effect decodedBlocks("decoded blocks");
Effect undecodedUnits("units that do not decode");
Effect playedBlocks("buffers written to an endpoint");
Effect refusedCalls("refused calls");
Effect parametersSet("parameters set");
Effect closedTracks("closed tracks");
Effect starts("starts of both speakers");
Effect idleReleases("idle releases");
Effect switches("switches to another endpoint");
Effect soundAfterSwitch("sound on the second endpoint");
Effect reactivations("clients replaced after an invalidation");

constexpr int maxSteps = 200;
constexpr uint64_t idleMs = 240000;

// Advances the clock by the idle time of four minutes and waits until the watchdog has released the speakers.
void ReleaseIdle()
{
    constexpr int maxSleeps = 1 << 17; // about 7 s: a short sleep of the fake takes about 50 microseconds
    if (velto::DeviceState != velto::DEVICE_READY) {
        return;
    }
    Expect(fakewin::AwaitClockWaiters(1), "the watchdog waits");
    fakewin::AdvanceClock(idleMs);
    for (int i = 0; velto::DeviceState != velto::DEVICE_NOT_INITIALISED; ++i) {
        Expect(i < maxSleeps, "the watchdog releases the speakers");
        fakewin::Sleep(1);
    }
    idleReleases.Add();
}

// Waits for 80 sleeps of the play threads together. Each plays one block between two sleeps, so usually both
// have then played all queued blocks.
void AwaitPasses()
{
    constexpr int bothThreadsPasses = 2 * 40;
    if (velto::DeviceState != velto::DEVICE_READY) {
        return;
    }
    const int before = fakewin::Count(fakewin::Call::Sleep);
    while (fakewin::Count(fakewin::Call::Sleep) < before + bothThreadsPasses) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

// Frees the known leaks of a restart after an idle release, and of unloading: the decoder's objects, the
// renderer's converter and the queued blocks.
void FreeKnownLeaks()
{
    for (velto::SpeakerTrack *track : {&velto::tracks->media, &velto::tracks->call}) {
        velto::AudioPlayThreadProbe play(*track->playThread);
        play.FreeQueued();
        if (auto *player = static_cast<velto::AudioPlayerWas *>(play.Player().get())) {
            SwrContext *converter = velto::AudioPlayerWasProbe(*player).TakeResampler();
            swr_free(&converter);
        }
        AVCodecContext *record = velto::FFmpegDecodeProbe::Codec(*track->decoder);
        track->decoder->ReleaseFFmpeg();
        avcodec_free_context(&record);
    }
}

void Reload()
{
    velto::tracks.~TracksAtLoad();
    new (&velto::tracks) velto::TracksAtLoad;
    velto::speakerAudioParams.sampleRate = 48000;
    velto::speakerAudioParams.channels = 2;
    velto::speakerAudioParams.bitsPerSample = 16;
}

fakes::MixFormat ReadMixFormat(Input &input)
{
    constexpr std::array<uint16_t, 6> channels{2, 1, 4, 6, 8, 3};
    constexpr std::array<uint16_t, 4> bits{32, 16, 24, 8};
    constexpr std::array<uint32_t, 6> rates{48000, 44100, 96000, 192000, 8000, 22050};
    fakes::MixFormat format;
    format.channels = channels[input.Byte() % channels.size()];
    format.bits = bits[input.Byte() % bits.size()];
    format.rateHz = rates[input.Byte() % rates.size()];
    return format;
}

std::string ReadId(Input &input, uint8_t choice)
{
    switch (choice % 4) {
    case 0:
        return VELTO_ID_SPEAKER;
    case 1:
        return VELTO_ID_MODEM_SPEAKER;
    case 2:
        return VELTO_ID_MIC;
    default:
        const auto bytes = input.Block(input.Byte());
        return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    }
}

class Session {
public:
    explicit Session(Input &input) : m_input(input) {}

    void Step()
    {
        const uint8_t choice = m_input.Byte();
        const std::string id = ReadId(m_input, choice >> 3);
        switch (choice % 8) {
        case 0:
        case 1:
        case 2:
            WriteFrame(id, 0);
            break;
        case 3:
            WriteFrame(id, m_input.Short());
            break;
        case 4:
            WriteInvalid(id, m_input.Byte());
            break;
        case 5:
            SetParameters(id);
            break;
        case 6:
            Expect(Table().CloseAudioTrack(id.c_str(), Length(id)) == VELTO_OK, "closing a track");
            closedTracks.Add();
            break;
        default:
            ChangeEndpoint(m_input.Byte());
            break;
        }
    }

private:
    static uint32_t Length(const std::string &id) { return static_cast<uint32_t>(id.size()); }
    static int64_t DecodedFrames()
    {
        return velto::FFmpegDecodeProbe::DecodedFrames(*velto::tracks->media.decoder) +
               velto::FFmpegDecodeProbe::DecodedFrames(*velto::tracks->call.decoder);
    }

    // The payload has its own heap block, so that AddressSanitizer reports a read past its end.
    void WriteFrame(const std::string &id, uint32_t understatement)
    {
        const auto bytes = m_input.Block(m_input.Short());
        std::vector<uint8_t> payload(bytes.begin(), bytes.end());
        const auto room = static_cast<uint32_t>(payload.size());
        StreamFrameHeader header{m_input.Byte(), room - std::min(room, understatement), 0};
        StreamFrame frame{payload.data(), {}, &header};
        const bool isStarted = velto::DeviceState == velto::DEVICE_READY;
        const int64_t before = isStarted ? DecodedFrames() : 0;
        Expect(Table().WriteStreamBuffer(id.c_str(), Length(id), nullptr, &frame) == VELTO_OK,
               "a unit is played or dropped");
        Expect(std::equal(payload.begin(), payload.end(), bytes.begin()), "the host's bytes are unchanged");
        starts.Add(!isStarted && velto::DeviceState == velto::DEVICE_READY);
        const int64_t decoded = DecodedFrames() - before;
        Expect(decoded >= 0, "a write keeps a running decoder");
        decodedBlocks.Add(static_cast<uint64_t>(decoded));
        undecodedUnits.Add(velto::TrackOf(id) != nullptr && decoded == 0);
    }

    void WriteInvalid(const std::string &id, uint8_t way)
    {
        constexpr uint32_t firstNegative = 0x80000000; // FFmpeg takes sizes from this value on as negative
        uint8_t payload[1] = {0};
        StreamFrameHeader header{0, 1, 0};
        StreamFrame frame{payload, {}, &header};
        const auto write = [&](const char *name, uint32_t length, StreamFrame *record) {
            const int32_t result = Table().WriteStreamBuffer(name, length, nullptr, record);
            refusedCalls.Add(result != VELTO_OK);
            return result;
        };
        switch (way % 6) {
        case 0:
            Expect(write(id.c_str(), Length(id), nullptr) == VELTO_ERROR_INVALID, "no frame");
            break;
        case 1:
            frame.header = nullptr;
            Expect(write(id.c_str(), Length(id), &frame) == VELTO_ERROR_INVALID, "no header");
            break;
        case 2:
            frame.data = nullptr;
            header.size = m_input.Word();
            Expect(write(id.c_str(), Length(id), &frame) == VELTO_OK, "no payload");
            break;
        case 3:
            Expect(write(id.c_str(), Length(id) + 1 + m_input.Byte(), &frame) == VELTO_ERROR_INVALID,
                   "an id with another length");
            break;
        case 4:
            header.size = firstNegative | m_input.Word();
            Expect(write(id.c_str(), Length(id), &frame) == VELTO_OK, "a size that cannot be allocated");
            break;
        default:
            Expect(write(nullptr, Length(id), &frame) == VELTO_ERROR_INVALID, "no id");
            break;
        }
    }

    void SetParameters(const std::string &id)
    {
        constexpr std::array<const char *, 4> keys{VELTO_KEY_SAMPLE_RATE, VELTO_KEY_CHANNEL, VELTO_KEY_FORMAT,
                                                   VELTO_KEY_CODEC};
        std::vector<AudioProfileEntry> entries(m_input.Byte() % 5);
        for (AudioProfileEntry &entry : entries) {
            entry.key = keys[m_input.Byte() % keys.size()];
            entry.value = m_input.Word();
        }
        const AudioProfileList list{static_cast<uint32_t>(entries.size()), 0, entries.data()};
        Expect(Table().SetAudioParameter(id.c_str(), Length(id), nullptr, nullptr, &list) ==
                   (entries.empty() ? VELTO_ERROR_INVALID : VELTO_OK),
               "setting parameters");
        parametersSet.Add(!entries.empty());
    }

    void ChangeEndpoint(uint8_t way)
    {
        auto &audio = fakes::AudioSystem::Instance();
        switch (way % 7) {
        case 0:
            ReleaseIdle();
            FreeKnownLeaks();
            break;
        case 1:
            audio.Invalidate(L"speakers");
            break;
        case 2:
            audio.ChangeDefaultSpeaker(L"headset");
            break;
        case 3:
            audio.ChangeDefaultSpeaker(L"speakers");
            break;
        case 4:
            audio.Invalidate(L"headset");
            break;
        case 5:
            AwaitPasses();
            break;
        default:
            audio.NotifyPropertyChanged(L"speakers");
            break;
        }
    }

    Input &m_input;
};

// Counts what the play threads have done since the start of the input.
void CountPlaying(fakes::AudioSystem &audio)
{
    const auto lines = [](const wchar_t *text, const char *tag) {
        return static_cast<uint64_t>(fakes::LogRecorder::Instance().Count(LOG_LEVEL_INFO, text, tag));
    };
    playedBlocks.Add(static_cast<uint64_t>(audio.Count(fakes::Method::ReleaseBuffer)));
    switches.Add(lines(L"AudioPlayerWas Need to change default audio device.",
                       "AudioPlayerWas::OnAudioDeviceChanged"));
    reactivations.Add(lines(L"AudioPlayerWas Need to deal with audio property value change",
                            "AudioPlayerWas::OnAudioPropertyValueChanged"));
    soundAfterSwitch.Add(!audio.Written(L"speakers").empty() && !audio.Written(L"headset").empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    velto_fuzz::CountFFmpegMessages();
    Input input(data, size);
    auto &audio = fakes::AudioSystem::Instance();
    Table();
    fakewin::Reset();
    audio.Reset();
    fakes::LogRecorder::Instance().Clear();
    audio.Get(L"speakers").mixFormat = ReadMixFormat(input);
    audio.Add(L"headset").mixFormat = ReadMixFormat(input);

    Session session(input);
    for (int step = 0; step < maxSteps && !input.IsEmpty(); ++step) {
        session.Step();
    }
    ReleaseIdle();
    CountPlaying(audio);
    FreeKnownLeaks();
    Reload();
    // If FFmpeg took a unit for the end of the stream, it would refuse all later units.
    const std::wstring ended = L"AUDIO decode error:" + std::to_wstring(AVERROR_EOF);
    Expect(fakes::LogRecorder::Instance().Count(LOG_LEVEL_ERROR, ended,
                                                "velto::FFmpegDecode::DecoderAudioFrame") == 0,
           "no unit ends the stream");
    for (const std::string &violation : fakewin::Violations()) {
        Expect(false, violation.c_str());
    }
    Expect(audio.LiveObjects() == 0, "all endpoint objects are released");
    Expect(audio.RegisteredCallbacks() == 0, "no notification is left registered");
    return 0;
}
