#include "velto-host/portable/pacer.h"

namespace velto::host {

// A burst of n units is the unit due now and n - 1 late ones.
Pacer::Pacer(std::chrono::nanoseconds unitTime, int mostUnitsAtOnce)
    : m_unitTime(unitTime), m_mostLate(unitTime * (mostUnitsAtOnce - 1))
{
}

Pacer::Clock::time_point Pacer::Due(Clock::time_point now)
{
    if (!m_due) {
        m_due = now;
    }
    if (now - *m_due > m_mostLate) {
        m_due = now - m_mostLate;
        ++m_slips;
    }
    return *m_due;
}

void Pacer::Advance()
{
    if (m_due) {
        *m_due += m_unitTime;
    }
}

} // namespace velto::host
