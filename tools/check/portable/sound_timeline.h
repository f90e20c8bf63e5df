// Puts the packets of a recording in their places. A sound system that has nothing to play delivers no
// packets: this silence belongs to the recording, too.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace velto::check {

class SoundTimeline {
public:
    struct Packet {
        uint64_t position; // of its first frame, counted by the device
        // When its first frame was recorded, in units of 100 ns; none if the device reports the time as
        // wrong.
        std::optional<uint64_t> time100ns;
        uint32_t frames;
        bool isDiscontinuous; // the device reports that it does not follow the packet before it
        const float *samples; // interleaved; null: silence
    };

    SoundTimeline(uint32_t rateHz, uint32_t channels) : m_rateHz(rateHz), m_channels(channels) {}

    // Appends the packet, after silence for what is missing before it.
    void Add(const Packet &packet);

    // Interleaved.
    std::vector<float> &Samples() { return m_samples; }
    // When the first sample was recorded, by the first packet with a time; 0 without one.
    uint64_t BeganAt() const { return m_beganAt.value_or(0); }

private:
    uint64_t FramesBefore(const Packet &packet) const;
    uint64_t TimeOf(uint64_t frames) const;

    const uint32_t m_rateHz;
    const uint32_t m_channels;
    bool m_isEmpty = true;
    std::optional<uint64_t> m_beganAt;
    uint64_t m_nextPosition = 0;        // after the last packet
    std::optional<uint64_t> m_nextTime; // likewise; none before the first packet with a time
    std::vector<float> m_samples;
};

} // namespace velto::check
