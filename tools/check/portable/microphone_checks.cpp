// The microphone: results and sizes of all calls, and every packet decoded. Whether the packets have the
// sound of the room needs a known sound: see speak_checks.h.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "check/portable/built_in_sound.h"
#include "check/portable/call_times.h"
#include "check/portable/check.h"
#include "check/portable/packet_decoder.h"
#include "check/portable/recording.h"
#include "check/portable/speaker_calls.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

using Outcome = Recording::Outcome;

constexpr int32_t ok = VELTO_OK; // with the type of a result
constexpr double unitsPerSecond = double{VELTO_SAMPLE_RATE_HZ} / VELTO_UNIT_SAMPLES;
constexpr uint32_t shortestWait = 4; // a size that is smaller than any packet, for a wait of 2 ms
constexpr int mostReads = 5000;      // ends loops if the clock does not run

void NeedMicrophone(Context &context)
{
    const MicrophoneState state = context.environment.Microphone();
    if (state != MicrophoneState::WORKS) {
        context.Skip(MicrophoneProblem(state));
    }
}

// Opens the recording and waits until it delivers. The first packet of a real microphone takes up to a
// second.
void Begin(Context &context, Recording &recording, std::string_view clause)
{
    recording.ExpectOpens();
    context.Require(recording.ReadUntilPacket(), clause, "no packet came within ten seconds of opening");
}

// Reads for a time, and calls `onPacket` for each packet. Returns the number of packets.
template <typename OnPacket>
uint32_t ReadFor(Context &context, Recording &recording, std::chrono::milliseconds time, OnPacket onPacket)
{
    const auto end = context.environment.Now() + time;
    uint32_t packets = 0;
    for (int left = mostReads; left > 0 && context.environment.Now() < end; --left) {
        const Outcome outcome = recording.Read();
        if (outcome == Outcome::WRONG) {
            break;
        }
        if (outcome == Outcome::PACKET) {
            ++packets;
            onPacket(recording.Packet());
        }
        if (outcome == Outcome::NOTHING || outcome == Outcome::STOPPED) {
            context.environment.Sleep(2ms); // not every read waits, and simulated time passes in sleeps only
        }
    }
    return packets;
}

// Decodes packets one after the other; the first one that does not decode breaks the clause.
class PacketCheck {
public:
    PacketCheck(Context &context, std::string_view clause) : m_context(context), m_clause(clause) {}

    void Add(std::span<const uint8_t> packet)
    {
        m_sound.clear();
        if (!m_decoder.Decode(packet, m_sound) && m_decoder.Errors() == 1) {
            m_context.Expect(
                false, m_clause,
                fmt::format("packet {} of {} bytes is no raw unit of AAC-LC at 48000 Hz in stereo: {}",
                            m_packets, packet.size(), m_decoder.Reason()));
        }
        ++m_packets;
        m_longest = std::max(m_longest, packet.size());
        for (const float sample : m_sound) {
            m_peak = std::max(m_peak, std::abs(sample));
        }
    }

    void Report() const
    {
        m_context.Measured("packets", m_packets, "packets");
        m_context.Measured("packets that do not decode", m_decoder.Errors(), "packets");
        m_context.Measured("longest packet", static_cast<double>(m_longest), "bytes");
        m_context.Measured("peak of the packets' sound", double{m_peak}, "of full scale");
    }

private:
    Context &m_context;
    const std::string_view m_clause;
    PacketDecoder m_decoder;
    std::vector<float> m_sound;
    uint32_t m_packets = 0;
    size_t m_longest = 0;
    float m_peak = 0;
};

// The packets that come in a second. Empty if the clock is simulated and hardly ran.
std::optional<double> MeasureRate(Context &context, Recording &recording, PacketCheck &check)
{
    const auto begin = context.environment.Now();
    const uint32_t packets = ReadFor(context, recording, 3s, [&](auto packet) { check.Add(packet); });
    const std::chrono::duration<double> time = context.environment.Now() - begin;
    return time < std::chrono::seconds(1) ? std::nullopt : std::optional(packets / time.count());
}

