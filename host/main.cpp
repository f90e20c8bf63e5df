// velto-host: loads LibVeltoAudioHandler and drives it from the command line.
//
// Exit codes: 0 all well; 1 nothing played or a call refused; 2 wrong command line; 3 the module
// cannot be loaded; 4 the file cannot be read or written, or is not AAC; 5 nothing came from the
// microphone; 130 interrupted with Ctrl-C.
#include <windows.h>

#include <exception>

#include "host/aac_reader.h"
#include "host/capabilities_command.h"
#include "host/command_line.h"
#include "host/devices_command.h"
#include "host/duplex_command.h"
#include "host/exit_code.h"
#include "host/ffmpeg.h"
#include "host/microphone_probe.h"
#include "host/module.h"
#include "host/output.h"
#include "host/play_command.h"
#include "host/probe_command.h"
#include "host/record_command.h"
#include "host/storm_command.h"
#include "host/utf8.h"

namespace {

using namespace velto::host;

int Fail(const Output &output, ExitCode exitCode, const std::string &what)
{
    output.Complain("{}", what);
    output.Result({{"error", what}, {"exitCode", int{exitCode}}});
    return exitCode;
}

int Run(const CommandLine &line, const Output &output)
{
    switch (line.command) {
    case CommandLine::Command::CAPABILITIES:
        return ShowCapabilities(Module(line.modulePath), output);
    case CommandLine::Command::PROBE:
        return line.microphoneProbe.sequence.empty()
                   ? Probe(Module(line.modulePath), output)
                   : ProbeMicrophone(Module(line.modulePath), line.microphoneProbe, output);
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
    case CommandLine::Command::STORM: {
        const Interruption interruption;
        StormCommand storm(line.storm, output, interruption);
        return storm.Run(line.modulePath);
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
    // The library is the module's, too: it would write to this console about every damaged frame.
    av_log_set_level(AV_LOG_QUIET);
    const CommandLine line = ReadCommandLine(CommandLineArguments());
    const Output output(line.json);
    try {
        return Run(line, output);
    } catch (const ModuleError &error) {
        return Fail(output, EXIT_MODULE, error.what());
    } catch (const AacFileError &error) {
        return Fail(output, EXIT_FILE, error.what());
    } catch (const std::exception &error) {
        return Fail(output, EXIT_FAILED, error.what());
    }
}
