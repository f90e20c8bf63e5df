// The status line of a stream: time, units, level. On a console the line is rewritten; elsewhere, a new line
// is printed every second. One thread.
#pragma once

#include <chrono>
#include <cstdint>

#include "velto-host/portable/aac_reader.h"

namespace velto::host {

struct StreamProgress {
    double seconds = 0;
    double length = 0; // in seconds; 0: unknown
    uint64_t units = 0;
    const char *unitsName = "units";
    double peakDb = silenceDb; // of the current unit
    uint64_t failures = 0;
    const char *failuresName = "skipped";
};

class ProgressLine {
public:
    using Clock = std::chrono::steady_clock;

    // `always`: show the line even if stderr is no console.
    explicit ProgressLine(bool always);
    // Completes the line.
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void Show(const StreamProgress &progress);
    // Ends the line that is being rewritten, so that the next Show begins a new one.
    void Complete();

private:
    const bool m_inPlace;
    const bool m_shown;
    Clock::time_point m_next{};
    double m_peakDb = silenceDb; // since the last line
    bool m_open = false;
};

} // namespace velto::host
