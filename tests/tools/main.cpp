// velto-test-host: makes calls of LibVeltoAudioHandler that no correct host makes, for the system tests. Its
// exit codes are those of velto-host.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>

#include <CLI/CLI.hpp>

#include "argument_probe.h"
#include "microphone_probe.h"
#include "storm_command.h"
#include "velto-host/portable/ffmpeg.h"
#include "velto-host/windows_text.h"

namespace {

using namespace velto::host;
using namespace velto_test;

struct CommandLine {
    bool isStorm = false;
    bool json = false;
    std::string modulePath;
    MicrophoneProbeOptions probe;
    StormOptions storm;
};

void AddCommon(CLI::App &command, CommandLine &line)
{
    command.add_flag("--json", line.json,
                     "Print one JSON object on stdout; human-readable text goes to stderr");
    command.add_option("--module", line.modulePath, "DLL to load")->required();
}

void AddProbe(CLI::App &command, MicrophoneProbeOptions &probe)
{
    command
        .add_option("--sequence", probe.sequence,
                    "Make this sequence of microphone calls instead of the calls with invalid arguments")
        ->check(CLI::IsMember(
            {sequenceOpenTwice, sequenceCloseWhileReading, sequenceCycles, sequenceUnloadWhileOpen}));
    command.add_option("--count", probe.count, "Number of cycles of opening, reading and closing")
        ->check(CLI::Range(1U, 1000000U))
        ->capture_default_str();
    command.add_option("--hold", probe.hold, "Wait for this many seconds after the sequence")
        ->check(CLI::NonNegativeNumber);
}

void AddStorm(CLI::App &command, StormOptions &storm)
{
    command.add_option("FILE", storm.file, "AAC file whose frames are sent, some of them damaged")
        ->required();
    command.add_option("--seconds", storm.seconds, "Length of a storm")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option("--loads", storm.loads,
                    "Number of load/storm/unload cycles; above 1, the last one waits for the unload")
        ->check(CLI::Range(1U, 1000000U))
        ->capture_default_str();
    command.add_option("--seed", storm.seed, "Each thread makes the same calls for the same seed")
        ->capture_default_str();
    command
        .add_option("--unload-wait", storm.end.unloadWait, "Wait at most this many seconds for the unload")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option("--exit-after", storm.end.exitAfter,
                    "End the process during the storm, after this many seconds")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--exit-code", storm.end.exitCode, "Exit code of --exit-after");
}

int Run(const CommandLine &line, const Output &output)
{
    if (line.isStorm) {
        const Interruption interruption;
        return StormCommand(line.storm, output, interruption).Run(line.modulePath);
    }
    Module module(line.modulePath);
    return line.probe.sequence.empty() ? ProbeArguments(module, output)
                                       : ProbeMicrophone(module, line.probe, output);
}

// Empty if help or an error was printed; `exitCode` is set then.
std::optional<CommandLine> ReadCommandLine(int &exitCode)
{
    CommandLine line;
    CLI::App app{"Makes calls of LibVeltoAudioHandler that no correct host makes.", "velto-test-host"};
    app.require_subcommand(1);
    app.allow_windows_style_options(false);
    app.footer(exitCodeHelp);
    CLI::App &probe = *app.add_subcommand("probe", "Call every slot with invalid arguments");
    AddProbe(probe, line.probe);
    AddCommon(probe, line);
    CLI::App &storm = *app.add_subcommand(
        "storm", "Make random calls from many threads at the same time, and count the results");
    AddStorm(storm, line.storm);
    AddCommon(storm, line);
    std::vector<std::string> arguments = CommandLineArguments();
    std::reverse(arguments.begin(), arguments.end()); // CLI11 expects the last argument first
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError &error) {
        exitCode = app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
        return std::nullopt;
    }
    line.isStorm = storm.parsed();
    return line;
}

int RunProgram()
{
    int exitCode = EXIT_OK;
    const std::optional<CommandLine> line = ReadCommandLine(exitCode);
    if (!line) {
        return exitCode;
    }
    const Output output("velto-test-host", line->json);
    try {
        return Run(*line, output);
    } catch (...) {
        return output.FailWithCaught();
    }
}

} // namespace

int main()
{
    av_log_set_level(AV_LOG_QUIET); // also silences the module, which uses the same FFmpeg DLLs
    try {
        return RunProgram();
    } catch (const std::exception &error) {
        std::fputs(error.what(), stderr);
        return EXIT_FAILED;
    }
}
