#include "host/command_options.h"

#include <charconv>
#include <map>

namespace velto::host {
namespace {

constexpr char diagnostics[] = "Diagnostics";

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

void AddUnloadWait(CLI::App &command, EndOptions &end)
{
    command.add_option("--unload-wait", end.unloadWait, "Watch the freed DLL go for so many seconds at most")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str()
        ->group(diagnostics);
}

void AddExit(CLI::App &command, EndOptions &end)
{
    command
        .add_option("--exit-after", end.exitAfter,
                    "End the process after so many seconds, while the module works ...")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
    command.add_option("--exit-code", end.exitCode, "... with this exit code")->group(diagnostics);
}

void AddEnd(CLI::App &command, EndOptions &end)
{
    command
        .add_option("--unload-after", end.unloadAfter,
                    "Free the DLL after so many seconds, while it works, and watch it go")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
    AddUnloadWait(command, end);
    AddExit(command, end);
}

void AddPaceRate(CLI::App &command, PlayOptions &play)
{
    command.add_option("--pace-rate", play.paceRateHz, "Send as fast as if the stream had this rate in Hz")
        ->check(CLI::Range(1000.0, 1000000.0))
        ->group(diagnostics);
}

void AddPacketTimes(CLI::App &command, RecordOptions &record)
{
    command
        .add_flag("--packet-times", record.packetTimes,
                  "Report the time of day at which each packet came, in s")
        ->group(diagnostics);
}

} // namespace

void AddPlay(CLI::App &command, PlayOptions &play)
{
    command.add_option("FILE", play.files, "ADTS (.aac) or MP4 (.m4a, .mp4) file; several play in turn")
        ->required();
    command.add_option("--gap", play.gap, "Send nothing for so many seconds between two files")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command.add_option("--device", play.device, "Which speaker of the module gets the frames")
        ->check(CLI::IsMember({VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}))
        ->capture_default_str();
    command.add_option("--stream-type", play.streamType, "Stream type in each frame's header")
        ->capture_default_str();
    command.add_flag("--loop", play.loop, "Begin again at the end of the file");
    command.add_option("--seconds", play.seconds, "End after so many seconds of each file")
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--progress", play.showProgress,
                     "Show the progress line when stderr is no console, too");
}

void AddPlayDiagnostics(CLI::App &command, PlayOptions &play)
{
    command
        .add_option("--also-modem", play.modemFile,
                    "Send FILE2 to " VELTO_ID_MODEM_SPEAKER " at the same time")
        ->type_name("FILE2")
        ->group(diagnostics);
    AddPaceRate(command, play);
    command
        .add_option("--framing", play.framing,
                    "Send raw units or ADTS frames; auto: raw at 48000 Hz, else ADTS")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Framing>{
            {"auto", Framing::AUTO}, {"raw", Framing::RAW}, {"adts", Framing::ADTS}}))
        ->type_name("auto|raw|adts")
        ->group(diagnostics);
    command.add_flag("--send-damaged", play.sendDamaged, "Send frames that cannot be decoded, too")
        ->group(diagnostics);
    CLI::Option *set = command.add_option_function<std::vector<std::string>>(
        "--set-parameters",
        [&play](const std::vector<std::string> &texts) {
            play.parameters.clear();
            for (const std::string &text : texts) {
                play.parameters.push_back(ReadParameter(text));
            }
        },
        "What SetAudioParameter gets at the start of each stream (default: "
        "sampleRate=48000,channel=3,format=1)");
    set->delimiter(',')->type_name("KEY=N,...")->group(diagnostics);
    command
        .add_flag_callback(
            "--no-set-parameters", [&play] { play.parameters.clear(); },
            "Leave SetAudioParameter out: a stream behind the first one has no cushion then")
        ->excludes(set)
        ->group(diagnostics);
    command
        .add_flag("!--no-silent-end", play.endsWithSilence,
                  "Do not end each stream with silent units: its end may stay in the module then")
        ->group(diagnostics);
    command.add_flag("--events", play.showEvents, "Print the listener's events as they come")
        ->group(diagnostics);
    command
        .add_option("--pause-after", play.pauseAfter, "Stop sending after so many seconds of the stream ...")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
    command.add_option("--pause", play.pause, "... for so many seconds, then go on")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
    AddEnd(command, play.end);
    command.callback([&play] {
        if (play.files.size() > 1 && !play.modemFile.empty()) {
            throw CLI::ValidationError("--also-modem", "goes with one FILE");
        }
    });
}

