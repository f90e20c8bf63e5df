// velto-test-host probe --sequence: sequences of the microphone's calls that a correct host does not make.
//
// Makes all calls on threads that have not entered COM.
#pragma once

#include <cstdint>
#include <string>

#include "velto-host/module.h"
#include "velto-host/output.h"

namespace velto_test {

struct MicrophoneProbeOptions {
    std::string sequence; // one of the names below; empty: ProbeArguments runs instead
    uint32_t count = 200; // of cycles
    double hold = 0;      // seconds to wait at the end, so that a test can inspect the process
};

inline constexpr char sequenceOpenTwice[] = "open-twice";
inline constexpr char sequenceCloseWhileReading[] = "close-while-reading";
inline constexpr char sequenceCycles[] = "cycles";
inline constexpr char sequenceUnloadWhileOpen[] = "unload-while-open";

// Runs the sequence. unload-while-open unloads the module.
velto::host::ExitCode ProbeMicrophone(velto::host::Module &module, const MicrophoneProbeOptions &options,
                                      const velto::host::Output &output);

} // namespace velto_test
