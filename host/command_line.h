// The command line of velto-host, read.
#pragma once

#include <string>
#include <vector>

#include "host/duplex_options.h"
#include "host/microphone_probe.h"
#include "host/play_options.h"
#include "host/record_options.h"
#include "host/storm_options.h"

namespace velto::host {

struct CommandLine {
    enum class Command { NONE, CAPABILITIES, PLAY, RECORD, DUPLEX, DEVICES, PROBE, STORM };

    Command command = Command::NONE; // NONE: it has all been said, end with exitCode
    int exitCode = 0;
    bool json = false;
    std::string modulePath; // empty: beside the program
    PlayOptions play;
    RecordOptions record;
    DuplexOptions duplex;
    MicrophoneProbeOptions microphoneProbe;
    StormOptions storm;
};

// Prints help, version and complaints itself.
CommandLine ReadCommandLine(const std::vector<std::string> &arguments);

} // namespace velto::host
