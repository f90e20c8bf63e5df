// When each frame of a stream is due. Deadlines are absolute, so that the error of one wait does not
// add up over a file. A sender that fell behind catches up, but by a few frames only: what it is
// later than that is forgotten, and the stream goes on from there. Portable; times are handed in.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace velto::host {

class Pacer {
public:
    using Clock = std::chrono::steady_clock;

    // At most this many frames, of this length each, are sent at once to catch up.
    Pacer(std::chrono::nanoseconds frameTime, int mostFramesAtOnce);

    // Due time of the next frame, until Advance() moves it on. The first frame is due at once.
    Clock::time_point Due(Clock::time_point now);

    // The next frame was sent, or is left out: the one behind it is due a frame time later.
    void Advance();

    // The next frame is due at once: after a pause on purpose.
    void Restart() { m_due.reset(); }

    // How often lateness was forgotten.
    uint64_t Slips() const { return m_slips; }

private:
    std::chrono::nanoseconds m_frameTime;
    std::chrono::nanoseconds m_mostLate;
    std::optional<Clock::time_point> m_due;
    uint64_t m_slips = 0;
};

} // namespace velto::host