// A machine that stalls delivers late: a wrong rate is measured again, and the bounds are wide. Half the
// speed and twice the speed are outside, the latter on a busy machine, too.
void CheckRate(Context &context, Recording &recording, PacketCheck &check)
{
    const auto isGood = [](double rate) {
        return rate > 0.55 * unitsPerSecond && rate < 1.5 * unitsPerSecond;
    };
    std::optional<double> rate;
    for (int left = 3; left > 0 && (!rate || !isGood(*rate)); --left) {
        rate = MeasureRate(context, recording, check);
        if (!rate) {
            return;
        }
    }
    const std::string text =
        fmt::format("{:.1f} packets came in a second, instead of {:.1f}", *rate, unitsPerSecond);
    context.Measured("packets in a second", *rate, "packets/s");
    context.Expect(isGood(*rate), "MIC-16", text);
    if (isGood(*rate) && std::abs(*rate - unitsPerSecond) > 0.1 * unitsPerSecond) {
        context.Warn(text);
    }
}

void CheckPackets(Context &context)
{
    NeedMicrophone(context);
    Recording recording(context, VELTO_ID_MIC);
    PacketCheck check(context, "MIC-2");
    context.Step("opens the microphone and reads for three seconds", {"THR-3"});
    Begin(context, recording, "MIC-16");
    check.Add(recording.Packet());
    // The packets of the start may have waited in the queue.
    ReadFor(context, recording, 300ms, [&](auto packet) { check.Add(packet); });
    CheckRate(context, recording, check);
    context.Step("closes the microphone", {"MIC-7"});
    recording.ExpectCloses();
    check.Report();
}

// Needs no microphone.
void CheckReadsWithoutRecording(Context &context)
{
    Recording recording(context, VELTO_ID_MIC);
    const auto expectNothing = [&](std::string_view when) {
        context.Step(fmt::format("reads {}", when), {"THR-3"});
        for (const uint32_t requested : {uint32_t{VELTO_READ_SIZE}, 0U, shortestWait, 200U, 100000U}) {
            const Outcome outcome = recording.Read(requested);
            context.Expect(outcome == Outcome::NOTHING || outcome == Outcome::WRONG, "MIC-3",
                           fmt::format("a read of size {} {} did not return size 0", requested, when));
        }
    };
    expectNothing("before the first opening");
    context.Step("closes a microphone that is not open", {"MIC-14"});
    context.ExpectEqual(recording.Close(), ok, "MIC-14", "CloseAudioRecord without a recording returned");
    context.Step("opens and closes the microphone", {"MIC-7"});
    recording.ExpectOpens();
    recording.ExpectCloses();
    expectNothing("after closing");
    context.Step("closes a closed microphone", {"MIC-14"});
    context.ExpectEqual(recording.Close(), ok, "MIC-14", "CloseAudioRecord after closing returned");
}

// Reads of a recording with and without a buffer. Needs no microphone.
void CheckReadsWithoutBuffer(Context &context)
{
    const AudioHandlerTable &table = context.table;
    constexpr uint32_t length = sizeof(VELTO_ID_MIC) - 1;
    constexpr int32_t nullPointer = VELTO_ERROR_NULL_POINTER;
    Recording recording(context, VELTO_ID_MIC);
    for (const bool isOpen : {false, true}) {
        if (isOpen) {
            recording.ExpectOpens();
        }
        const std::string_view when = isOpen ? "of an open microphone" : "of a closed microphone";
        context.Step(fmt::format("reads {} without a frame, a header or data", when), {"MIC-6"});
        std::array<uint8_t, VELTO_MAX_PACKET_BYTES> buffer{};
        StreamFrameHeader header{0, VELTO_READ_SIZE, 0};
        StreamFrame withoutData{nullptr, {}, &header};
        StreamFrame withoutHeader{buffer.data(), {}, nullptr};
        const auto read = [&](StreamFrame *frame) {
            return table.ReadStreamBuffer(VELTO_ID_MIC, length, nullptr, frame);
        };
        context.ExpectEqual(read(nullptr), nullPointer, "MIC-6", "a read {} without a frame returned", when);
        context.ExpectEqual(read(&withoutHeader), nullPointer, "MIC-6", "a read {} without a header returned",
                            when);
        context.ExpectEqual(read(&withoutData), nullPointer, "MIC-6", "a read {} without data returned",
                            when);
        context.ExpectEqual(header.size, uint32_t{VELTO_READ_SIZE}, "OWN-9",
                            "a read {} without data changed the size", when);
    }
    context.Step("closes the microphone", {"MIC-7"});
    recording.ExpectCloses();
}

