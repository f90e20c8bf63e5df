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
#include "velto-host/portable/microphone.h"

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
    // Both outlive this object. The microphone is open.
    PacketReader(Environment &environment, host::Microphone &microphone)
        : m_environment(environment), m_microphone(microphone), m_thread([this] { Read(); })
    {
    }
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
        while (!m_stop) {
            if (m_microphone.Read() != host::Microphone::Outcome::PACKET) {
                m_environment.Sleep(1ms); // a stopped microphone returns at once
            } else if (!m_decoder.Decode(m_microphone.Packet(), m_sound)) {
                ++m_undecoded;
            }
        }
    }

    Environment &m_environment;
    host::Microphone &m_microphone;
    std::atomic<bool> m_stop{false};
    PacketDecoder m_decoder;
    std::vector<float> m_sound;
    uint32_t m_undecoded = 0;
    std::thread m_thread; // last: it uses the others
};

// Plays the watermark and returns what the packets contain meanwhile.
std::vector<float> SoundFromTheAir(Context &context)
{
    SpeakerStream speaker(context, VELTO_ID_SPEAKER);
    speaker.WarmUp();
    context.Step("plays and records", {"MIC-17"});
    host::Microphone microphone(context.table, VELTO_ID_MIC);
    microphone.Open();
    PacketReader reader(context.environment, microphone);
    speaker.SetRate(VELTO_SAMPLE_RATE_HZ);
    speaker.WriteAtPace(EncodeStereo(WatermarkSound(framesOfSpeaking)));
    speaker.WriteSilenceAtPace(VELTO_CUSHION_UNITS);
    context.environment.Sleep(endOfSound);
    speaker.WarnAboutRefusals();
    std::vector<float> sound = reader.Take();
    microphone.Close();
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
