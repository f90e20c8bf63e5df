#include "render/block_converter.h"

#include <cerrno>
#include <utility>

#include "support/checked_copy.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace velto {
namespace {

constexpr int32_t inputBlockFrames = 1024;
constexpr int32_t inputSampleRateHz = 48000;
constexpr int64_t inputChannelLayout = 3; // front left + front right
constexpr AVSampleFormat inputSampleFormat = AV_SAMPLE_FMT_S16;
constexpr int onlyThisObject = 0; // none of AV_OPT_SEARCH_*

int ChannelsOf(int64_t layoutMask)
{
    AVChannelLayout layout{};
    av_channel_layout_from_mask(&layout, static_cast<uint64_t>(layoutMask));
    return layout.nb_channels;
}

int32_t OutputFramesFor(int64_t inputFrames, const OutputFormat &format)
{
    return static_cast<int32_t>(
        av_rescale_rnd(inputFrames, format.sampleRateHz, inputSampleRateHz, AV_ROUND_UP));
}

ConvertedBlock NotConverted(const char *failure)
{
    ConvertedBlock block;
    block.failure = failure;
    return block;
}

} // namespace

const void *BlockConverter::AllocateContext()
{
    m_context = swr_alloc();
    return m_context;
}

int32_t BlockConverter::SetUp()
{
    if (m_context == nullptr) {
        m_context = swr_alloc();
    }
    if (m_context == nullptr) {
        return AVERROR(ENOMEM);
    }
    const auto outputSampleFormat = static_cast<AVSampleFormat>(m_format.sampleFormat);
    av_opt_set_int(m_context, "in_channel_layout", inputChannelLayout, onlyThisObject);
    av_opt_set_int(m_context, "in_sample_rate", inputSampleRateHz, onlyThisObject);
    av_opt_set_sample_fmt(m_context, "in_sample_fmt", inputSampleFormat, onlyThisObject);
    av_opt_set_int(m_context, "out_channel_layout", m_format.channelLayout, onlyThisObject);
    av_opt_set_int(m_context, "out_sample_rate", m_format.sampleRateHz, onlyThisObject);
    av_opt_set_sample_fmt(m_context, "out_sample_fmt", outputSampleFormat, onlyThisObject);
    const int result = swr_init(m_context);
    if (result < 0) {
        return result;
    }

    m_input.Allocate(ChannelsOf(inputChannelLayout), inputBlockFrames, inputSampleFormat);
    const int32_t outputFrames = OutputFramesFor(inputBlockFrames, m_format);
    m_outputFrames = outputFrames;
    m_outputChannels = ChannelsOf(m_format.channelLayout);
    m_output.samples.Allocate(m_outputChannels, outputFrames, outputSampleFormat);
    return 0;
}

ConvertedBlock BlockConverter::Convert(const uint8_t *data, uint64_t size)
{
    if (CheckedCopy(m_input.Samples(), size, data, size) != 0) {
        return NotConverted("memcpy_s fail");
    }
    if (m_context == nullptr) { // swr_get_delay would read through it
        return NotConverted("Error while converting");
    }
    const auto outputSampleFormat = static_cast<AVSampleFormat>(m_format.sampleFormat);
    const int64_t pendingFrames = swr_get_delay(m_context, inputSampleRateHz) + inputBlockFrames;
    const int32_t outputFrames = OutputFramesFor(pendingFrames, m_format);
    m_outputFrames = outputFrames;
    if (!m_output.samples.Reserve(m_outputChannels, outputFrames, outputSampleFormat)) {
        return NotConverted("av_samples_alloc failed");
    }
    // Always 1024 frames, by contract, also for a shorter block.
    m_output.frames = swr_convert(m_context, m_output.samples.Planes(), outputFrames,
                                  const_cast<const uint8_t **>(m_input.Planes()), inputBlockFrames);
    if (m_output.frames < 0) {
        return NotConverted("Error while converting");
    }
    m_output.bytes =
        av_samples_get_buffer_size(nullptr, m_outputChannels, m_output.frames, outputSampleFormat, 1);
    if (m_output.bytes < 0) {
        return NotConverted("Could not get sample buffer size");
    }
    return std::move(m_output);
}

void BlockConverter::Recycle(ConvertedBlock &&block)
{
    if (!m_output.samples.HasPlanes()) {
        m_output = std::move(block);
    }
}

void BlockConverter::FreeContext()
{
    swr_free(&m_context);
}

void BlockConverter::FreeBuffers()
{
    m_input.Free();
    m_output.samples.Free();
}

} // namespace velto
