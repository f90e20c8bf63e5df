// velto-host play: sends files to the module's speakers as the platform's host does, one stream after
// the other, and reports.
//
// The calling thread makes every call; it never enters COM, as the platform's host threads do not.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/exit_code.h"
#include "host/interruption.h"
#include "host/listener_log.h"
#include "host/module.h"
#include "host/output.h"
#include "host/play_options.h"
#include "host/progress_line.h"
#include "host/stream_end.h"
#include "host/stream_timer.h"
#include "host/track_sender.h"

namespace velto::host {

class PlayCommand {
public:
    // Opens the files; throws AacFileError. All references outlive the command.
    PlayCommand(const PlayOptions &options, const Output &output, const Interruption &interruption);

    // Plays to the end and reports.
    ExitCode Run(Module &module);

    // The same in two steps, for who reports more than this. Plays to the end; unloads the module
    // when asked to.
    ExitCode Play(Module &module);
    // Prints the summary for people and returns the one for programs.
    Json Summarise(ExitCode exitCode) const;

private:
    enum class Ending { END_OF_STREAM, INTERRUPTED, UNLOAD };
    using Stream =
        std::vector<std::unique_ptr<TrackSender>>; // what plays at the same time, the main track first

    Ending PlayStreams(const Module &module);
    Ending SendAll(const Module &module, const Stream &stream);
    bool PauseIfAsked(const Module &module, const Stream &stream);
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
    bool m_paused = false; // the pause that was asked for is over
    StreamTimer::Clock::time_point m_begin;
    std::optional<double> m_wallSeconds; // of the whole, once it is over
    Json m_unload;                       // null unless asked for
};

} // namespace velto::host
