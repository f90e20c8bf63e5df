#include "velto-host/command_line.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <memory>

#include <CLI/CLI.hpp>

#include "check/check_command_line.h"
#include "velto-host/output.h"
#include "velto-host/version_info.h"

namespace velto::host {
namespace {

// The version of all JSON outputs. It grows when an output loses a member, or a member gets another type or
// meaning; the files in docs/schemas are then changed, too.
constexpr int jsonVersion = 1;

constexpr char diagnostics[] = "Diagnostics"; // the group of the options that only --help-all shows

// Help without the diagnostic options.
class ShortHelp : public CLI::Formatter {
public:
    std::string make_group(std::string group, bool isPositional,
                           std::vector<const CLI::Option *> options) const override
    {
        return group == diagnostics
                   ? ""
                   : CLI::Formatter::make_group(std::move(group), isPositional, std::move(options));
    }
};

// --help leaves the diagnostic options out, --help-all shows them.
class Help : public CLI::Formatter {
public:
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override
    {
        return mode == CLI::AppFormatMode::Normal ? ShortHelp().make_help(app, std::move(name), mode)
                                                  : CLI::Formatter::make_help(app, std::move(name), mode);
    }
};

// For times. CLI::NonNegativeNumber alone would print the largest number in its error.
CLI::Validator NotNegative()
{
    return {[](const std::string &text) {
                return CLI::NonNegativeNumber(text).empty()
                           ? std::string()
                           : "\"" + text + "\" is not a number from 0 upwards";
            },
            ""};
}

// Reads one KEY=N of --set-parameters.
Parameter ReadParameter(const std::string &text)
{
    const size_t equals = text.find('=');
    Parameter parameter{text.substr(0, equals), 0};
    const char *end = text.data() + text.size();
    const char *value = equals == std::string::npos ? end : text.data() + equals + 1;
    const auto read = std::from_chars(value, end, parameter.value);
    if (equals == 0 || value == end || read.ec != std::errc() || read.ptr != end) {
        throw CLI::ValidationError("--set-parameters", "\"" + text + "\" is not of the form key=number");
    }
    return parameter;
}

void AddEnd(CLI::App &command, EndOptions &end)
{
    command
        .add_option("--unload-after", end.unloadAfter,
                    "Free the DLL this long after the start, in mid-stream, and wait until it is unloaded")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->group(diagnostics);
    command.add_option("--unload-wait", end.unloadWait, "Wait at most this long until the DLL is unloaded")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->capture_default_str()
        ->group(diagnostics);
    command
        .add_option("--exit-after", end.exitAfter,
                    "End the process this long after the start, without closing the stream ...")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->group(diagnostics);
    command.add_option("--exit-code", end.exitCode, "... with this exit code")
        ->type_name("N")
        ->capture_default_str()
        ->group(diagnostics);
}

void AddPaceRate(CLI::App &command, PlayOptions &play)
{
    command
        .add_option("--pace-rate", play.paceRateHz,
                    "Send units as fast as a stream of this sampling rate needs them (1000 to 1000000)")
        ->check(CLI::Validator(CLI::Range(1000.0, 1000000.0)).description(""))
        ->type_name("HZ")
        ->group(diagnostics);
}

void AddPacketTimes(CLI::App &command, RecordOptions &record)
{
    command
        .add_flag("--packet-times", record.packetTimes,
                  "Add the arrival time of each packet to the JSON result, in seconds since 1970")
        ->group(diagnostics);
}

void AddSetParameters(CLI::App &command, PlayOptions &play)
{
    CLI::Option *set = command.add_option_function<std::vector<std::string>>(
        "--set-parameters",
        [&play](const std::vector<std::string> &texts) {
            play.parameters.clear();
            std::transform(texts.begin(), texts.end(), std::back_inserter(play.parameters), ReadParameter);
        },
        "Parameters of the SetAudioParameter call at the start of each stream (default: "
        "sampleRate=48000,channel=3,format=1)");
    set->delimiter(',')->type_name("KEY=N,...")->group(diagnostics);
    command
        .add_flag_callback(
            "--no-set-parameters", [&play] { play.parameters.clear(); },
            "Do not call SetAudioParameter: streams after the first one have no cushion")
        ->excludes(set)
        ->group(diagnostics);
}

void AddPlayDiagnostics(CLI::App &command, PlayOptions &play)
{
    command
        .add_option("--also-modem", play.modemFile,
                    "Also send FILE2 to " VELTO_ID_MODEM_SPEAKER ", at the same time as the one FILE")
        ->type_name("FILE2")
        ->group(diagnostics);
    AddPaceRate(command, play);
    command
        .add_option("--framing", play.framing,
                    "Send raw units, or units with ADTS headers; auto: raw at 48000 Hz, else ADTS")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Framing>{{"auto", Framing::AUTO},
                                                                           {"raw", Framing::RAW},
                                                                           {"adts", Framing::ADTS}})
                        .description(""))
        ->type_name("auto|raw|adts")
        ->group(diagnostics);
    command.add_flag("--send-damaged", play.sendDamaged, "Also send units that cannot be decoded")
        ->group(diagnostics);
    AddSetParameters(command, play);
    command
        .add_flag_callback(
            "--no-silent-end", [&play] { play.endsWithSilence = false; },
            "Send no silent units after each stream: the module may hold back the end of its sound")
        ->group(diagnostics);
    command.add_flag("--events", play.showEvents, "Print each event of the module when it arrives")
        ->group(diagnostics);
    command.add_option("--pause-after", play.pauseAfter, "Stop sending at this time of the first stream ...")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->group(diagnostics);
    command.add_option("--pause", play.pause, "... and continue after this pause")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->group(diagnostics);
    AddEnd(command, play.end);
}

