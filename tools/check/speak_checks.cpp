#include "check/speak_checks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "check/portable/built_in_sound.h"
#include "check/portable/heard_watermark.h"
#include "check/portable/packet_decoder.h"
#include "check/portable/process_check_list.h"
#include "check/portable/watermark.h"
#include "check/process_context.h"
#include "check/speaker_stream.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t framesOfSpeaking = 280; // 6 s
constexpr auto endOfSound = 1500ms;        // the delays of loudspeaker and microphone, and an echo
// Echoes and noise hide frames, so that no single frame is expected.
constexpr double leastPartHeard = 0.25;
constexpr double mostPartOutOfOrder = 0.1;
// Loudspeaker and microphone have a clock each, and echoes shift frames a little.
constexpr double mostSpeedError = 0.005;

// Reads all packets of the microphone, on a thread of its own, from construction to Take.
class PacketReader {
public:
    // The context outlives this object. The microphone is open.
    explicit PacketReader(Context &context) : m_context(context), m_thread([this] { Read(); }) {}
    ~PacketReader() { Stop(); }
    PacketReader(const PacketReader &) = delete;
    PacketReader &operator=(const PacketReader &) = delete;

    // Interleaved stereo at 48000 Hz, of all packets.
    std::vector<float> Take()
    {
        Stop();
        return std::move(m_sound);
    }
    // Valid after Take().
    uint32_t Undecoded() const { return m_undecoded; }

private:
    void Stop()
    {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    void Read()
    {
        std::array<uint8_t, VELTO_MAX_PACKET_BYTES> packet{};
        while (!m_stop) {
            StreamFrameHeader header{0, VELTO_READ_SIZE, 0};
            StreamFrame frame{packet.data(), {}, &header};
            const int32_t result =
                m_context.table.ReadStreamBuffer(VELTO_ID_MIC, sizeof(VELTO_ID_MIC) - 1, nullptr, &frame);
            const bool isPacket = result == VELTO_OK && header.size > 0 && header.size <= packet.size();
            if (isPacket && !m_decoder.Decode(std::span(packet).first(header.size), m_sound)) {
                ++m_undecoded;
            } else if (!isPacket) {
                m_context.environment.Sleep(1ms); // a stopped microphone returns at once
            }
        }
    }

    Context &m_context;
    std::atomic<bool> m_stop{false};
    PacketDecoder m_decoder;
    std::vector<float> m_sound;
    uint32_t m_undecoded = 0;
    std::thread m_thread; // last: it uses the others
};

// An open microphone.
class Microphone {
public:
    explicit Microphone(Context &context) : m_context(context)
    {
        const AudioProfileList parameters{};
        m_context.table.OpenAudioRecord(VELTO_ID_MIC, sizeof(VELTO_ID_MIC) - 1, nullptr, nullptr,
                                        &parameters);
    }
    ~Microphone() { m_context.table.CloseAudioRecord(VELTO_ID_MIC, sizeof(VELTO_ID_MIC) - 1); }
    Microphone(const Microphone &) = delete;
    Microphone &operator=(const Microphone &) = delete;

private:
    Context &m_context;
};

// Plays the watermark and returns what the packets contain meanwhile.
std::vector<float> SoundFromTheAir(Context &context)
{
    SpeakerStream speaker(context, VELTO_ID_SPEAKER);
    speaker.WarmUp();
    context.Step("plays and records", {"MIC-17"});
    const Microphone microphone(context);
    PacketReader reader(context);
    speaker.SetRate(VELTO_SAMPLE_RATE_HZ);
    speaker.WriteAtPace(EncodeStereo(WatermarkSound(framesOfSpeaking)));
    speaker.WriteSilenceAtPace(VELTO_CUSHION_UNITS);
    context.environment.Sleep(endOfSound);
    speaker.WarnAboutRefusals();
    std::vector<float> sound = reader.Take();
    context.Expect(reader.Undecoded() == 0, "MIC-17",
                   fmt::format("{} packets of the microphone do not decode", reader.Undecoded()));
    return sound;
}

void CheckSpeaking(Context &context)
{
    context.Step("starts the speakers", {"MIC-17"});
    const std::vector<float> sound = SoundFromTheAir(context);
    HeardSound heard =
        ExamineWatermark(sound, watermarkRateHz, VELTO_CHANNELS, framesOfSpeaking, leastShareInRoom).sound;
    heard.source = "microphone";
    if (CurrentProcess().heard != nullptr) {
        *CurrentProcess().heard = heard;
    }
    if (heard.framesHeard < leastPartHeard * framesOfSpeaking) {
        context.Skip(fmt::format(
            "the microphone hears {} of {} frames: it is too far from the loudspeaker, too quiet, "
            "or the system removes the loudspeaker's sound from it",
            heard.framesHeard, framesOfSpeaking));
    }
    context.Measured("frames heard through the air", heard.framesHeard, "frames");
    context.Measured("sound in the microphone's packets before the watermark", heard.delayMs, "ms");
    context.Expect(heard.framesOutOfOrder <= mostPartOutOfOrder * heard.framesHeard, "MIC-16",
                   fmt::format("{} of {} frames that were heard are out of order", heard.framesOutOfOrder,
                               heard.framesHeard));
    context.Expect(std::abs(heard.speed - 1) <= mostSpeedError, "MIC-17",
                   fmt::format("the microphone's sound has {:.4f} times its speed", heard.speed));
}

} // namespace

std::span<const Check> SpeakChecks()
{
    static const std::array<Check, 1> checks{ProcessCheck("speak.watermark", CheckSpeaking)};
    return checks;
}

} // namespace velto::check
