#include "velto-host/record_command.h"

#include <algorithm>

namespace velto::host {
namespace {

// Wait after a read without a packet, because the read may have returned at once: about a period of a capture
// device.
constexpr double retrySeconds = 0.010;
// If the requested time has passed and no packet has come for so long, recording ends.
constexpr double silenceBeforeEndSeconds = 1.0;
constexpr double hintSeconds = 3.0;
constexpr uint64_t mostComplaints = 5; // about packets that cannot be decoded; the summary counts them all

AacStream MicrophoneStream()
{
    return {.sampleRateHz = microphoneRateHz,
            .channels = microphoneChannels,
            .objectType = aacLowComplexity,
            .specificConfig = MakeSpecificConfig(aacLowComplexity, microphoneRateHz, microphoneChannels)};
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
        WritePacket(now);
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

void TrackRecorder::WritePacket(Clock::time_point now)
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

// In bit/s, over the duration of the packets.
double TrackRecorder::BitRate() const
{
    const double samples = static_cast<double>(Packets()) * samplesPerUnit;
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
        m_output.Say("{}: first packet after {:.0f} ms, longest gap {:.0f} ms, {} empty reads, {} reads "
                     "while capture was stopped",
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
        m_output.Complain("{}: nothing was recorded, and there is no file; the module's log has the reason "
                          "({} empty reads, {} reads while capture was stopped)",
                          m_device, m_emptyReads, m_stoppedReads);
    }
}

RecordCommand::RecordCommand(const RecordOptions &options, const Output &output,
                             const Interruption &interruption)
    : m_options(options),
      m_output(output),
      m_interruption(interruption),
      m_timer(interruption),
      m_end(options.end, output, m_timer),
      m_progress(options.showProgress),
      m_track(options.file, options.device, output)
{
}

ExitCode RecordCommand::Run(Module &module)
{
    const ExitCode exitCode = Record(module, [] { return false; });
    module.Unload(); // before the result, which therefore includes a crash or a hang of the unloading
    m_output.Result(Summarise(exitCode));
    return exitCode;
}

ExitCode RecordCommand::Record(Module &module, const std::function<bool()> &isOver)
{
    m_begin = StreamTimer::Clock::now();
    if (m_track.Open(module.Table())) {
        if (ReadAll(isOver) == Ending::UNLOAD) {
            m_unload = m_end.Unload(module);
        } else {
            m_track.Close();
        }
    }
    m_progress.Complete();
    m_wallSeconds = SecondsSince(m_begin);
    m_track.Finish();
    if (m_interruption.IsRaised()) {
        return EXIT_INTERRUPTED;
    }
    if (m_track.NonzeroResults() > 0) {
        return EXIT_FAILED;
    }
    return m_track.Packets() > 0 ? EXIT_OK : EXIT_NOTHING_RECORDED;
}

RecordCommand::Ending RecordCommand::ReadAll(const std::function<bool()> &isOver)
{
    while (!IsTimeOver() && !m_interruption.IsRaised() && !isOver()) {
        const bool gotPacket = m_track.Read();
        m_progress.Show(m_track.Progress());
        const double passed = SecondsSince(m_begin);
        m_end.ExitIfDue(passed, [this](int exitCode) { return Report(exitCode); });
        if (m_end.IsUnloadDue(passed)) {
            return Ending::UNLOAD;
        }
        PauseIfDue();
        if (!gotPacket) {
            HintIfSilent();
            m_timer.WaitFor(retrySeconds);
        }
    }
    return Ending::OVER;
}

bool RecordCommand::IsTimeOver() const
{
    return IsReached(m_options.seconds, m_track.Seconds()) ||
           (IsReached(m_options.seconds, SecondsSince(m_begin)) &&
            m_track.SilentSeconds() >= silenceBeforeEndSeconds);
}

void RecordCommand::PauseIfDue()
{
    if (m_paused || !IsReached(m_options.pauseReadingAt, m_track.Seconds())) {
        return;
    }
    m_paused = true;
    m_output.Say("reading nothing for {} s", m_options.pauseReadingFor);
    m_timer.WaitFor(m_options.pauseReadingFor);
    m_track.NotePause();
    m_output.Say("reading again");
}

void RecordCommand::HintIfSilent()
{
    if (!m_hinted && m_track.Packets() == 0 && m_track.SilentSeconds() >= hintSeconds) {
        m_hinted = true;
        m_progress.Complete();
        m_output.Complain("no packet has come from the microphone yet; the module's log has the reason");
    }
}

Json RecordCommand::Report(int exitCode) const
{
    Json report = m_track.Report();
    report["wallSeconds"] = m_wallSeconds.value_or(SecondsSince(m_begin));
    report["interrupted"] = m_interruption.IsRaised();
    if (m_options.packetTimes) {
        report["packetTimes"] = m_track.PacketTimes();
    }
    if (!m_unload.IsNull()) {
        report["unload"] = m_unload;
    }
    report["exitCode"] = exitCode;
    return report;
}

Json RecordCommand::Summarise(ExitCode exitCode) const
{
    m_track.Summarise();
    return Report(exitCode);
}

} // namespace velto::host
