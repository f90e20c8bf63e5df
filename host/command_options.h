// The options of velto-host's commands: their names, their ranges, and where they go.
#pragma once

#include <CLI/CLI.hpp>

#include "host/duplex_options.h"
#include "host/microphone_probe.h"
#include "host/play_options.h"
#include "host/record_options.h"
#include "host/storm_options.h"

namespace velto::host {

// `command` and the options that it writes to outlive the parsing.
void AddPlay(CLI::App &command, PlayOptions &play);
void AddPlayDiagnostics(CLI::App &command, PlayOptions &play);
void AddRecord(CLI::App &command, RecordOptions &record);
void AddDuplex(CLI::App &command, DuplexOptions &duplex);
void AddSequence(CLI::App &command, MicrophoneProbeOptions &probe);
void AddStorm(CLI::App &command, StormOptions &storm);

} // namespace velto::host
