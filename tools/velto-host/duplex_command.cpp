#include "velto-host/duplex_command.h"

#include <chrono>
#include <future>

namespace velto::host {

DuplexCommand::DuplexCommand(const DuplexOptions &options, const Output &output, Interruption &interruption)
    : m_options(options),
      m_output(output),
      m_interruption(interruption),
      m_play(options.play, output, interruption),
      m_record(options.record, output, interruption)
{
}

ExitCode DuplexCommand::Run(Module &module)
{
    auto playing = std::async(std::launch::async, [&] { return m_play.Play(module); });
    UsageReport usage(m_output, std::chrono::duration<double>(m_options.usageEvery));
    const auto isPlayed = [&] {
        usage.PrintIfDue(); // called after each read
        return m_options.record.seconds < 0 &&
               playing.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    };
    ExitCode recorded = EXIT_FAILED;
    try {
        recorded = m_record.Record(module, isPlayed);
    } catch (...) {
        m_interruption.Raise(); // otherwise the file would play to its end before the failure is reported
        playing.wait();
        throw;
    }
    const ExitCode played = playing.get();
    const ExitCode exitCode = played != EXIT_OK ? played : recorded;
    module.Unload(); // before the result, which therefore includes a crash or a hang of the unloading
    const Json playSummary = m_play.Summarise(played);
    const Json recordSummary = m_record.Summarise(recorded);
    m_output.Result({{"play", playSummary}, {"record", recordSummary}, {"exitCode", int{exitCode}}});
    return exitCode;
}

} // namespace velto::host
