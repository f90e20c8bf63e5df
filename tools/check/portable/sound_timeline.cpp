#include "check/portable/sound_timeline.h"

#include <algorithm>

namespace velto::check {
namespace {

constexpr uint64_t second100ns = 10'000'000;
constexpr uint64_t surelyLate100ns = 100'000; // 10 ms: a packet's time is exact to a few milliseconds
constexpr uint64_t longestGapSeconds = 60;    // more is a wrong time or position

} // namespace

// Devices count their frames on during silence, or do not: then only the time shows it. The time counts where
// the device reports a discontinuity, because it is less exact than the position.
uint64_t SoundTimeline::FramesBefore(const Packet &packet) const
{
    uint64_t frames = packet.position > m_nextPosition ? packet.position - m_nextPosition : 0;
    if (packet.isDiscontinuous && packet.time100ns > m_nextTime + surelyLate100ns) {
        frames = std::max(frames, (packet.time100ns - m_nextTime) * m_rateHz / second100ns);
    }
    return frames <= longestGapSeconds * m_rateHz ? frames : 0;
}

void SoundTimeline::Add(const Packet &packet)
{
    if (m_isEmpty) {
        m_isEmpty = false;
        m_beganAt = packet.time100ns;
    } else {
        m_samples.resize(m_samples.size() + FramesBefore(packet) * m_channels);
    }
    const size_t count = size_t{packet.frames} * m_channels;
    if (packet.samples != nullptr) {
        m_samples.insert(m_samples.end(), packet.samples, packet.samples + count);
    } else {
        m_samples.resize(m_samples.size() + count);
    }
    m_nextPosition = packet.position + packet.frames;
    m_nextTime = packet.time100ns + packet.frames * second100ns / m_rateHz;
}

} // namespace velto::check
