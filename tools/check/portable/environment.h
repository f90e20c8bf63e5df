// What a check needs from the system: the same checks run in velto-host under Windows and, on Linux, on the
// fakes of the unit tests, where time is simulated.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "check/portable/caller_state.h"
#include "velto/audio_handler.h"

namespace velto::check {

// Memory that ends directly before an inaccessible page.
class GuardedMemory {
public:
    virtual ~GuardedMemory() = default;
    virtual uint8_t *Data() = 0; // Data()[bytes] faults
    virtual void AllowWriting(bool allow) = 0;
    virtual void AllowAccess(bool allow) = 0; // false: every access faults
};

class Environment {
public:
    virtual ~Environment() = default;

    virtual std::unique_ptr<GuardedMemory> Guarded(size_t bytes) = 0; // bytes > 0
    virtual std::unique_ptr<CallerState> MakeCallerState() = 0;

    virtual void Sleep(std::chrono::milliseconds time) = 0;
    virtual std::chrono::steady_clock::time_point Now() const = 0;

    // Whether this environment has a loudspeaker or a microphone that works.
    virtual bool HasLoudspeaker() const = 0;
    virtual bool HasMicrophone() const = 0;
};

} // namespace velto::check
