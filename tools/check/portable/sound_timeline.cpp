#include "check/portable/sound_timeline.h"

#include <algorithm>

namespace velto::check {
namespace {

constexpr uint64_t second100ns = 10'000'000;
constexpr uint64_t surelyLate100ns = 100'000; // 10 ms: a packet's time is exact to a few milliseconds
constexpr uint64_t longestGapSeconds = 60;    // more is a wrong time or position

} // namespace

uint64_t SoundTimeline::TimeOf(uint64_t frames) const
{
    return frames * second100ns / m_rateHz;
}

// A jump of the position is exact. Some devices do not count their frames during silence: then only the time
// shows it. The time counts where the device reports a discontinuity, because it is less exact.
uint64_t SoundTimeline::FramesBefore(const Packet &packet) const
{
    const uint64_t longest = longestGapSeconds * m_rateHz;
    uint64_t frames = packet.position > m_nextPosition ? packet.position - m_nextPosition : 0;
    if (frames > longest) {
        frames = 0;
    }
    if (packet.isDiscontinuous && packet.time100ns && m_nextTime &&
        *packet.time100ns >= *m_nextTime + TimeOf(frames) + surelyLate100ns) {
        const uint64_t framesOfTime = (*packet.time100ns - *m_nextTime) * m_rateHz / second100ns;
        frames = framesOfTime <= longest ? framesOfTime : frames;
    }
    return frames;
}

void SoundTimeline::Add(const Packet &packet)
{
    const uint64_t before = m_isEmpty ? 0 : FramesBefore(packet);
    m_isEmpty = false;
    m_samples.resize(m_samples.size() + before * m_channels);
    if (packet.time100ns && !m_beganAt) {
        const uint64_t sinceBegin = TimeOf(m_samples.size() / m_channels);
        m_beganAt = *packet.time100ns - std::min(sinceBegin, *packet.time100ns);
    }
    const size_t count = size_t{packet.frames} * m_channels;
    if (packet.samples != nullptr) {
        m_samples.insert(m_samples.end(), packet.samples, packet.samples + count);
    } else {
        m_samples.resize(m_samples.size() + count);
    }
    m_nextPosition = packet.position + packet.frames;
    if (packet.time100ns) {
        m_nextTime = *packet.time100ns + TimeOf(packet.frames);
    } else if (m_nextTime) {
        *m_nextTime += TimeOf(before + packet.frames);
    }
}

} // namespace velto::check
