// The status line of a stream: time, frames, level. Rewritten in place on a console, and one line a
// second elsewhere. One thread.
#pragma once

#include <chrono>
#include <cstdint>

#include "host/level_meter.h"

namespace velto::host {

// How far a stream has come.
struct StreamProgress {
    double seconds = 0;
    double length = 0; // in seconds; 0: not known
    uint64_t units = 0;
    const char *unitsName = "frames";
    double peakDb = silenceDb; // of the unit at hand
    uint64_t failures = 0;
    const char *failuresName = "skipped";
};

class ProgressLine {
public:
    using Clock = std::chrono::steady_clock;

    // `always`: also when nobody watches stderr.
    explicit ProgressLine(bool always);
    // Leaves the line complete.
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void Show(const StreamProgress &progress);
    // Ends the line that is being rewritten; a later Show begins a new one.
    void Complete();

private:
    const bool m_inPlace;
    const bool m_shown;
    Clock::time_point m_next{};
    double m_peakDb = silenceDb; // since the last line
    bool m_open = false;
};

} // namespace velto::host
