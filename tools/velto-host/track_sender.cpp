#include "velto-host/track_sender.h"

#include <algorithm>
#include <iterator>

namespace velto::host {
namespace {

constexpr uint32_t moduleRateHz = VELTO_SAMPLE_RATE_HZ;
constexpr uint8_t silentUnit[] = VELTO_SILENT_UNIT;
constexpr int mostUnitsAtOnce = 4;
constexpr uint64_t mostComplaints = 5; // about skipped units; the summary counts them all

std::chrono::nanoseconds UnitTime(const AacStream &stream, double paceRateHz)
{
    const double rateFactor = paceRateHz > 0 ? stream.sampleRateHz / paceRateHz : 1.0;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(stream.UnitSeconds() * rateFactor));
}

double Milliseconds(Pacer::Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

} // namespace

TrackSender::TrackSender(const std::string &file, const std::string &device, const PlayOptions &options,
                         const Output &output)
    : m_file(file),
      m_device(device),
      m_options(options),
      m_output(output),
      m_reader(std::make_unique<AacReader>(file)),
      m_meter(std::make_unique<LevelMeter>(m_reader->Stream())),
      m_pacer(UnitTime(m_reader->Stream(), options.paceRateHz), mostUnitsAtOnce),
      m_unitSeconds(m_reader->Stream().UnitSeconds()),
      m_isAdts(options.framing == Framing::ADTS ||
               (options.framing == Framing::AUTO && m_reader->Stream().sampleRateHz != moduleRateHz))
{
    const AacStream &stream = m_reader->Stream();
    m_output.Say("{}: {}, {} Hz, {} channel(s), {} -> {}", file, ObjectTypeName(stream.objectType),
                 stream.sampleRateHz, stream.channels, stream.isAdts ? "ADTS" : "MP4", device);
    WarnAbout(stream);
    Fetch();
}

void TrackSender::WarnAbout(const AacStream &stream)
{
    if (stream.sampleRateHz != moduleRateHz) {
        Warn(Format("the stream has {} Hz; the module plays it at {} Hz, at the wrong speed",
                    stream.sampleRateHz, moduleRateHz));
    }
    if (stream.objectType != aacLowComplexity) {
        Warn(Format("the stream is {}; the module is designed for AAC-LC and may drop it",
                    ObjectTypeName(stream.objectType)));
    }
    if (!m_meter->IsAvailable()) {
        Warn("there is no decoder for this stream: units are sent unchecked, and their level is unknown");
    }
}

void TrackSender::Warn(const std::string &warning)
{
    m_warnings.push_back(warning);
    m_output.Complain("{}: warning: {}", m_file, warning);
}

// An MP4 file states its length, but may be truncated. Warns once, because all passes are equally short.
void TrackSender::WarnIfShort()
{
    const double length = m_reader->Stream().durationSeconds;
    const double missing = length - m_seconds;
    if (m_passes == 1 && missing > 2 * m_unitSeconds) {
        Warn(Format("the file states a length of {:.3f} s; the last {:.3f} s are missing", length, missing));
    }
}

void TrackSender::Start(const Module &module)
{
    m_pacer.Restart();
    if (m_options.parameters.empty()) {
        return;
    }
    std::vector<AudioProfileEntry> entries;
    for (const Parameter &parameter : m_options.parameters) {
        entries.push_back(
            {parameter.key.c_str(), static_cast<uint32_t>(parameter.key.size()), parameter.value});
    }
    const AudioProfileList list{static_cast<uint32_t>(entries.size()), 0, entries.data()};
    const int32_t result =
        module->SetAudioParameter(m_device.Text(), m_device.Length(), nullptr, nullptr, &list);
    NoteResult(result);
    if (result != VELTO_OK) {
        m_output.Complain("SetAudioParameter for {} returned {}", m_device.id, result);
    }
}

void TrackSender::Send(const Module &module)
{
    StreamFrameHeader header{m_options.streamType, static_cast<uint32_t>(m_unit.size()), 0};
    StreamFrame frame{m_unit.data(), {}, &header};
    const auto before = Clock::now();
    NoteResult(module->WriteStreamBuffer(m_device.Text(), m_device.Length(), nullptr, &frame));
    m_longestCall = std::max(m_longestCall, Clock::now() - before);
    if (m_isSilentUnit) {
        ++m_silent;
    } else {
        ++m_sent;
        m_bytes += m_unit.size();
        m_seconds += m_unitSeconds;
    }
    m_pacer.Advance();
    Fetch();
}

void TrackSender::Close(const Module &module)
{
    NoteResult(module->CloseAudioTrack(m_device.Text(), m_device.Length()));
}

void TrackSender::Fetch()
{
    m_hasUnit = false;
    if (!m_isSilentUnit) {
        FetchFromFile();
    }
    if (!m_hasUnit && m_options.endsWithSilence && m_sent > 0 && m_silent < VELTO_CUSHION_UNITS) {
        PrepareSilentUnit();
    }
}

// Silent units flush the module's cushion, which may contain all of a short stream, and the decoder, which
// would otherwise add half of the last unit to the start of the next stream.
void TrackSender::PrepareSilentUnit()
{
    m_unit.assign(std::begin(silentUnit), std::end(silentUnit));
    if (m_isAdts) {
        AddAdtsHeader(VELTO_CHANNELS);
    }
    m_hasUnit = m_isSilentUnit = true;
}

// Reads until a unit can be sent. At the end of the file, starts another pass if the file is repeated.
void TrackSender::FetchFromFile()
{
    while (!m_hasUnit && (m_options.seconds < 0 || m_seconds < m_options.seconds)) {
        switch (m_reader->Read(m_unit)) {
        case AacReader::Outcome::UNIT:
            m_hasUnit = CheckUnit();
            m_unitsInThisPass = m_unitsInThisPass || m_hasUnit;
            break;
        case AacReader::Outcome::DAMAGED:
            Skip(m_damaged, m_reader->Damage());
            break;
        case AacReader::Outcome::MISSING:
            ++m_missing; // of unknown duration, so the next unit is sent in its place
            break;
        case AacReader::Outcome::END:
            WarnIfShort();
            if (!m_options.loop || !m_unitsInThisPass) {
                return;
            }
            m_reader = std::make_unique<AacReader>(m_file);
            m_unitsInThisPass = false;
            ++m_passes;
            break;
        }
    }
}

bool TrackSender::CheckUnit()
{
    const std::optional<double> peak = m_meter->PeakDb(m_unit);
    m_peakDb = peak.value_or(silenceDb);
    if (!peak && !m_options.sendDamaged) {
        Skip(m_rejected, "it cannot be decoded");
        return false;
    }
    if (m_isAdts) {
        AddAdtsHeader(m_reader->Stream().channels);
    }
    return true;
}

// The header states the rate and the channels, which a raw unit does not.
void TrackSender::AddAdtsHeader(uint32_t channels)
{
    const uint32_t rateHz = m_reader->Stream().sampleRateHz;
    const std::vector<uint8_t> header = MakeAdtsHeader(rateHz, channels, m_unit.size());
    m_unit.insert(m_unit.begin(), header.begin(), header.end());
}

void TrackSender::Skip(uint64_t &counter, const std::string &why)
{
    ++counter;
    if (Skipped() <= mostComplaints) {
        m_output.Complain("{}: unit at {:.3f} s skipped: {}{}", m_file, m_seconds, why,
                          Skipped() == mostComplaints ? "; further ones are only counted" : "");
    }
    m_seconds += m_unitSeconds;
    m_pacer.Advance();
}

void TrackSender::NoteResult(int32_t result)
{
    if (result == VELTO_OK) {
        return;
    }
    if (m_nonzeroResults++ == 0) {
        m_firstNonzeroResult = result;
    }
}

StreamProgress TrackSender::Progress() const
{
    return {.seconds = m_seconds,
            .length = Stream().durationSeconds,
            .units = m_sent,
            .peakDb = m_peakDb,
            .failures = Skipped()};
}

void TrackSender::Summarise() const
{
    m_output.Say(
        "{}: {} units sent, {} silent units after them, {} skipped, {:.3f} s, {} bytes, {} nonzero results",
        m_device.id, m_sent, m_silent, Skipped(), m_seconds, m_bytes, m_nonzeroResults);
    if (m_nonzeroResults > 0) {
        m_output.Complain("{}: first nonzero result: {}", m_device.id, m_firstNonzeroResult);
    }
    if (m_sent == 0) {
        m_output.Complain("{}: there was no unit to send", m_device.id);
    }
}

Json TrackSender::Report() const
{
    const AacStream &stream = m_reader->Stream();
    return {{"file", m_file},
            {"device", m_device.id},
            {"container", stream.isAdts ? "ADTS" : "MP4"},
            {"objectType", stream.objectType},
            {"sampleRate", stream.sampleRateHz},
            {"channels", stream.channels},
            {"unitsSent", m_sent},
            {"unitsSkipped", Skipped()},
            {"silentUnits", m_silent},
            {"skipped", {{"damaged", m_damaged}, {"missing", m_missing}, {"undecodable", m_rejected}}},
            {"seconds", m_seconds},
            {"bytes", m_bytes},
            {"passes", m_passes},
            {"sentAs", m_isAdts ? "ADTS" : "raw"},
            {"nonzeroResults", m_nonzeroResults},
            {"firstNonzeroResult", m_firstNonzeroResult},
            {"longestCallMs", Milliseconds(m_longestCall)},
            {"paceSlips", m_pacer.Slips()},
            {"warnings", m_warnings}};
}

} // namespace velto::host
