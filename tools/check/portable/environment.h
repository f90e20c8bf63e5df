// What a check needs from the system: the same checks run in velto-host under Windows and, on Linux, on the
// fakes of the unit tests, where time is simulated.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

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

// Whether the default microphone can be recorded; if not, the reason.
enum class MicrophoneState {
    WORKS,
    MISSING,     // the system has no microphone
    CANNOT_OPEN, // there is one, and opening or starting it fails
    MUTED,       // its endpoint is muted, so a module delivers no units
    NO_SOUND,    // each of its packets is flagged as silent, or none comes
};

// The reason in words for the report. Empty for a microphone that works.
inline std::string_view MicrophoneProblem(MicrophoneState state)
{
    switch (state) {
    case MicrophoneState::WORKS:
        break;
    case MicrophoneState::MISSING:
        return "this system has no microphone";
    case MicrophoneState::CANNOT_OPEN:
        return "the default microphone cannot be opened: another program may use it exclusively, or the "
               "privacy settings forbid it";
    case MicrophoneState::MUTED:
        return "the default microphone is muted";
    case MicrophoneState::NO_SOUND:
        return "the default microphone delivers no sound";
    }
    return "";
}

class Environment {
public:
    virtual ~Environment() = default;

    virtual std::unique_ptr<GuardedMemory> Guarded(size_t bytes) = 0; // bytes > 0
    virtual std::unique_ptr<CallerState> MakeCallerState() = 0;

    virtual void Sleep(std::chrono::milliseconds time) = 0;
    virtual std::chrono::steady_clock::time_point Now() const = 0;

    // Whether this environment has a loudspeaker that works.
    virtual bool HasLoudspeaker() const = 0;
    // The first call may take seconds if no sound comes.
    virtual MicrophoneState Microphone() const = 0;
    bool HasMicrophone() const { return Microphone() == MicrophoneState::WORKS; }
};

} // namespace velto::check
