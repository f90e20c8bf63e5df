// The environment of checks in velto-host: guarded pages, real time, the default audio endpoints.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

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
    // on a thread of its own, so that the caller's apartment does not matter.
    bool HasLoudspeaker() const override;
    bool HasMicrophone() const override;

    bool Enter(ComApartment apartment) override;
    void Leave() override;
};

} // namespace velto::check
