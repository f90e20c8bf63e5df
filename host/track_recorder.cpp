#include "host/track_recorder.h"

#include <algorithm>

#include "host/adts_header.h"

namespace velto::host {
namespace {

constexpr uint32_t lowComplexity = 2;
constexpr uint64_t mostComplaints = 5; // about packets that cannot be decoded; the summary counts them all

AacStream MicrophoneStream()
{
    return {.sampleRateHz = microphoneRateHz,
            .channels = microphoneChannels,
            .objectType = lowComplexity,
            .specificConfig = MakeSpecificConfig(lowComplexity, microphoneRateHz, microphoneChannels)};
}

double Milliseconds(TrackRecorder::Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

} // namespace

TrackRecorder::TrackRecorder(const std::string &file, const std::string &device, const Output &output)
    : m_file(file),
      m_device(device),
      m_output(output),
      m_writer(file, {.sampleRateHz = microphoneRateHz, .channels = microphoneChannels}),
      m_meter(MicrophoneStream())
{
    m_output.Say("{} -> {}: AAC-LC, {} Hz, {} channel(s), {}", device, file, microphoneRateHz,
                 microphoneChannels, m_writer.Container());
}

bool TrackRecorder::Open(const AudioHandlerTable &table)
{
    m_opened = Clock::now();
    m_microphone.emplace(table, m_device);
    const int32_t result = m_microphone->Open();
    NoteResult(result);
    if (result != VELTO_OK) {
        m_output.Complain("{} cannot be opened: the module returned {}", m_device, result);
        m_microphone.reset();
    }
    return m_microphone.has_value();
}

bool TrackRecorder::Read()
{
    const auto before = Clock::now();
    const Microphone::Outcome outcome = m_microphone->Read();
    const auto now = Clock::now();
    m_longestRead = std::max(m_longestRead, now - before);
    m_peakDb = silenceDb;
    switch (outcome) {
    case Microphone::Outcome::PACKET:
        Take(now);
        return true;
    case Microphone::Outcome::NOTHING:
        ++m_emptyReads;
        return false;
    case Microphone::Outcome::STOPPED:
        ++m_stoppedReads;
        return false;
    case Microphone::Outcome::REFUSED:
        NoteResult(m_microphone->Result());
        return false;
    }
    return false;
}

void TrackRecorder::Take(Clock::time_point now)
{
    if (!m_firstPacketDelay) {
        m_firstPacketDelay = now - m_opened;
    }
    if (m_lastPacket) {
        m_longestGap = std::max(m_longestGap, now - *m_lastPacket);
    }
    m_lastPacket = now;
    m_packetTimes.push_back(
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
    const auto packet = m_microphone->Packet();
    m_bytes += packet.size();
    m_largestPacket = std::max<uint64_t>(m_largestPacket, packet.size());
    m_writer.Write(packet);
    m_unit.assign(packet.begin(), packet.end());
    const std::optional<double> peak = m_meter.PeakDb(m_unit);
    m_peakDb = peak.value_or(silenceDb);
    m_loudestDb = std::max(m_loudestDb, m_peakDb);
    if (!peak && ++m_undecodable <= mostComplaints) {
        m_output.Complain("{}: the packet at {:.3f} s cannot be decoded{}", m_device, Seconds(),
                          m_undecodable == mostComplaints ? "; further ones are only counted" : "");
    }
}

void TrackRecorder::Close()
{
    if (m_microphone) {
        NoteResult(m_microphone->Close());
        m_microphone.reset();
    }
}

void TrackRecorder::NoteResult(int32_t result)
{
    if (result != VELTO_OK && m_nonzeroResults++ == 0) {
        m_firstNonzeroResult = result;
    }
}

double TrackRecorder::SilentSeconds() const
{
    return std::chrono::duration<double>(Clock::now() - m_lastPacket.value_or(m_opened)).count();
}

// In bits a second of what the packets last.
double TrackRecorder::BitRate() const
{
    const double samples = static_cast<double>(Packets()) * samplesPerPacket;
    return samples > 0 ? static_cast<double>(m_bytes) * 8.0 * microphoneRateHz / samples : 0.0;
}

StreamProgress TrackRecorder::Progress() const
{
    return {.seconds = Seconds(),
            .units = Packets(),
            .unitsName = "packets",
            .peakDb = m_peakDb,
            .failures = m_emptyReads + m_stoppedReads,
            .failuresName = "empty reads"};
}

Json TrackRecorder::Report() const
{
    Json firstPacket = nullptr;
    if (m_firstPacketDelay) {
        firstPacket = Milliseconds(*m_firstPacketDelay);
    }
    return {{"file", m_file},
            {"device", m_device},
            {"container", m_writer.Container()},
            {"sampleRate", microphoneRateHz},
            {"channels", microphoneChannels},
            {"packets", Packets()},
            {"seconds", Seconds()},
            {"bytes", m_bytes},
            {"bitRate", BitRate()},
            {"largestPacket", m_largestPacket},
            {"peakDb", m_loudestDb},
            {"firstPacketMs", firstPacket},
            {"longestGapMs", Milliseconds(m_longestGap)},
            {"longestReadMs", Milliseconds(m_longestRead)},
            {"emptyReads", m_emptyReads},
            {"stoppedReads", m_stoppedReads},
            {"undecodable", m_undecodable},
            {"nonzeroResults", m_nonzeroResults},
            {"firstNonzeroResult", m_firstNonzeroResult}};
}

void TrackRecorder::Summarise() const
{
    m_output.Say("{}: {} packets, {:.3f} s, {} bytes, {:.1f} kbit/s, peak {:.1f} dBFS", m_device, Packets(),
                 Seconds(), m_bytes, BitRate() / 1000.0, m_loudestDb);
    if (m_firstPacketDelay) {
        m_output.Say(
            "{}: first packet after {:.0f} ms, longest gap {:.0f} ms, {} empty reads, {} while stopped",
            m_device, Milliseconds(*m_firstPacketDelay), Milliseconds(m_longestGap), m_emptyReads,
            m_stoppedReads);
    }
    if (m_undecodable > 0) {
        m_output.Complain("{}: {} packets cannot be decoded", m_device, m_undecodable);
    }
    if (m_nonzeroResults > 0) {
        m_output.Complain("{}: {} nonzero results, the first was {}", m_device, m_nonzeroResults,
                          m_firstNonzeroResult);
    }
    if (Packets() == 0) {
        m_output.Complain(
            "{}: nothing was recorded, there is no file; the module's log tells why ({} empty reads, "
            "{} while it was not capturing)",
            m_device, m_emptyReads, m_stoppedReads);
    }
}

} // namespace velto::host
