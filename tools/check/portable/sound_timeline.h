// Puts the packets of a recording in their places. A sound system that has nothing to play delivers no
// packets: this silence belongs to the recording, too.
#pragma once

#include <cstdint>
#include <vector>

namespace velto::check {

class SoundTimeline {
public:
    struct Packet {
        uint64_t position;  // of its first frame, counted by the device
        uint64_t time100ns; // when its first frame was recorded, in units of 100 ns
        uint32_t frames;
        bool isDiscontinuous; // the device reports that it does not follow the packet before it
        const float *samples; // interleaved; null: silence
    };

    SoundTimeline(uint32_t rateHz, uint32_t channels) : m_rateHz(rateHz), m_channels(channels) {}

    // Appends the packet, after silence for what is missing before it.
    void Add(const Packet &packet);

    // Interleaved.
    std::vector<float> &Samples() { return m_samples; }
    // Of the first packet; 0 without one.
    uint64_t BeganAt() const { return m_beganAt; }

private:
    uint64_t FramesBefore(const Packet &packet) const;

    const uint32_t m_rateHz;
    const uint32_t m_channels;
    bool m_isEmpty = true;
    uint64_t m_beganAt = 0;
    uint64_t m_nextPosition = 0; // after the last packet
    uint64_t m_nextTime = 0;
    std::vector<float> m_samples;
};

} // namespace velto::check
