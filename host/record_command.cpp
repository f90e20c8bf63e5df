#include "host/record_command.h"

namespace velto::host {
namespace {

// A read that gave nothing need not have waited. As often as a capture device has something new.
constexpr double retrySeconds = 0.010;
// When the time asked for is over and nothing has come for so long, the rest will not come either.
constexpr double givenUpSeconds = 1.0;
constexpr double hintSeconds = 3.0;

} // namespace

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
        m_end.ExitIfAsked(passed, [this](int exitCode) { return Report(exitCode); });
        if (m_end.IsUnloadDue(passed)) {
            return Ending::UNLOAD;
        }
        PauseIfAsked();
        if (!gotPacket) {
            HintIfNothingComes();
            m_timer.WaitFor(retrySeconds);
        }
    }
    return Ending::OVER;
}

bool RecordCommand::IsTimeOver() const
{
    return IsReached(m_options.seconds, m_track.Seconds()) ||
           (IsReached(m_options.seconds, SecondsSince(m_begin)) && m_track.SilentSeconds() >= givenUpSeconds);
}

void RecordCommand::PauseIfAsked()
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

void RecordCommand::HintIfNothingComes()
{
    if (!m_hinted && m_track.Packets() == 0 && m_track.SilentSeconds() >= hintSeconds) {
        m_hinted = true;
        m_progress.Complete();
        m_output.Complain("nothing comes from the microphone; the module's log tells why");
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
    if (!m_unload.is_null()) {
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