void AddPlay(CLI::App &command, PlayOptions &play)
{
    command
        .add_option("FILE", play.files,
                    "AAC in an ADTS (.aac) or MP4 (.m4a, .mp4) file; several files play in turn")
        ->required()
        ->type_name("");
    command.add_option("--gap", play.gap, "Pause between two files")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->capture_default_str();
    command.add_option("--device", play.device, "Speaker of the module: media or call")
        ->check(CLI::IsMember({VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}))
        ->capture_default_str();
    command
        .add_option("--stream-type", play.streamType,
                    "Number that the module publishes in the registry value StreamType; 3: media")
        ->type_name("N")
        ->capture_default_str();
    command.add_flag("--loop", play.loop, "Repeat the file until --seconds have been sent, or until Ctrl-C");
    command.add_option("--seconds", play.seconds, "Play only this much of each file")
        ->check(NotNegative())
        ->type_name("SECONDS");
    command.add_flag("--progress", play.showProgress,
                     "Show the progress line even if stderr is not a console");
    AddPlayDiagnostics(command, play);
    command.callback([&play] {
        if (play.files.size() > 1 && !play.modemFile.empty()) {
            throw CLI::ValidationError("--also-modem", "requires a single FILE");
        }
    });
}

void AddRecord(CLI::App &command, RecordOptions &record)
{
    command.add_option("FILE", record.file, "File to write: ADTS (.aac) or MP4 (.m4a, .mp4)")
        ->required()
        ->type_name("");
    command
        .add_option("--device", record.device, "Microphone of the module; both record the default microphone")
        ->check(CLI::IsMember({VELTO_ID_MIC, VELTO_ID_MODEM_MIC}))
        ->capture_default_str();
    command.add_option("--seconds", record.seconds, "Record this much sound (default: until Ctrl-C)")
        ->check(NotNegative())
        ->type_name("SECONDS");
    command.add_flag("--progress", record.showProgress,
                     "Show the progress line even if stderr is not a console");
    command
        .add_option("--pause-reading-at", record.pauseReadingAt,
                    "Stop reading at this time of the recorded sound ...")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->group(diagnostics);
    command.add_option("--pause-reading-for", record.pauseReadingFor, "... and continue after this pause")
        ->check(NotNegative())
        ->type_name("SECONDS")
        ->group(diagnostics);
    AddPacketTimes(command, record);
    AddEnd(command, record.end);
}

void AddDuplex(CLI::App &command, DuplexOptions &duplex)
{
    command.add_option("--play", duplex.play.files, "AAC file to play on " VELTO_ID_MODEM_SPEAKER)
        ->required()
        ->expected(1)
        ->type_name("FILE");
    command.add_option("--record", duplex.record.file, "AAC file to write from " VELTO_ID_MODEM_MIC)
        ->required()
        ->type_name("FILE");
    command.add_flag("--loop", duplex.play.loop,
                     "Repeat the file to play until --seconds have been sent, or until Ctrl-C");
    command
        .add_option_function<double>(
            "--seconds",
            [&duplex](const double &seconds) { duplex.play.seconds = duplex.record.seconds = seconds; },
            "Play and record this much sound (default: until the file has been played)")
        ->check(NotNegative())
        ->type_name("SECONDS");
    command.add_flag("--progress", duplex.record.showProgress,
                     "Show the recording's progress line even if stderr is not a console");
    AddPaceRate(command, duplex.play);
    AddPacketTimes(command, duplex.record);
    command
        .add_option("--usage-every", duplex.usageEvery,
                    "Print the handles, threads and memory of this process as JSON, with this period")
        ->check(CLI::Validator(CLI::PositiveNumber).description(""))
        ->type_name("SECONDS")
        ->group(diagnostics);
}

