// Records what the default loudspeaker plays, without a cable: the loopback mode of WASAPI.
//
// Windows copies the mix of all programs, after their volumes, into the recording; whether the volume of the
// endpoint is part of it depends on the hardware. While nothing plays, Windows delivers no packets; this
// class fills in silence. Microsoft documents the mode on its page "Loopback Recording" and the packets at
// "IAudioCaptureClient::GetBuffer".
#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <stdexcept>
#include <vector>

namespace velto::check {

// Loopback recording is not possible here; the text is the reason. Wine 10 has the loopback mode, Wine 8 not.
class LoopbackError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct LoopbackRecording {
    uint32_t rateHz = 0;
    uint32_t channels = 0;
    std::vector<float> interleaved;
    // The performance counter at the first sample, in units of 100 ns; 0: no packet with a time came.
    uint64_t beganAt = 0;
    bool isMuted = false; // this program, or the loudspeaker
    // The levels at which this program's sound may be in the recording, in dB: with its volume, and also with
    // the loudspeaker's volume.
    std::vector<double> levelsDb;
};

// Created and stopped by one thread; records on a thread of its own.
class LoopbackRecorder {
public:
    // Returns when recording has begun. Throws LoopbackError.
    LoopbackRecorder();
    ~LoopbackRecorder();
    LoopbackRecorder(const LoopbackRecorder &) = delete;
    LoopbackRecorder &operator=(const LoopbackRecorder &) = delete;

    // Ends recording; once. Throws LoopbackError if it failed in between, for example because the loudspeaker
    // was removed.
    LoopbackRecording Stop();

private:
    LoopbackRecording Record(std::promise<void> begun);

    std::atomic<bool> m_stop{false};
    std::future<LoopbackRecording> m_recording;
};

} // namespace velto::check
