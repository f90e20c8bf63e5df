#include "velto-host/play_command.h"

#include <algorithm>

namespace velto::host {
namespace {

// Longest time from sending the last unit to the end of its sound: the module's full queue, 300 ms of the
// endpoint's buffer, and 300 ms for the sound system.
constexpr double longestDelaySeconds =
    double{VELTO_QUEUE_UNITS} * VELTO_UNIT_SAMPLES / VELTO_SAMPLE_RATE_HZ + 0.300 + 0.300;

// The track whose unit is due first; null if no track has one.
TrackSender *NextTrack(const std::vector<std::unique_ptr<TrackSender>> &stream)
{
    const auto now = StreamTimer::Clock::now();
    TrackSender *next = nullptr;
    for (const auto &track : stream) {
        if (track->HasUnit() && (next == nullptr || track->Due(now) < next->Due(now))) {
            next = track.get();
        }
    }
    return next;
}

} // namespace

PlayCommand::PlayCommand(const PlayOptions &options, const Output &output, const Interruption &interruption)
    : m_options(options),
      m_output(output),
      m_interruption(interruption),
      m_timer(interruption),
      m_end(options.end, output, m_timer),
      m_progress(options.showProgress)
{
    for (const std::string &file : options.files) {
        m_streams.emplace_back().push_back(
            std::make_unique<TrackSender>(file, options.device, options, output));
    }
    if (!options.modemFile.empty()) {
        m_streams.front().push_back(
            std::make_unique<TrackSender>(options.modemFile, VELTO_ID_MODEM_SPEAKER, options, output));
    }
}

ExitCode PlayCommand::Run(Module &module)
{
    const ExitCode exitCode = Play(module);
    module.Unload(); // before the result, which therefore includes a crash or a hang of the unloading
    m_output.Result(Summarise(exitCode));
    return exitCode;
}

ExitCode PlayCommand::Play(Module &module)
{
    m_listener = std::make_unique<ListenerLog>(module, m_output, m_options.showEvents);
    m_begin = StreamTimer::Clock::now();
    const Ending ending = PlayStreams(module);
    if (ending == Ending::UNLOAD) {
        m_unload = m_end.Unload(module);
    } else if (ending == Ending::END_OF_STREAM) {
        m_timer.WaitFor(longestDelaySeconds);
    }
    m_progress.Complete();
    m_wallSeconds = SecondsSince(m_begin);
    uint64_t refused = 0;
    bool allSent = true;
    for (const Stream &stream : m_streams) {
        for (const auto &track : stream) {
            refused += track->NonzeroResults();
            allSent = allSent && track->Sent() > 0;
        }
    }
    if (m_interruption.IsRaised()) {
        return EXIT_INTERRUPTED;
    }
    return refused == 0 && allSent ? EXIT_OK : EXIT_FAILED;
}

PlayCommand::Ending PlayCommand::PlayStreams(const Module &module)
{
    for (const Stream &stream : m_streams) {
        if (&stream != &m_streams.front() && !m_timer.WaitFor(m_options.gap)) {
            return Ending::INTERRUPTED;
        }
        for (const auto &track : stream) {
            track->Start(module);
        }
        const Ending ending = SendAll(module, stream);
        if (ending == Ending::UNLOAD) {
            return ending;
        }
        for (const auto &track : stream) {
            track->Close(module);
        }
        if (ending != Ending::END_OF_STREAM) {
            return ending;
        }
    }
    return Ending::END_OF_STREAM;
}

PlayCommand::Ending PlayCommand::SendAll(const Module &module, const Stream &stream)
{
    while (TrackSender *track = NextTrack(stream)) {
        if (!m_timer.WaitUntil(track->Due(StreamTimer::Clock::now()))) {
            return Ending::INTERRUPTED;
        }
        track->Send(module);
        m_progress.Show(stream.front()->Progress());
        const double played = SecondsSince(m_begin);
        m_end.ExitIfDue(played, [this](int exitCode) { return Report(exitCode); });
        if (m_end.IsUnloadDue(played)) {
            return Ending::UNLOAD;
        }
        if (!PauseIfDue(module, stream)) {
            return Ending::INTERRUPTED;
        }
    }
    return Ending::END_OF_STREAM;
}

// False if interrupted. Sends no silent units before the pause: the stream continues after it, and the
// decoder overlaps the units on both sides.
bool PlayCommand::PauseIfDue(const Module &module, const Stream &stream)
{
    if (m_paused || !IsReached(m_options.pauseAfter, stream.front()->SentSeconds())) {
        return true;
    }
    m_paused = true;
    m_output.Say("sending nothing for {} s", m_options.pause);
    const bool completed = m_timer.WaitFor(m_options.pause);
    for (const auto &track : stream) {
        track->Start(module);
    }
    m_output.Say("sending again");
    return completed;
}

// Of all streams together.
double PlayCommand::SentSeconds() const
{
    double seconds = 0;
    for (const Stream &stream : m_streams) {
        seconds += stream.front()->SentSeconds();
    }
    return seconds;
}

Json PlayCommand::Report(int exitCode) const
{
    Json tracks = Json::Array();
    uint64_t sent = 0;
    uint64_t skipped = 0;
    uint64_t silent = 0;
    uint64_t nonzero = 0;
    for (const Stream &stream : m_streams) {
        for (const auto &track : stream) {
            tracks.Append(track->Report());
            sent += track->Sent();
            skipped += track->Skipped();
            silent += track->SilentUnits();
            nonzero += track->NonzeroResults();
        }
    }
    Json events = Json::Array();
    for (const ListenerEvent &event : m_listener->Events()) {
        events.Append({{"device", event.device}, {"code", event.code}});
    }
    Json report{{"unitsSent", sent},
                {"unitsSkipped", skipped},
                {"silentUnits", silent},
                {"seconds", SentSeconds()},
                {"wallSeconds", m_wallSeconds.value_or(SecondsSince(m_begin))},
                {"nonzeroResults", nonzero},
                {"streamType", m_options.streamType},
                {"tracks", tracks},
                {"events", events},
                {"interrupted", m_interruption.IsRaised()}};
    if (!m_unload.IsNull()) {
        report["unload"] = m_unload;
    }
    report["exitCode"] = exitCode;
    return report;
}

Json PlayCommand::Summarise(ExitCode exitCode) const
{
    for (const Stream &stream : m_streams) {
        for (const auto &track : stream) {
            track->Summarise();
        }
    }
    m_output.Say("{} event(s) from the module in {:.1f} s", m_listener->Events().size(),
                 m_wallSeconds.value_or(0));
    return Report(exitCode);
}

} // namespace velto::host
