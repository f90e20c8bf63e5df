// The options of `velto-host check` on the command line.
#pragma once

#include "check/check_options.h"

namespace CLI {
class App;
}

namespace velto::check {

// Adds the options to the command. The option --module is common to several commands and is not among them.
// All objects outlive the parsing.
void AddCheckCommand(CLI::App &command, CheckOptions &options);

// Add the options of the hidden commands, for the children of `check` and for tests, and hide them from the
// help.
void AddCheckProcessCommand(CLI::App &command, CheckProcessOptions &options);
void AddEndProcessCommand(CLI::App &command, EndProcessOptions &options);
void AddHeardCommand(CLI::App &command, HeardOptions &options);
void AddStormCommand(CLI::App &command, StormOptions &options);
void AddMicrophoneCommand(CLI::App &command, MicrophoneOptions &options);

} // namespace velto::check
