#include "velto-host/portable/pacer.h"

namespace velto::host {

// A burst of n frames is the frame due now and n - 1 late ones.
Pacer::Pacer(std::chrono::nanoseconds frameTime, int mostFramesAtOnce)
    : m_frameTime(frameTime), m_mostLate(frameTime * (mostFramesAtOnce - 1))
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
        *m_due += m_frameTime;
    }
}

} // namespace velto::host
