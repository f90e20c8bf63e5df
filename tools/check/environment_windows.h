// The environment of checks in velto-host: guarded pages, real time, the default audio endpoints.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>

#include "check/portable/com_apartments.h"
#include "check/portable/environment.h"

namespace velto::check {

// Any thread.
class WindowsEnvironment final : public Environment, public ComApartments {
public:
    // Throws std::bad_alloc without memory.
    std::unique_ptr<GuardedMemory> Guarded(size_t bytes) override;
    // Create it after the module is loaded: it finds the FFmpeg DLLs that are loaded at this moment.
    std::unique_ptr<CallerState> MakeCallerState() override;

    void Sleep(std::chrono::milliseconds time) override;
    std::chrono::steady_clock::time_point Now() const override;

    // Whether the default endpoint of the console role can be opened in shared mode. Opens it for a moment,
    // on a new thread, so that the caller's apartment does not matter.
    bool HasLoudspeaker() const override;
    // Likewise, and records until a packet is not flagged as silent, for five seconds at most. Later calls
    // return the first result.
    MicrophoneState Microphone() const override;

    bool Enter(ComApartment apartment) override;
    void Leave() override;

private:
    mutable std::once_flag m_microphoneProbed;
    mutable MicrophoneState m_microphone = MicrophoneState::MISSING;
};

} // namespace velto::check
