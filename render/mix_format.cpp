#include "render/mix_format.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace velto {

int64_t ChannelLayoutFor(uint16_t channels)
{
    switch (channels) {
    case 1:
        return AV_CH_LAYOUT_MONO;
    case 4:
        return AV_CH_LAYOUT_4POINT0;
    case 6:
        return AV_CH_LAYOUT_HEXAGONAL;
    case 8:
        return AV_CH_LAYOUT_OCTAGONAL;
    default:
        return AV_CH_LAYOUT_STEREO;
    }
}

int32_t SampleFormatFor(uint16_t bitsPerSample)
{
    switch (bitsPerSample) {
    case 8:
        return AV_SAMPLE_FMT_U8;
    case 32:
        return AV_SAMPLE_FMT_S32;
    default:
        return AV_SAMPLE_FMT_S16;
    }
}

OutputFormat OutputFormatFor(const WAVEFORMATEX &mixFormat)
{
    OutputFormat format;
    format.channelLayout = ChannelLayoutFor(mixFormat.nChannels);
    format.sampleFormat = SampleFormatFor(mixFormat.wBitsPerSample);
    format.sampleRateHz = static_cast<int32_t>(mixFormat.nSamplesPerSec);
    return format;
}

} // namespace velto