void CheckMissingMicrophone(Context &context)
{
    // A microphone that cannot be used now may be usable a moment later, so it does not count as missing.
    if (context.environment.Microphone() != MicrophoneState::MISSING) {
        context.Skip("this system has a microphone");
    }
    Recording recording(context, VELTO_ID_MIC);
    context.Step("opens and reads without a microphone", {"MIC-1"});
    recording.ExpectOpens();
    for (int reads = 0; reads < 50; ++reads) {
        context.Expect(recording.Read() != Outcome::PACKET, "MIC-3", "a packet came without a microphone");
        context.environment.Sleep(5ms);
    }
    context.Step("closes without a microphone", {"MIC-7"});
    recording.ExpectCloses();
}

// The size before a read is a time to wait.
void CheckWaits(Context &context)
{
    NeedMicrophone(context);
    constexpr double mostForShortWaitMs = 50; // 2 ms, on a coarse and busy clock
    Recording recording(context, VELTO_ID_MIC);
    Begin(context, recording, "MIC-16");
    context.Step("reads with different sizes", {"MIC-4"});
    for (const uint32_t requested : {0U, shortestWait, 200U, 7680U, 38400U}) {
        context.Expect(recording.ReadUntilPacket(requested), "MIC-4",
                       fmt::format("reads of size {} delivered no packet in ten seconds", requested));
    }
    CallTimes times(context.environment);
    for (int reads = 0; reads < 200; ++reads) {
        times.Of("ReadStreamBuffer", [&] { return recording.Read(shortestWait); });
    }
    const std::chrono::duration<double, std::milli> wait = *times.Percentile("ReadStreamBuffer", 50);
    context.Measured("read that waits 2 ms, p50", wait.count(), "ms");
    context.Expect(
        wait.count() <= mostForShortWaitMs, "MIC-4",
        fmt::format("half of the reads that may wait 2 ms took more than {:.1f} ms", wait.count()));
    context.Step("closes the microphone", {"MIC-7"});
    recording.ExpectCloses();
}

// Another thread waits for a packet while this one closes the microphone. Needs no microphone: a read of a
// capture that has stopped does not wait.
void CheckCloseDuringRead(Context &context)
{
    constexpr uint32_t tenSeconds = VELTO_SAMPLE_RATE_HZ * VELTO_CHANNELS * 2 * 10; // as bytes of PCM
    for (int closes = 0; closes < 5; ++closes) {
        Recording recording(context, VELTO_ID_MIC);
        context.Step("opens the microphone", {"THR-3"});
        recording.ExpectOpens();
        std::atomic<bool> isReading{false};
        std::atomic<bool> isClosed{false};
        std::thread reader([&] {
            for (int left = mostReads; left > 0 && !isClosed; --left) {
                isReading = true;
                if (recording.Read(tenSeconds) == Outcome::STOPPED) {
                    context.environment.Sleep(1ms); // this read did not wait
                }
            }
        });
        for (int left = mostReads; left > 0 && !isReading; --left) {
            context.environment.Sleep(1ms);
        }
        context.environment.Sleep(std::chrono::milliseconds(context.random.Below(300)));
        context.Step("closes the microphone while another thread reads", {"MIC-7"});
        recording.ExpectCloses();
        isClosed = true;
        reader.join();
        context.Expect(recording.Read() == Outcome::NOTHING, "MIC-3",
                       "a read after closing did not return size 0");
    }
}

