// velto-host record: reads packets from a microphone of the module as the platform's host does,
// writes them into a file, and reports.
//
// The calling thread makes every call; it never enters COM, as the platform's host threads do not.
#pragma once

#include <functional>
#include <optional>

#include "host/exit_code.h"
#include "host/interruption.h"
#include "host/module.h"
#include "host/output.h"
#include "host/progress_line.h"
#include "host/record_options.h"
#include "host/stream_end.h"
#include "host/stream_timer.h"
#include "host/track_recorder.h"

namespace velto::host {

class RecordCommand {
public:
    // Begins the file; throws AacFileError. All references outlive the command.
    RecordCommand(const RecordOptions &options, const Output &output, const Interruption &interruption);

    // Records to the end and reports.
    ExitCode Run(Module &module);

    // The same in two steps, for who reports more than this. Records until its own time is over, or
    // `isOver` says so; unloads the module when asked to.
    ExitCode Record(Module &module, const std::function<bool()> &isOver);
    // Prints the summary for people and returns the one for programs.
    Json Summarise(ExitCode exitCode) const;

private:
    enum class Ending { OVER, UNLOAD };

    Ending ReadAll(const std::function<bool()> &isOver);
    bool IsTimeOver() const;
    void PauseIfAsked();
    void HintIfNothingComes();
    Json Report(int exitCode) const;

    const RecordOptions &m_options;
    const Output &m_output;
    const Interruption &m_interruption;
    StreamTimer m_timer;
    StreamEnd m_end;
    ProgressLine m_progress;
    TrackRecorder m_track;
    bool m_paused = false; // the pause that was asked for is over
    bool m_hinted = false;
    StreamTimer::Clock::time_point m_begin;
    std::optional<double> m_wallSeconds; // of the whole, once it is over
    Json m_unload;                       // null unless asked for
};

} // namespace velto::host
