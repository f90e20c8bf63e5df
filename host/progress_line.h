// The status line of a play: time, frames, level. Rewritten in place on a console, and one line a
// second elsewhere. One thread.
#pragma once

#include <chrono>

#include "host/track_sender.h"

namespace velto::host {

class ProgressLine {
public:
    using Clock = std::chrono::steady_clock;

    // `always`: also when nobody watches stderr.
    explicit ProgressLine(bool always);
    // Leaves the line complete.
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void Show(const TrackSender &track);

private:
    const bool m_inPlace;
    const bool m_shown;
    Clock::time_point m_next{};
    double m_peakDb = silenceDb; // since the last line
    bool m_open = false;
};

} // namespace velto::host
