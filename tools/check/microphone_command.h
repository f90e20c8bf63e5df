// velto-host check-microphone: sequences of the microphone's calls during which a test examines the process,
// its streams and the audio server from outside, or changes the default device.
//
// Makes all calls on threads that have not entered COM.
#pragma once

#include "check/check_options.h"
#include "velto-host/module.h"
#include "velto-host/output.h"

namespace velto::check {

inline constexpr char sequenceOpenTwice[] = "open-twice";
inline constexpr char sequenceCloseWhileReading[] = "close-while-reading";
inline constexpr char sequenceCycles[] = "cycles";
inline constexpr char sequenceUnloadWhileOpen[] = "unload-while-open";

// Makes the calls of one of these sequences. unload-while-open unloads the module.
host::ExitCode RunMicrophoneCommand(host::Module &module, const MicrophoneOptions &options,
                                    const host::Output &output);

} // namespace velto::check
