// The floor of the capture path: the barest program that makes the calls of the capture loop and of a read.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "bench/ffmpeg_library.h"
#include "bench/sound_client.h"

namespace velto::bench {

// For each packet: GetBuffer, GetMute, a new buffer for the converter, swr_convert, ReleaseBuffer and
// GetNextPacketSize. All samples are converted to 16 bits and, when the encoder's frame is full, back to
// floats. The encoded bytes are queued, and copied once more when they are read.
class CaptureFloor {
public:
    // The packets contain interleaved stereo floats at `rateHz`. Throws std::runtime_error when a call of
    // FFmpeg fails.
    explicit CaptureFloor(uint32_t rateHz);
    ~CaptureFloor();
    CaptureFloor(const CaptureFloor &) = delete;
    CaptureFloor &operator=(const CaptureFloor &) = delete;

    // Records all samples, and reads the encoded packets. Returns the seconds from the first packet of
    // samples to the last read.
    double Record(const std::vector<float> &samples, uint32_t packetFrames);

    size_t Bytes() const { return m_bytes; } // of all encoded packets
    int Packets() const { return m_packets; }

private:
    bool RecordPacket(SoundClient &client, OpenVolume &volume);
    void Append(const float *samples, size_t frames);
    void EncodeFrame();
    void ReadAll();

    uint32_t m_rateHz;
    AVCodecContext *m_codec;
    AVFrame *m_frame;
    AVPacket *m_packet;
    SwrContext *m_converter = nullptr;
    std::vector<int16_t> m_samples; // the current frame
    size_t m_filled = 0;            // samples in it
    std::mutex m_mutex;
    std::deque<std::vector<uint8_t>> m_unused; // guarded by m_mutex
    std::deque<std::vector<uint8_t>> m_queue;  // guarded by m_mutex
    size_t m_bytes = 0;
    int m_packets = 0;
};

} // namespace velto::bench
