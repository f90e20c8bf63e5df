// Parses the command line of velto-host.
#pragma once

#include <string>
#include <vector>

#include "check/check_options.h"
#include "velto-host/options.h"

namespace velto::host {

struct CommandLine {
    enum class Command {
        NONE,
        CAPABILITIES,
        PLAY,
        RECORD,
        DUPLEX,
        DEVICES,
        LOG,
        REPORT,
        CHECK,
        CHECK_ONE,   // hidden: a child of CHECK
        CHECK_END,   // hidden: a child of CHECK_ONE
        CHECK_HEARD, // hidden, as the next ones: for tests
        CHECK_STORM,
        CHECK_MICROPHONE,
    };

    Command command = Command::NONE; // NONE: help, version or an error was printed; exit with exitCode
    int exitCode = 0;
    bool json = false;
    std::string schema;     // the $id of the schema of the command's JSON output
    std::string modulePath; // empty: in the program's folder
    CrashOptions crash;
    PlayOptions play;
    RecordOptions record;
    DuplexOptions duplex;
    LogOptions log;
    ReportOptions report;
    check::CheckOptions checks;
    check::CheckProcessOptions checkProcess;
    check::EndProcessOptions endProcess;
    check::HeardOptions heard;
    check::StormOptions storm;
    check::MicrophoneOptions microphone;
};

// Prints help, the version and errors of the command line; the command is then NONE.
CommandLine ReadCommandLine(std::vector<std::string> arguments);

} // namespace velto::host
