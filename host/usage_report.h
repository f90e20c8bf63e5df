// What the process holds, said again and again while it works.
#pragma once

#include <chrono>
#include <optional>

#include "host/output.h"

namespace velto::host {

class UsageReport {
public:
    // A period of 0: never.
    UsageReport(const Output &output, std::chrono::duration<double> period);

    // A line of JSON for people: at once, and then not more often than once a period.
    void PrintWhenDue();

private:
    using Clock = std::chrono::steady_clock;

    const Output &m_output;
    std::chrono::duration<double> m_period;
    std::optional<Clock::time_point> m_last;
};

} // namespace velto::host