// Whether one of a few reads delivers a packet.
bool DeliversPackets(Context &context, Recording &recording)
{
    for (int reads = 0; reads < 10; ++reads) {
        if (recording.Read() == Outcome::PACKET) {
            return true;
        }
        context.environment.Sleep(30ms);
    }
    return false;
}

void CheckOtherIds(Context &context)
{
    NeedMicrophone(context);
    context.Step("opens, reads and closes with different ids", {"THR-3"});
    for (const char *const id : {VELTO_ID_MODEM_MIC, VELTO_ID_SPEAKER, "", "no device"}) {
        Recording opened(context, id);
        context.ExpectEqual(opened.Open(), ok, "IDS-4", "OpenAudioRecord for \"{}\" returned", id);
        Recording read(context, "another id");
        context.Require(read.ReadUntilPacket(), "IDS-4",
                        fmt::format("no packet came within ten seconds of opening \"{}\"", id));
        Recording closed(context, VELTO_ID_MIC);
        context.ExpectEqual(closed.Close(), ok, "IDS-4", "CloseAudioRecord for \"{}\" returned",
                            VELTO_ID_MIC);
        context.Expect(!DeliversPackets(context, read), "IDS-4",
                       fmt::format(R"(closing "{}" did not close the recording of "{}")", VELTO_ID_MIC, id));
    }
}

// A packet has the sound of 21 ms, of which the system may have captured one period of 10 ms before the
// opening. A packet that comes sooner is of an earlier recording.
void ExpectNewSound(Context &context, std::chrono::duration<double, std::milli> time, int opening)
{
    constexpr std::chrono::duration<double, std::milli> period(10);
    constexpr std::chrono::duration<double, std::milli> packet{1000.0 * VELTO_UNIT_SAMPLES /
                                                               VELTO_SAMPLE_RATE_HZ};
    context.Expect(
        time >= packet - period, "MIC-15",
        fmt::format("a packet came {:.1f} ms after opening {}, sooner than its sound can be captured",
                    time.count(), opening));
}

// Compares the first packet of a recording with the last one of the recording before.
class LastPacket {
public:
    explicit LastPacket(Context &context) : m_context(context) {}

    void Begin() { m_packets = 0; }

    void Add(std::span<const uint8_t> packet)
    {
        std::vector<uint8_t> bytes(packet.begin(), packet.end());
        const bool isSame = bytes == m_last;
        // The packets of silence are all alike.
        m_context.Expect(m_packets > 0 || m_isSilence || !isSame, "MIC-15",
                         "a recording began with the last packet of the one before");
        m_isSilence = isSame;
        m_last = std::move(bytes);
        ++m_packets;
    }

private:
    Context &m_context;
    std::vector<uint8_t> m_last;
    bool m_isSilence = false;
    int m_packets = 0; // of the recording
};

