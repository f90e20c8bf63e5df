// velto-host play: sends files to the module's speakers, one stream after the other.
//
// The calling thread makes every call to the module. It never enters COM, because a host need not.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"
#include "velto-host/progress_line.h"
#include "velto-host/stream_control.h"
#include "velto-host/track_sender.h"

namespace velto::host {

class PlayCommand {
public:
    // Opens the files; throws AacFileError. All references outlive the command.
    PlayCommand(const PlayOptions &options, const Output &output, const Interruption &interruption);

    // Plays to the end and prints the report.
    ExitCode Run(Module &module);

    // Run() in two steps, for DuplexCommand, which prints one combined report. Play() returns at the end of
    // the last stream, after Ctrl-C, or when --unload-after has unloaded the module.
    ExitCode Play(Module &module);
    // Prints the summary for people and returns the report.
    Json Summarise(ExitCode exitCode) const;

private:
    enum class Ending { END_OF_STREAM, INTERRUPTED, UNLOAD };
    using Stream =
        std::vector<std::unique_ptr<TrackSender>>; // tracks that play together, the main track first

    Ending PlayStreams(const Module &module);
    Ending SendAll(const Module &module, const Stream &stream);
    bool PauseIfDue(const Module &module, const Stream &stream);
    double SentSeconds() const;
    Json Report(int exitCode) const;

    const PlayOptions &m_options;
    const Output &m_output;
    const Interruption &m_interruption;
    StreamTimer m_timer;
    StreamEnd m_end;
    ProgressLine m_progress;
    std::vector<Stream> m_streams;
    std::unique_ptr<ListenerLog> m_listener;
    bool m_paused = false; // the pause of --pause-after is over or running
    StreamTimer::Clock::time_point m_begin;
    std::optional<double> m_wallSeconds; // set when playing has ended
    Json m_unload;                       // null unless the module was unloaded
};

} // namespace velto::host
