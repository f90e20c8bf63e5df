#include "host/command_line.h"

#include <CLI/CLI.hpp>

#include "host/command_options.h"
#include "host/exit_code.h"

namespace velto::host {
namespace {

void AddCommon(CLI::App &command, CommandLine &line, bool usesModule)
{
    command.add_flag("--json", line.json, "Print one JSON object on stdout; text for people goes to stderr");
    if (usesModule) {
        command.add_option("--module", line.modulePath,
                           "The DLL to load (default: LibVeltoAudioHandler.dll beside this program)");
    }
}

} // namespace

CommandLine ReadCommandLine(const std::vector<std::string> &arguments)
{
    CommandLine line;
    CLI::App app{"Drives LibVeltoAudioHandler as the VELTO platform's host process does.", "velto-host"};
    app.set_version_flag("--version", "velto-host " VELTO_VERSION);
    app.require_subcommand(1);
    app.allow_windows_style_options(false); // "/name" is a path, not an option; handed down to the commands
    app.footer(exitCodeHelp);

    CLI::App &capabilities =
        *app.add_subcommand("capabilities", "Devices, profiles and codecs of the module");
    AddCommon(capabilities, line, true);
    CLI::App &play = *app.add_subcommand("play", "Play an AAC file through the module");
    AddPlay(play, line.play);
    AddCommon(play, line, true);
    AddPlayDiagnostics(play, line.play);
    play.footer(exitCodeHelp);
    CLI::App &record = *app.add_subcommand("record", "Record the microphone through the module");
    AddRecord(record, line.record);
    AddCommon(record, line, true);
    record.footer(exitCodeHelp);
    CLI::App &duplex = *app.add_subcommand("duplex", "Play and record at once, as in a call");
    AddDuplex(duplex, line.duplex);
    AddCommon(duplex, line, true);
    duplex.footer(exitCodeHelp);
    CLI::App &devices =
        *app.add_subcommand("devices", "The sound endpoints of Windows and which are default");
    AddCommon(devices, line, false);
    CLI::App &probe =
        *app.add_subcommand("probe", "Call every slot with invalid arguments and print the results");
    AddSequence(probe, line.microphoneProbe);
    AddCommon(probe, line, true);

    CLI::App &storm =
        *app.add_subcommand("storm", "Make all calls at once, at random, and count what they return");
    AddStorm(storm, line.storm);
    AddCommon(storm, line, true);
    storm.footer(exitCodeHelp);

    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    if (!reversed.empty()) {
        reversed.pop_back(); // the program's own name
    }
    try {
        app.parse(std::move(reversed));
    } catch (const CLI::ParseError &error) {
        line.exitCode = app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
        return line;
    }
    using Command = CommandLine::Command;
    line.command = capabilities.parsed() ? Command::CAPABILITIES
                   : play.parsed()       ? Command::PLAY
                   : record.parsed()     ? Command::RECORD
                   : duplex.parsed()     ? Command::DUPLEX
                   : devices.parsed()    ? Command::DEVICES
                   : storm.parsed()      ? Command::STORM
                                         : Command::PROBE;
    return line;
}

} // namespace velto::host
