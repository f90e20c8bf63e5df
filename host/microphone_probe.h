// velto-host probe --sequence: orders of the microphone's calls that a well-made host does not use.
//
// The calling thread never enters COM.
#pragma once

#include <cstdint>
#include <string>

#include "host/exit_code.h"
#include "host/module.h"
#include "host/output.h"

namespace velto::host {

struct MicrophoneProbeOptions {
    std::string sequence; // one of the names below; empty: the probe is another one
    uint32_t count = 200; // of cycles
    double hold = 0;      // seconds to stay when all is done, to be looked at
};

inline constexpr char sequenceOpenTwice[] = "open-twice";
inline constexpr char sequenceCloseWhileReading[] = "close-while-reading";
inline constexpr char sequenceCycles[] = "cycles";
inline constexpr char sequenceUnloadWhileOpen[] = "unload-while-open";

// Takes the module over, because one of the sequences frees it.
ExitCode ProbeMicrophone(Module module, const MicrophoneProbeOptions &options, const Output &output);

} // namespace velto::host
