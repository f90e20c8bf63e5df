// Computes when each unit of a stream is due. Deadlines count from the start of the stream, so that errors
// of single waits do not add up. A sender that fell behind catches up by a few units only; the schedule then
// moves by the rest of the delay. Portable; the caller passes the time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace velto::host {

class Pacer {
public:
    using Clock = std::chrono::steady_clock;

    // At most `mostUnitsAtOnce` units are sent at once to catch up.
    Pacer(std::chrono::nanoseconds unitTime, int mostUnitsAtOnce);

    // Due time of the next unit, the same until Advance(). The first unit is due at once.
    Clock::time_point Due(Clock::time_point now);

    // The unit was sent or skipped: the next one is due `unitTime` later.
    void Advance();

    // Makes the next unit due at once, after a deliberate pause.
    void Restart() { m_due.reset(); }

    // How often the schedule was moved.
    uint64_t Slips() const { return m_slips; }

private:
    std::chrono::nanoseconds m_unitTime;
    std::chrono::nanoseconds m_mostLate;
    std::optional<Clock::time_point> m_due;
    uint64_t m_slips = 0;
};

} // namespace velto::host