void CheckReopening(Context &context)
{
    NeedMicrophone(context);
    constexpr int openings = 6; // a microphone that sleeps needs two seconds for each
    constexpr int packets = 8;  // of each opening: those of the start can be silent
    CallTimes times(context.environment);
    Recording recording(context, VELTO_ID_MIC);
    LastPacket last(context);
    for (int opening = 1; opening <= openings; ++opening) {
        context.Step(fmt::format("opens the microphone and reads packets, time {} of {}", opening, openings),
                     {"MIC-15"});
        const auto begin = context.environment.Now();
        const int32_t opened = times.Of("OpenAudioRecord", [&] { return recording.Open(); });
        context.ExpectEqual(opened, ok, "MIC-15", "opening {} returned", opening);
        // Each recording begins with a new encoder, so its packets need a new decoder.
        PacketCheck check(context, "MIC-2");
        context.Require(recording.ReadUntilPacket(), "MIC-15",
                        fmt::format("no packet came within ten seconds of opening {}", opening));
        ExpectNewSound(context, context.environment.Now() - begin, opening);
        last.Begin();
        for (int packet = 1; packet <= packets; ++packet) {
            check.Add(recording.Packet());
            last.Add(recording.Packet());
            context.Require(recording.ReadUntilPacket(), "MIC-16",
                            fmt::format("packet {} did not come within ten seconds", packet + 1));
        }
        last.Add(recording.Packet());
        context.Step(fmt::format("closes the microphone, time {} of {}", opening, openings), {"MIC-7"});
        const int32_t closed = times.Of("CloseAudioRecord", [&] { return recording.Close(); });
        context.ExpectEqual(closed, ok, "MIC-7", "closing {} returned", opening);
        context.Expect(recording.Read() == Outcome::NOTHING, "MIC-3",
                       "a read after closing did not return size 0");
    }
    times.Report(context);
}

// Closes a recording whose packets were not read, and opens another one.
void CheckOldPackets(Context &context)
{
    NeedMicrophone(context);
    constexpr uint32_t mostAtOnce = 15; // one comes in 21 ms; more than 40 wait in the old recording
    Recording recording(context, VELTO_ID_MIC);
    Begin(context, recording, "MIC-16");
    context.Step("opens the microphone again after packets were not read", {"MIC-15"});
    context.environment.Sleep(1s);
    recording.ExpectCloses();
    recording.ExpectOpens();
    const auto opened = context.environment.Now();
    uint32_t packets = 0;
    while (packets < mostAtOnce && recording.Read(shortestWait) == Outcome::PACKET) {
        ++packets;
    }
    // Otherwise new packets may have come.
    const bool isQuick = context.environment.Now() - opened < std::chrono::milliseconds(200);
    context.Expect(packets < mostAtOnce || !isQuick, "MIC-15",
                   "a recording delivered the packets of the one before");
    context.Step("closes the microphone", {"MIC-7"});
    recording.ExpectCloses();
}

// The recording that was replaced captures until the process ends, so this check is in a process of its own.
void CheckSecondOpening(Context &context)
{
    NeedMicrophone(context);
    Recording first(context, VELTO_ID_MIC);
    Recording second(context, VELTO_ID_MIC);
    Begin(context, first, "MIC-16");
    context.Step("opens the microphone a second time", {"MIC-8"});
    context.ExpectEqual(second.Open(), ok, "MIC-8", "a second opening returned");
    context.Expect(second.ReadUntilPacket(), "MIC-8",
                   "no packet came within ten seconds of a second opening");
    context.Step("closes the second recording", {"MIC-7"});
    second.ExpectCloses();
    context.Expect(!DeliversPackets(context, first), "MIC-8",
                   "after closing the second recording, a read delivered a packet");
    context.Step("closes again", {"MIC-14"});
    context.ExpectEqual(first.Close(), ok, "MIC-14", "CloseAudioRecord after closing returned");
    context.Step("opens a third time", {"MIC-15"});
    context.ExpectEqual(first.Open(), ok, "MIC-15", "an opening after closing the second recording returned");
    context.Expect(first.ReadUntilPacket(), "MIC-15", "no packet came within ten seconds of a third opening");
    context.Step("closes the third recording", {"MIC-7"});
    first.ExpectCloses();
}

