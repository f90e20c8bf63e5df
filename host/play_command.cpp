#include "host/play_command.h"

#include <algorithm>

namespace velto::host {
namespace {

// What may still be on its way when the last frame was handed over: the module's queue of 20 blocks
// of 1024 frames at 48000 Hz, the endpoint's buffer of 300 ms, and the time that the sound system
// itself takes.
constexpr double queuedAtMostSeconds = 20 * 1024 / 48000.0 + 0.300 + 0.300;

} // namespace

PlayCommand::PlayCommand(const PlayOptions &options, const Output &output, const Interruption &interruption)
    : m_options(options),
      m_output(output),
      m_interruption(interruption),
      m_timer(interruption),
      m_end(options.end, output, m_timer),
      m_progress(options.showProgress)
{
    m_tracks.push_back(std::make_unique<TrackSender>(options.file, options.device, options, output));
    if (!options.modemFile.empty()) {
        m_tracks.push_back(
            std::make_unique<TrackSender>(options.modemFile, VELTO_ID_MODEM_SPEAKER, options, output));
    }
}

ExitCode PlayCommand::Run(Module &module)
{
    const ExitCode exitCode = Play(module);
    m_output.Result(Summarise(exitCode));
    return exitCode;
}

ExitCode PlayCommand::Play(Module &module)
{
    m_listener = std::make_unique<ListenerLog>(module, m_output, m_options.showEvents);
    SetParameters(module);
    m_begin = StreamTimer::Clock::now();
    const Ending ending = SendAll(module);
    if (ending == Ending::UNLOAD) {
        m_unload = m_end.Unload(module);
    } else {
        CloseTracks(module);
        if (ending == Ending::END_OF_STREAM) {
            m_timer.WaitFor(queuedAtMostSeconds);
        }
    }
    m_progress.Complete();
    m_wallSeconds = SecondsSince(m_begin);
    uint64_t refused = m_refusedParameters;
    bool allSent = true;
    for (const auto &track : m_tracks) {
        refused += track->NonzeroResults();
        allSent = allSent && track->Sent() > 0;
    }
    if (m_interruption.IsRaised()) {
        return EXIT_INTERRUPTED;
    }
    return refused == 0 && allSent ? EXIT_OK : EXIT_FAILED;
}

void PlayCommand::SetParameters(const Module &module)
{
    if (m_options.parameters.empty()) {
        return;
    }
    std::vector<AudioProfileEntry> entries;
    for (const Parameter &parameter : m_options.parameters) {
        entries.push_back(
            {parameter.key.c_str(), static_cast<uint32_t>(parameter.key.size()), parameter.value});
    }
    const AudioProfileList list{static_cast<uint32_t>(entries.size()), 0, entries.data()};
    for (const auto &track : m_tracks) {
        const DeviceId &id = track->Device();
        const int32_t result = module->SetAudioParameter(id.Text(), id.Length(), nullptr, nullptr, &list);
        if (result != VELTO_OK) {
            ++m_refusedParameters;
            m_output.Complain("SetAudioParameter for {} returned {}", id.id, result);
        }
    }
}

// The track whose frame is due first; null when no track has one.
TrackSender *PlayCommand::NextTrack()
{
    const auto now = StreamTimer::Clock::now();
    TrackSender *next = nullptr;
    for (const auto &track : m_tracks) {
        if (track->HasFrame() && (next == nullptr || track->Due(now) < next->Due(now))) {
            next = track.get();
        }
    }
    return next;
}

PlayCommand::Ending PlayCommand::SendAll(const Module &module)
{
    while (TrackSender *track = NextTrack()) {
        if (!m_timer.WaitUntil(track->Due(StreamTimer::Clock::now()))) {
            return Ending::INTERRUPTED;
        }
        track->Send(module);
        m_progress.Show(m_tracks.front()->Progress());
        const double played = SecondsSince(m_begin);
        m_end.ExitIfAsked(played, [this](int exitCode) { return Report(exitCode); });
        if (m_end.IsUnloadDue(played)) {
            return Ending::UNLOAD;
        }
        if (!PauseIfAsked()) {
            return Ending::INTERRUPTED;
        }
    }
    return Ending::END_OF_STREAM;
}

// False when interrupted.
bool PlayCommand::PauseIfAsked()
{
    if (m_paused || !IsReached(m_options.pauseAfter, m_tracks.front()->SentSeconds())) {
        return true;
    }
    m_paused = true;
    m_output.Say("sending nothing for {} s", m_options.pause);
    const bool completed = m_timer.WaitFor(m_options.pause);
    for (const auto &track : m_tracks) {
        track->RestartPace();
    }
    m_output.Say("sending again");
    return completed;
}

void PlayCommand::CloseTracks(const Module &module)
{
    for (const auto &track : m_tracks) {
        track->Close(module);
    }
}

Json PlayCommand::Report(int exitCode) const
{
    Json tracks = Json::array();
    uint64_t sent = 0;
    uint64_t skipped = 0;
    uint64_t nonzero = m_refusedParameters;
    for (const auto &track : m_tracks) {
        tracks.push_back(track->Report());
        sent += track->Sent();
        skipped += track->Skipped();
        nonzero += track->NonzeroResults();
    }
    Json events = Json::array();
    for (const ListenerEvent &event : m_listener->Events()) {
        events.push_back({{"device", event.device}, {"code", event.code}});
    }
    Json report{{"framesSent", sent},
                {"framesSkipped", skipped},
                {"seconds", m_tracks.front()->SentSeconds()},
                {"wallSeconds", m_wallSeconds.value_or(SecondsSince(m_begin))},
                {"nonzeroResults", nonzero},
                {"streamType", m_options.streamType},
                {"tracks", tracks},
                {"events", events},
                {"interrupted", m_interruption.IsRaised()}};
    if (!m_unload.is_null()) {
        report["unload"] = m_unload;
    }
    report["exitCode"] = exitCode;
    return report;
}

Json PlayCommand::Summarise(ExitCode exitCode) const
{
    for (const auto &track : m_tracks) {
        const Json report = track->Report();
        m_output.Say("{}: {} frames sent, {} skipped, {:.3f} s, {} bytes, {} nonzero results",
                     track->Device().id, track->Sent(), track->Skipped(), track->SentSeconds(),
                     report["bytes"].get<uint64_t>(), track->NonzeroResults());
        if (track->NonzeroResults() > 0) {
            m_output.Complain("{}: first nonzero result: {}", track->Device().id,
                              report["firstNonzeroResult"].get<int32_t>());
        }
        if (track->Sent() == 0) {
            m_output.Complain("{}: there was no frame to send", track->Device().id);
        }
    }
    m_output.Say("{} listener event(s) in {:.1f} s", m_listener->Events().size(), m_wallSeconds.value_or(0));
    return Report(exitCode);
}

} // namespace velto::host
