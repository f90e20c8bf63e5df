// Conversion of captured samples: to the target's rate and channels, and from floats to 16 bits.
#pragma once

#include <algorithm>
#include <cstdint>

#include "capture/capture_format.h"

struct SwrContext;

namespace velto {

// Converts sample rate and channels with libswresample and keeps the sample format. For one thread at a time.
class CaptureConverter {
public:
    CaptureConverter() = default;
    ~CaptureConverter() { Close(); }
    CaptureConverter(const CaptureConverter &) = delete;
    CaptureConverter &operator=(const CaptureConverter &) = delete;

    // Replaces the converter. Input and output have the sample format of `from`. False if there is no memory
    // or libswresample refuses a format.
    bool Open(const StreamFormat &from, const StreamFormat &to);
    // Does nothing when the converter is closed.
    void Close();
    bool IsOpen() const { return m_resampler != nullptr; }

    // The largest number of frames that Convert can return for `inputFrames`, including the frames that the
    // converter has buffered. Only when open.
    int64_t OutputFrames(uint32_t inputFrames) const;
    // Fills `planes`, which have room for `capacity` frames. Returns the number of frames, or a negative
    // error, also for null `data`. Only when open.
    int32_t Convert(uint8_t **planes, int32_t capacity, const uint8_t *data, int32_t inputFrames);

private:
    SwrContext *m_resampler = nullptr; // owned
    uint32_t m_fromRateHz = 0;
    uint32_t m_toRateHz = 0;
};

// Converts a float sample to signed 16 bits. Full scale is 32767 in both directions; samples beyond it are
// clipped, others are truncated toward zero. NaN becomes silence.
constexpr int16_t FloatToPcm16(float sample)
{
    if (sample != sample) {
        return 0;
    }
    return static_cast<int16_t>(std::clamp(sample, -1.0F, 1.0F) * 32767.0F);
}

} // namespace velto
