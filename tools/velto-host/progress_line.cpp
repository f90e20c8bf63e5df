#include "velto-host/progress_line.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "velto-host/output.h"

namespace velto::host {
namespace {

constexpr int meterWidth = 20;
constexpr double meterLowestDb = -60.0;

std::string Meter(double peakDb)
{
    const double share = std::clamp(1.0 - peakDb / meterLowestDb, 0.0, 1.0);
    const auto filled = static_cast<size_t>(std::lround(share * meterWidth));
    return std::string(filled, '#') + std::string(meterWidth - filled, '.');
}

std::string Minutes(double seconds)
{
    const auto milliseconds = static_cast<int64_t>(seconds * 1000.0);
    return Format("{:02}:{:02}.{:01}", milliseconds / 60000, milliseconds / 1000 % 60,
                  milliseconds / 100 % 10);
}

} // namespace

ProgressLine::ProgressLine(bool always) : m_inPlace(Output::IsConsole()), m_shown(always || m_inPlace) {}

ProgressLine::~ProgressLine()
{
    Complete();
}

void ProgressLine::Complete()
{
    if (m_open) {
        std::fputc('\n', stderr); // must not throw, because the destructor calls this
        m_open = false;
    }
}

void ProgressLine::Show(const StreamProgress &progress)
{
    m_peakDb = std::max(m_peakDb, progress.peakDb);
    const auto now = Clock::now();
    if (!m_shown || now < m_next) {
        return;
    }
    m_next = now + (m_inPlace ? std::chrono::milliseconds(100) : std::chrono::milliseconds(1000));
    const std::string length = progress.length > 0 ? " of " + Minutes(progress.length) : "";
    const std::string line =
        Format("{}{}{}  {} {}  [{}] {:5.1f} dBFS  {} {}{}", m_inPlace ? "\r" : "", Minutes(progress.seconds),
               length, progress.units, progress.unitsName, Meter(m_peakDb), m_peakDb, progress.failures,
               progress.failuresName, m_inPlace ? "  " : "\n");
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    m_open = m_inPlace;
    m_peakDb = silenceDb;
}

} // namespace velto::host
