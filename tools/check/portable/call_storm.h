// Makes all calls of the table at once and at random, from eleven threads: two that write to each speaker,
// one each for parameters, closes, capabilities and the listener, one that opens, reads and closes a
// microphone, and two that only read meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <thread>
#include <vector>

#include "check/portable/storm_caller.h"
#include "velto/audio_handler.h"

namespace velto::check {

struct StormPlan {
    uint64_t seed = 1; // each thread makes the same random choices for the same seed
    double pace = 1;   // multiplies all pauses and the length of recordings; 1 suits real devices
    // Without a number, the storm lasts until Stop. In a round, each thread makes about 45 writes, 34 other
    // calls, or one recording.
    std::optional<uint32_t> rounds;
    StormTime time{};
};

// For use by one thread.
class CallStorm {
public:
    // Starts the threads. `units` is not empty. The table and the units outlive this object.
    CallStorm(const AudioHandlerTable &table, const AacUnits &units, const StormPlan &plan);
    // Calls Stop.
    ~CallStorm();
    CallStorm(const CallStorm &) = delete;
    CallStorm &operator=(const CallStorm &) = delete;

    // Adds a thread that disturbs the calls. The pace also applies to its pauses.
    void Disturb(uint32_t stepsPerRound, uint32_t longestPauseMs, std::function<void(Random &)> step);

    // For a plan with rounds: waits until all of them are over, and closes the tracks.
    void Finish();
    // Ends the storm early: waits for the current call of each thread, and closes the tracks.
    void Stop();

    StormFigures Figures() const;

private:
    using Condition = std::function<bool(uint32_t stepsMade)>;
    using Step = std::function<void(StormCaller &)>;

    Condition ForRounds(uint32_t stepsPerRound) const;
    void Start(Condition condition, uint32_t longestPauseMs, Step step);

    const AudioHandlerTable &m_table;
    const AacUnits &m_units;
    const StormPlan m_plan;
    std::atomic<bool> m_stopped{false};
    std::atomic<bool> m_recordingsOver{false};
    uint64_t m_seed;
    std::list<StormCaller> m_callers; // one for each thread, which uses it
    std::vector<std::thread> m_threads;
};

} // namespace velto::check