void AddRecord(CLI::App &command, RecordOptions &record)
{
    command.add_option("FILE", record.file, "File to write: ADTS (.aac) or MP4 (.m4a, .mp4)")->required();
    command.add_option("--device", record.device, "Which microphone of the module is opened")
        ->check(CLI::IsMember({VELTO_ID_MIC, VELTO_ID_MODEM_MIC}))
        ->capture_default_str();
    command.add_option("--seconds", record.seconds, "End after so many seconds of sound")
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--progress", record.showProgress,
                     "Show the progress line when stderr is no console, too");
    command
        .add_option("--pause-reading-at", record.pauseReadingAt,
                    "Stop reading after so many seconds of sound ...")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
    command.add_option("--pause-reading-for", record.pauseReadingFor, "... for so many seconds, then go on")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
    AddPacketTimes(command, record);
    AddEnd(command, record.end);
}

void AddDuplex(CLI::App &command, DuplexOptions &duplex)
{
    command.add_option("--play", duplex.play.files, "AAC file to play on " VELTO_ID_MODEM_SPEAKER)
        ->required()
        ->expected(1);
    command.add_option("--record", duplex.record.file, "AAC file to write from " VELTO_ID_MODEM_MIC)
        ->required();
    command.add_flag("--loop", duplex.play.loop, "Begin again at the end of the file played");
    command
        .add_option_function<double>(
            "--seconds",
            [&duplex](const double &seconds) { duplex.play.seconds = duplex.record.seconds = seconds; },
            "End after so many seconds of sound; without it, with the file played")
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--progress", duplex.record.showProgress,
                     "Show the recording's progress line when stderr is no console, too");
    AddPaceRate(command, duplex.play);
    AddPacketTimes(command, duplex.record);
    command
        .add_option("--usage-every", duplex.usageEvery,
                    "Tell every so many seconds what the process holds, as a line of JSON")
        ->check(CLI::PositiveNumber)
        ->group(diagnostics);
}

void AddSequence(CLI::App &command, MicrophoneProbeOptions &probe)
{
    command
        .add_option("--sequence", probe.sequence, "Instead: an order of the microphone's calls, carried out")
        ->check(CLI::IsMember(
            {sequenceOpenTwice, sequenceCloseWhileReading, sequenceCycles, sequenceUnloadWhileOpen}))
        ->group(diagnostics);
    command.add_option("--count", probe.count, "How many cycles of opening, reading and closing")
        ->check(CLI::Range(1U, 1000000U))
        ->capture_default_str()
        ->group(diagnostics);
    command.add_option("--hold", probe.hold, "Stay for so many seconds when the sequence is done")
        ->check(CLI::NonNegativeNumber)
        ->group(diagnostics);
}

void AddStorm(CLI::App &command, StormOptions &storm)
{
    command.add_option("FILE", storm.file, "AAC file whose frames are sent, some of them damaged")
        ->required();
    command.add_option("--seconds", storm.seconds, "Length of a storm")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option(
            "--loads", storm.loads,
            "Load, storm and free the module so many times; if more than once, watch it go at the end")
        ->check(CLI::Range(1U, 1000000U))
        ->capture_default_str();
    command.add_option("--seed", storm.seed, "The same seed makes the same calls, each thread for itself")
        ->capture_default_str();
    AddUnloadWait(command, storm.end);
    AddExit(command, storm.end);
}

} // namespace velto::host
