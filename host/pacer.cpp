#include "host/pacer.h"

namespace velto::host {

// The frame that is due now plus those that it is late by: a burst of n frames is n - 1 late.
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
