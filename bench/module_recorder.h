// The module's capture path without a device: packets of samples in, AAC packets out.
#pragma once

#include <cstddef>
#include <vector>

#include "capture/audio_capture.h"

namespace velto {

// A friend of AudioCapture.
class AudioCaptureProbe {
public:
    // Sets up a capture as if its device were open and delivered stereo floats at `rateHz`. Throws
    // std::runtime_error if the converter, the encoder or the packets cannot be created.
    explicit AudioCaptureProbe(uint32_t rateHz);
    AudioCaptureProbe(const AudioCaptureProbe &) = delete;
    AudioCaptureProbe &operator=(const AudioCaptureProbe &) = delete;

    // Runs the capture loop over all samples, in packets of `packetFrames`, and reads the encoded packets.
    // Returns the seconds from the loop's first packet to the last packet read. The loop's sleep before its
    // first packet does not count.
    double Record(const std::vector<float> &samples, uint32_t packetFrames);

    size_t Bytes() const { return m_bytes; } // of all encoded packets
    int Packets() const { return m_packets; }

private:
    AudioCapture m_capture;
    size_t m_bytes = 0;
    int m_packets = 0;
};

} // namespace velto
