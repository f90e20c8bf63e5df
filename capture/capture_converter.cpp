#include "capture/capture_converter.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

namespace velto {

bool CaptureConverter::Open(const StreamFormat &from, const StreamFormat &to)
{
    AVChannelLayout output{}; // default layouts own no memory
    AVChannelLayout input{};
    av_channel_layout_default(&output, static_cast<int>(to.channels));
    av_channel_layout_default(&input, static_cast<int>(from.channels));
    // Reuses the context of an open converter, without its sound.
    const bool ready = swr_alloc_set_opts2(&m_resampler, &output, from.sampleFormat,
                                           static_cast<int>(to.sampleRateHz), &input, from.sampleFormat,
                                           static_cast<int>(from.sampleRateHz), 0, nullptr) >= 0 &&
                       swr_init(m_resampler) >= 0;
    m_fromRateHz = from.sampleRateHz;
    m_toRateHz = to.sampleRateHz;
    return ready;
}

void CaptureConverter::Close()
{
    swr_free(&m_resampler);
}

int64_t CaptureConverter::OutputFrames(uint32_t inputFrames) const
{
    const int64_t buffered = swr_get_delay(m_resampler, m_fromRateHz);
    return av_rescale_rnd(buffered + inputFrames, m_toRateHz, m_fromRateHz, AV_ROUND_UP);
}

int32_t CaptureConverter::Convert(uint8_t **planes, int32_t capacity, const uint8_t *data,
                                  int32_t inputFrames)
{
    // libswresample would treat null data as the end of the stream.
    return data == nullptr ? -1 : swr_convert(m_resampler, planes, capacity, &data, inputFrames);
}

} // namespace velto
