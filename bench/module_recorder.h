// The module's capture path without a device: packets of a sound in, AAC packets out.
#pragma once

#include <cstddef>
#include <vector>

#include "capture/audio_capture.h"

namespace velto {

// The one class that sees the capture's members.
class AudioCaptureProbe {
public:
    // Has a capture as it is once its device is open: floats in stereo of that rate come in.
    // Throws std::runtime_error.
    explicit AudioCaptureProbe(uint32_t rateHz);
    ~AudioCaptureProbe();
    AudioCaptureProbe(const AudioCaptureProbe &) = delete;
    AudioCaptureProbe &operator=(const AudioCaptureProbe &) = delete;

    // Has the capture loop take all samples, in packets of so many frames, and reads what comes out.
    // The seconds from the first packet taken to the last one read; the loop's sleep before the
    // first is not counted.
    double Record(const std::vector<float> &samples, uint32_t packetFrames);

    size_t Bytes() const { return m_bytes; } // of all packets read
    int Packets() const { return m_packets; }

private:
    AudioCapture m_capture;
    size_t m_bytes = 0;
    int m_packets = 0;
};

} // namespace velto
