#include "check/check_command_line.h"

#include <CLI/CLI.hpp>

#include "check/listen_checks.h"
#include "check/microphone_command.h"

namespace velto::check {
namespace {

constexpr char hidden[] = ""; // CLI11 does not show commands of this group

// Without the description that CLI11 would add to the help.
CLI::Validator Silent(CLI::Validator validator)
{
    return validator.description("");
}

void AddReports(CLI::App &command, CheckOptions &options)
{
    command.add_option("--report-json", options.jsonFile, "Write the report as JSON to this file")
        ->type_name("FILE");
    command.add_option("--report-junit", options.junitFile, "Write the report as JUnit XML to this file")
        ->type_name("FILE");
    command.add_option("--report-html", options.htmlFile, "Write the report as a page to this file")
        ->type_name("FILE");
    command.add_flag("--names", options.withNames, "Include the names of the endpoints in the reports");
    command
        .add_option("--verify", options.verifyReport,
                    "Run nothing: say whether this JSON report belongs to the module's bytes, and has passed")
        ->type_name("REPORT");
}

} // namespace

void AddCheckCommand(CLI::App &command, CheckOptions &options)
{
    command
        .add_option(
            "--level", options.level,
            "Make all checks up to this level, 1 to 10 (default: 5). 1 entry, 2 capabilities, 3 arguments, "
            "4 parameters, listener, ownership and hygiene, 5 speaker, 6 microphone, 7 lifecycle and heard "
            "sound, 8 storms and load cycles, 9 idle release and device changes, 10 random calls")
        ->check(Silent(CLI::Range(1, highestLevel)))
        ->type_name("N");
    command
        .add_option("--seed", options.seed, "Of the random inputs: a seed gives the same inputs in each run")
        ->type_name("N")
        ->capture_default_str();
    command
        .add_option(
            "--only", options.only,
            "Make only the checks of this clause (ENT-1), of this name or of this group (arguments.), "
            "of all levels")
        ->type_name("CLAUSE|CHECK");
    command.add_flag("--listen", options.listen,
                     "At any level, also play a watermark and examine what the loudspeaker plays");
    command.add_flag(
        "--speak", options.speak,
        "Also play through the loudspeaker and expect this sound from the microphone: in a quiet room");
    AddReports(command, options);
    command.add_option("--jobs", options.jobs, "Make so many checks of levels 1 to 4 at the same time")
        ->check(Silent(CLI::Range(1, 64)))
        ->type_name("N")
        ->capture_default_str();
    command.add_flag("--list", options.list, "Run nothing: list the checks with their levels and clauses");
    command.add_option("--minutes", options.minutes, "Time for each check of level 10")
        ->check(Silent(CLI::Range(0.0, 10000.0)))
        ->type_name("MINUTES")
        ->capture_default_str();
    command.add_option("--dumps", options.dumpsFolder, "Write a minidump of each crash to this folder")
        ->type_name("FOLDER");
}

void AddCheckProcessCommand(CLI::App &command, CheckProcessOptions &options)
{
    command.group(hidden);
    command.add_option("--name", options.name, "Check to make")->required();
    command.add_option("--seed", options.seed, "Seed of the run");
    command.add_option("--module", options.modulePath, "DLL to load")->required();
    command.add_option("--journal", options.journal, "File for the events")->required();
    command.add_option("--work-folder", options.workFolder, "Empty folder");
    command.add_option("--minutes", options.minutes, "Time for a check of level 10");
    command.add_option("--dump", options.dumpFile, "File for a minidump");
    command.add_option("--ending", options.ending, "Event to set when the verdict is written");
}

void AddEndProcessCommand(CLI::App &command, EndProcessOptions &options)
{
    command.group(hidden);
    command.add_option("--module", options.modulePath, "DLL to load")->required();
    command.add_option("--journal", options.journal, "File for the events")->required();
    command.add_option("--how", options.how, "What runs when the process ends")->required();
    command.add_option("--exit-code", options.exitCode, "Exit code of the process")->required();
}

void AddHeardCommand(CLI::App &command, HeardOptions &options)
{
    options.frames = framesOfListening;
    command.group(hidden);
    command
        .add_option("FILE", options.file,
                    "Recording of the watermark: interleaved 32-bit float samples, little-endian, no header")
        ->required();
    command.add_option("--rate", options.rateHz, "Of the recording, in Hz")->check(CLI::PositiveNumber);
    command.add_option("--channels", options.channels, "Of the recording")->check(CLI::PositiveNumber);
    command.add_option("--frames", options.frames, "Number of frames that were played");
    command.add_flag_callback(
        "--json", [] {}, "The output is always JSON");
}

void AddStormCommand(CLI::App &command, StormOptions &options)
{
    command.group(hidden);
    command.add_option("--seconds", options.seconds, "Length of a storm")->check(CLI::NonNegativeNumber);
    command
        .add_option(
            "--packet-wait", options.packetWait,
            "Continue a storm in which no packet was read until the first one, at most this many seconds")
        ->check(CLI::NonNegativeNumber);
    command
        .add_option("--loads", options.loads,
                    "Number of load/storm/unload cycles; above 1, the last one waits for the unload")
        ->check(CLI::Range(1U, 1000000U));
    command.add_option("--seed", options.seed, "Each thread makes the same calls for the same seed");
    command
        .add_option("--unload-wait", options.end.unloadWait, "Wait at most this many seconds for the unload")
        ->check(CLI::NonNegativeNumber);
    command
        .add_option("--exit-after", options.end.exitAfter,
                    "End the process during the storm, after this many seconds")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--exit-code", options.end.exitCode, "Exit code of --exit-after");
}

void AddMicrophoneCommand(CLI::App &command, MicrophoneOptions &options)
{
    command.group(hidden);
    command.add_option("--sequence", options.sequence, "Calls to make")
        ->required()
        ->check(CLI::IsMember(
            {sequenceOpenTwice, sequenceCloseWhileReading, sequenceCycles, sequenceUnloadWhileOpen}));
    command.add_option("--count", options.count, "Number of cycles of opening, reading and closing")
        ->check(CLI::Range(1U, 1000000U));
    command.add_option("--hold", options.hold, "Wait for this many seconds after the sequence")
        ->check(CLI::NonNegativeNumber);
}

} // namespace velto::check