void AddLog(CLI::App &command, LogOptions &log)
{
    command
        .add_option(
            "FILE", log.files,
            "Log files of the module, read in this order (default: the module's log on this PC, with its "
            "older files)")
        ->type_name("");
    command.add_option("--html", log.htmlFile, "Also write a page with a plot to this file")
        ->type_name("FILE");
    command.add_flag("--all", log.showAll, "Print the whole time line, not only its first 200 entries");
    command.add_flag("--progress", log.showProgress,
                     "Show the progress line even if stderr is not a console");
}

void AddReport(CLI::App &command, ReportOptions &report)
{
    command.add_option("FILE", report.file, "ZIP file to write")->required()->type_name("");
    command.add_flag("--with-names", report.withNames, "Include the names and ids of the endpoints");
}

void AddCommon(CLI::App &command, CommandLine &line, bool usesModule)
{
    command.add_flag("--json", line.json,
                     "Print one JSON object on stdout; human-readable text goes to stderr");
    if (usesModule) {
        command
            .add_option("--module", line.modulePath,
                        "DLL to load (default: LibVeltoAudioHandler.dll in this program's folder)")
            ->type_name("FILE");
        command
            .add_option("--crash-dump", line.crash.dumpFile,
                        "If this program crashes, write a minidump to this file")
            ->type_name("FILE")
            ->group(diagnostics);
    }
    command.footer(exitCodeHelp);
}

} // namespace

CommandLine ReadCommandLine(std::vector<std::string> arguments)
{
    using Command = CommandLine::Command;
    CommandLine line;
    CLI::App app{
        "Plays and records AAC files through LibVeltoAudioHandler, as a host process does, and checks it.",
        "velto-host"};
    app.formatter(std::make_shared<Help>());
    app.set_version_flag("--version", [] { return VersionText(); });
    app.set_help_all_flag("--help-all", "Print help with all commands, and with the diagnostic options");
    app.require_subcommand(1);
    app.allow_windows_style_options(false); // "/name" is a path, not an option; the commands inherit this
    app.footer(exitCodeHelp);
    const auto addCommand = [&](const char *name, Command command, const char *description) {
        CLI::App *added = app.add_subcommand(name, description);
        added->preparse_callback([&line, command](size_t) { line.command = command; });
        AddCommon(*added, line, command != Command::DEVICES && command != Command::LOG);
        return added;
    };
    addCommand("capabilities", Command::CAPABILITIES,
               "List the devices that the module offers, with profiles and codecs");
    CLI::App *play = addCommand("play", Command::PLAY, "Play an AAC file through the module");
    AddPlay(*play, line.play);
    play->add_flag("--crash-in-listener", line.crash.crashInListener,
                   "Crash in the first event of the module, to try crash dumps")
        ->group(diagnostics);
    AddRecord(*addCommand("record", Command::RECORD, "Record the microphone through the module"),
              line.record);
    AddDuplex(*addCommand("duplex", Command::DUPLEX, "Play and record at once, as in a call"), line.duplex);
    addCommand("devices", Command::DEVICES, "List the sound endpoints of Windows, and which are default");
    AddLog(
        *addCommand("log", Command::LOG, "Explain the module's log: a time line, counts, and their meaning"),
        line.log);
    AddReport(*addCommand("report", Command::REPORT, "Write a report for support: versions, endpoints, logs"),
              line.report);
    check::AddCheckCommand(*addCommand("check", Command::CHECK, "Check that the module obeys its contract"),
                           line.checks);
    const auto addHidden = [&](const char *name, Command command) {
        CLI::App *added = app.add_subcommand(name);
        added->preparse_callback([&line, command](size_t) { line.command = command; });
        return added;
    };
    check::AddCheckProcessCommand(*addHidden("check-one", Command::CHECK_ONE), line.checkProcess);
    check::AddEndProcessCommand(*addHidden("check-end", Command::CHECK_END), line.endProcess);
    check::AddHeardCommand(*addHidden("check-heard", Command::CHECK_HEARD), line.heard);
    const auto addForTests = [&](const char *name, Command command) {
        CLI::App *added = addHidden(name, command);
        AddCommon(*added, line, true);
        return added;
    };
    check::AddStormCommand(*addForTests("check-storm", Command::CHECK_STORM), line.storm);
    check::AddMicrophoneCommand(*addForTests("check-microphone", Command::CHECK_MICROPHONE), line.microphone);

    std::reverse(arguments.begin(), arguments.end()); // CLI11 wants them last to first
    try {
        app.parse(std::move(arguments));
        // The output of hidden commands has no documented form.
        if (const CLI::App *command = app.get_subcommands().front(); !command->get_group().empty()) {
            line.schema = Format("urn:velto:velto-host-{}:{}", command->get_name(), jsonVersion);
        }
    } catch (const CLI::ParseError &error) {
        line.exitCode = app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
        line.command = Command::NONE;
    }
    return line;
}

} // namespace velto::host
