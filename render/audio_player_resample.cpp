// Conversion of the fixed input format to the engine's mix format.
#include "render/audio_player_was.h"

#include <cerrno>

#include "handler/log.h"
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

constexpr char resampleTag[] = "AudioPlayerWas::Resample";
constexpr AVSampleFormat inputSampleFormat = AV_SAMPLE_FMT_S16;

int ChannelsOf(int64_t layoutMask)
{
    AVChannelLayout layout{};
    av_channel_layout_from_mask(&layout, static_cast<uint64_t>(layoutMask));
    return layout.nb_channels;
}

int32_t SetUpFailed(int result)
{
    LogError("AudioPlayerWas::ResampleInit", "AudioPlayerWas ",
             "Failed to initialize the resampling context");
    return result;
}

template <typename... Values>
int32_t Refused(const Values &...values)
{
    LogError(resampleTag, "AudioPlayerWas ", values...);
    return -1;
}

} // namespace

void AudioPlayerWas::GetWaveFormatParm()
{
    if (m_mixFormat == nullptr) {
        LogError("AudioPlayerWas::GetWaveFormatParm", "AudioPlayerWas ", "GetWaveFormatParm parm error");
        return;
    }
    m_output = OutputFormatFor(*m_mixFormat);
}

int32_t AudioPlayerWas::ResampleInit()
{
    GetWaveFormatParm();
    if (m_resampler == nullptr) {
        m_resampler = swr_alloc();
    }
    if (m_resampler == nullptr) {
        return SetUpFailed(AVERROR(ENOMEM));
    }
    const auto outputSampleFormat = static_cast<AVSampleFormat>(m_output.sampleFormat);
    av_opt_set_int(m_resampler, "in_channel_layout", inputChannelLayout, 0);
    av_opt_set_int(m_resampler, "in_sample_rate", inputSampleRateHz, 0);
    av_opt_set_sample_fmt(m_resampler, "in_sample_fmt", inputSampleFormat, 0);
    av_opt_set_int(m_resampler, "out_channel_layout", m_output.channelLayout, 0);
    av_opt_set_int(m_resampler, "out_sample_rate", m_output.sampleRateHz, 0);
    av_opt_set_sample_fmt(m_resampler, "out_sample_fmt", outputSampleFormat, 0);
    const int result = swr_init(m_resampler);
    if (result < 0) {
        return SetUpFailed(result);
    }

    m_inputBuffer.Allocate(ChannelsOf(inputChannelLayout), inputBlockFrames, inputSampleFormat);
    m_outputFrames = static_cast<int32_t>(
        av_rescale_rnd(inputBlockFrames, m_output.sampleRateHz, inputSampleRateHz, AV_ROUND_UP));
    m_outputChannels = ChannelsOf(m_output.channelLayout);
    m_outputBuffer.Allocate(m_outputChannels, m_outputFrames, outputSampleFormat);
    return 0;
}

bool AudioPlayerWas::CanResample(const uint8_t *data, uint64_t size) const
{
    return m_isOpen && data != nullptr && size - 1 < maxBlockBytes && m_inputBuffer.Samples() != nullptr;
}

int32_t AudioPlayerWas::Resample(const uint8_t *data, uint64_t size)
{
    if (!CanResample(data, size)) {
        Refused("parm is false, do not resample.");
        if (m_inputBuffer.HasPlanes()) {
            Refused("resample state ", m_inputBuffer.Samples() != nullptr ? 1 : 0);
        }
        return -1;
    }
    if (CheckedCopy(m_inputBuffer.Samples(), size, data, size) != 0) {
        return Refused("memcpy_s fail");
    }
    if (m_resampler == nullptr) { // swr_get_delay would read through it
        return Refused("Error while converting");
    }

    const auto outputSampleFormat = static_cast<AVSampleFormat>(m_output.sampleFormat);
    const int64_t pending = swr_get_delay(m_resampler, inputSampleRateHz) + inputBlockFrames;
    m_outputFrames =
        static_cast<int32_t>(av_rescale_rnd(pending, m_output.sampleRateHz, inputSampleRateHz, AV_ROUND_UP));
    if (!m_outputBuffer.Reserve(m_outputChannels, m_outputFrames, outputSampleFormat)) {
        return Refused("av_samples_alloc failed");
    }

    // Always 1024 frames: a short block is converted together with the samples of earlier blocks behind it.
    const int converted = swr_convert(m_resampler, m_outputBuffer.Planes(), m_outputFrames,
                                      const_cast<const uint8_t **>(m_inputBuffer.Planes()), inputBlockFrames);
    if (converted < 0) {
        return Refused("Error while converting");
    }
    m_outputBytes = av_samples_get_buffer_size(nullptr, m_outputChannels, converted, outputSampleFormat, 1);
    if (m_outputBytes < 0) {
        return Refused("Could not get sample buffer size");
    }
    return converted;
}

} // namespace velto
