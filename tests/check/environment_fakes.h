// The environment of checks in the native build: fake endpoints, simulated time, guarded memory.
//
// Time passes in Sleep and in Elapse alone, so that a check's measured times do not depend on the machine.
// The simulated clock of the fakes moves with it. The microphone captures what has become due; the endpoints
// of the loudspeakers play everything at once.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "check/portable/com_apartments.h"
#include "check/portable/environment.h"
#include "tests/fakes/fake_endpoint.h"

namespace velto_test {

// The microphone that has no sound flags each packet as silent.
enum class Endpoints { BOTH, NONE, MICROPHONE_MUTED, MICROPHONE_WITHOUT_SOUND };

// One object at a time. All functions may be called from any thread.
class FakesEnvironment final : public velto::check::Environment, public velto::check::ComApartments {
public:
    // Resets the fakes.
    explicit FakesEnvironment(Endpoints endpoints);
    ~FakesEnvironment() override;
    FakesEnvironment(const FakesEnvironment &) = delete;
    FakesEnvironment &operator=(const FakesEnvironment &) = delete;

    std::unique_ptr<velto::check::GuardedMemory> Guarded(size_t bytes) override;
    std::unique_ptr<velto::check::CallerState> MakeCallerState() override;
    void Sleep(std::chrono::milliseconds time) override { Elapse(time); }
    std::chrono::steady_clock::time_point Now() const override;
    bool HasLoudspeaker() const override { return m_endpoints != Endpoints::NONE; }
    velto::check::MicrophoneState Microphone() const override;

    bool Enter(velto::check::ComApartment apartment) override;
    void Leave() override;

    // Moves the clock, and waits until the microphone's sound of this time was captured. A capture that does
    // not proceed, because its queue is full, ends the wait.
    void Elapse(std::chrono::milliseconds time);

private:
    // Elapse, of a time in which the microphone's buffer does not overflow.
    void Step(std::chrono::milliseconds time);
    // The sound that became due since the calling thread's last packet, 10 ms at a time.
    std::optional<fakes::CapturedPacket> NextPacket();
    bool IsCapturing() const;
    // Whether a capture has asked for sound after `time` and there was none left.
    bool HasCapturedUntil(std::chrono::milliseconds time) const;
    // Whether no capture has asked for sound since a wait that ended without it.
    bool IsStandingStill() const;

    const Endpoints m_endpoints;
    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    mutable std::mutex m_mutex; // guards all members below
    std::chrono::milliseconds m_now{0};
    std::map<std::thread::id, std::chrono::milliseconds> m_captured; // until when, by each capture thread
    std::chrono::milliseconds m_emptyAt{-1}; // the last time at which no sound was left
    uint64_t m_captureCalls = 0;
    std::optional<uint64_t> m_standstillAt; // the number of calls then
};

} // namespace velto_test
