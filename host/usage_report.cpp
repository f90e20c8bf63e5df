#include "host/usage_report.h"

#include "host/process_usage.h"

namespace velto::host {

UsageReport::UsageReport(const Output &output, std::chrono::duration<double> period)
    : m_output(output), m_period(period)
{
}

void UsageReport::PrintWhenDue()
{
    const Clock::time_point now = Clock::now();
    if (m_period.count() <= 0 || (m_last && now - *m_last < m_period)) {
        return;
    }
    m_last = now;
    m_output.Say("{}", Describe(MeasureProcess()).dump());
}

} // namespace velto::host