// A host that does not read for a while finds the packets of this time.
void CheckSlowReader(Context &context)
{
    NeedMicrophone(context);
    constexpr int attempts = 3;
    constexpr std::chrono::milliseconds pause(4000);
    constexpr std::chrono::milliseconds slice(50);
    // Half of what comes in this time, because a busy machine captures late.
    const auto least =
        static_cast<uint32_t>(unitsPerSecond * std::chrono::duration<double>(pause).count() / 2);
    Recording recording(context, VELTO_ID_MIC);
    Begin(context, recording, "MIC-16");
    uint32_t most = 0;
    for (int left = attempts; left > 0 && most < least; --left) {
        context.Step("does not read for four seconds", {"MIC-5"});
        for (std::chrono::milliseconds slept(0); slept < pause; slept += slice) {
            context.environment.Sleep(slice);
        }
        context.Step("reads all packets that waited", {"MIC-5"});
        uint32_t waited = 0;
        while (waited < mostReads && recording.Read(shortestWait) == Outcome::PACKET) {
            ++waited;
        }
        most = std::max(most, waited);
    }
    context.Measured("packets that waited for a slow reader", most, "packets");
    context.Expect(most >= least, "MIC-5",
                   fmt::format("only {} packets waited after four seconds without a read", most));
    context.Step("closes the microphone", {"MIC-7"});
    recording.ExpectCloses();
}

// A stream on each speaker during a recording.
void CheckRecordingDuringStream(Context &context)
{
    NeedMicrophone(context);
    context.Step("reads while another thread writes", {"MIC-18"});
    Recording recording(context, VELTO_ID_MIC);
    Begin(context, recording, "MIC-16");
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        const AacUnits units = SpeechLikeUnits(40);
        for (size_t written = 0; written < mostReads && !isOver; ++written) {
            const std::vector<uint8_t> &unit = units[written % units.size()];
            const std::string_view id = written % 2 == 0 ? VELTO_ID_SPEAKER : VELTO_ID_MODEM_SPEAKER;
            context.ExpectEqual(WriteUnit(context.table, id, unit), ok, "MIC-18",
                                "a write during a recording returned");
            context.environment.Sleep(10ms);
        }
    });
    PacketCheck check(context, "MIC-2");
    const uint32_t packets = ReadFor(context, recording, 2s, [&](auto packet) { check.Add(packet); });
    isOver = true;
    writer.join();
    context.Expect(packets >= 20, "MIC-18",
                   fmt::format("only {} packets came in two seconds of playing", packets));
    context.Step("closes the microphone", {"MIC-7"});
    recording.ExpectCloses();
}

} // namespace

std::span<const Check> MicrophoneChecks()
{
    static const std::vector<std::string_view> reading{"MIC-1", "MIC-2", "MIC-3", "MIC-7", "OWN-3", "THR-3"};
    const auto with = [](std::vector<std::string_view> clauses) {
        clauses.insert(clauses.end(), reading.begin(), reading.end());
        return clauses;
    };
    static const std::vector<Check> checks{
        {"microphone.without-recording", 6, with({"MIC-14"}), 30s, CheckReadsWithoutRecording},
        {"microphone.without-buffer", 6, {"MIC-1", "MIC-6", "MIC-7", "OWN-9"}, 30s, CheckReadsWithoutBuffer},
        {"microphone.without-microphone", 6, with({}), 30s, CheckMissingMicrophone},
        {"microphone.packets", 6, with({"MIC-16"}), 60s, CheckPackets},
        {"microphone.waits", 6, with({"MIC-4", "MIC-16"}), 90s, CheckWaits},
        {"microphone.close-during-read", 6, with({}), 60s, CheckCloseDuringRead},
        {"microphone.other-ids", 6, with({"IDS-4"}), 90s, CheckOtherIds},
        {"microphone.reopening", 6, with({"MIC-15"}), 120s, CheckReopening},
        {"microphone.old-packets", 6, with({"MIC-15", "MIC-16"}), 60s, CheckOldPackets},
        {"microphone.second-opening", 6, with({"MIC-8", "MIC-14", "MIC-15", "MIC-16"}), 60s,
         CheckSecondOpening},
        {"microphone.slow-reader", 6, with({"MIC-5", "MIC-16"}), 60s, CheckSlowReader},
        {"microphone.during-stream", 6, with({"MIC-16", "MIC-18"}), 60s, CheckRecordingDuringStream},
    };
    return checks;
}

} // namespace velto::check
