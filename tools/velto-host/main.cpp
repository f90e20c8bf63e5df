// velto-host: loads LibVeltoAudioHandler and drives it from the command line. The exit codes are in output.h.
#include <windows.h>

#include "check/check_command.h"
#include "check/check_process.h"
#include "check/heard_command.h"
#include "check/microphone_command.h"
#include "check/storm_command.h"
#include "velto-host/command_line.h"
#include "velto-host/crash_dump.h"
#include "velto-host/device_commands.h"
#include "velto-host/duplex_command.h"
#include "velto-host/log_command.h"
#include "velto-host/module.h"
#include "velto-host/output.h"
#include "velto-host/play_command.h"
#include "velto-host/portable/ffmpeg.h"
#include "velto-host/record_command.h"
#include "velto-host/report_command.h"
#include "velto-host/stream_control.h"
#include "velto-host/windows_text.h"

namespace {

using namespace velto::host;
namespace check = velto::check;

// The files are opened before the module is loaded, so that a wrong name is reported at once.
int Run(const CommandLine &line, const Output &output)
{
    switch (line.command) {
    case CommandLine::Command::CAPABILITIES: {
        Module module(line.modulePath);
        return ShowCapabilities(module, output);
    }
    case CommandLine::Command::DEVICES:
        return ShowDevices(output);
    case CommandLine::Command::PLAY: {
        const Interruption interruption;
        PlayCommand play(line.play, output, interruption);
        Module module(line.modulePath);
        return play.Run(module);
    }
    case CommandLine::Command::RECORD: {
        const Interruption interruption;
        RecordCommand record(line.record, output, interruption);
        Module module(line.modulePath);
        return record.Run(module);
    }
    case CommandLine::Command::DUPLEX: {
        Interruption interruption;
        DuplexCommand duplex(line.duplex, output, interruption);
        Module module(line.modulePath);
        return duplex.Run(module);
    }
    case CommandLine::Command::LOG:
        return ExplainLog(line.log, output);
    case CommandLine::Command::REPORT:
        return WriteReport(line.report, line.modulePath, output);
    case CommandLine::Command::CHECK:
        return check::RunCheckCommand(line.checks, line.modulePath, line.json);
    case CommandLine::Command::CHECK_ONE:
        return check::RunCheckProcess(line.checkProcess);
    case CommandLine::Command::CHECK_END:
        return check::RunEndProcess(line.endProcess);
    case CommandLine::Command::CHECK_HEARD:
        return check::CompareRecording(line.heard);
    case CommandLine::Command::CHECK_STORM: {
        const Interruption interruption;
        return check::StormCommand(line.storm, output, interruption).Run(line.modulePath);
    }
    case CommandLine::Command::CHECK_MICROPHONE: {
        Module module(line.modulePath);
        return check::RunMicrophoneCommand(module, line.microphone, output);
    }
    case CommandLine::Command::NONE:
        break;
    }
    return line.exitCode;
}

} // namespace

int main()
{
    SetConsoleOutputCP(CP_UTF8);
    // The module uses the same library, which would print a line about every damaged unit.
    av_log_set_level(AV_LOG_QUIET);
    const CommandLine line = ReadCommandLine(CommandLineArguments());
    const Output output("velto-host", line.json, line.schema);
    if (!line.crash.dumpFile.empty()) {
        WriteDumpOnCrash(line.crash.dumpFile);
    }
    ListenerLog::CrashInNextEvent(line.crash.crashInListener);
    try {
        return Run(line, output);
    } catch (...) {
        return output.FailWithCaught();
    }
}
