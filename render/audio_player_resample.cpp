// Conversion of the fixed input format to the engine's mix format.
#include "render/audio_player_was.h"

#include "render/call_log.h"
#include "render/mix_format.h"

namespace velto {
namespace {

constexpr char formatTag[] = "AudioPlayerWas::GetWaveFormatParm";
constexpr char initTag[] = "AudioPlayerWas::ResampleInit";
constexpr char resampleTag[] = "AudioPlayerWas::Resample";

} // namespace

void AudioPlayerWas::GetWaveFormatParm()
{
    if (m_client.MixFormat() == nullptr) {
        LogPlayerError(formatTag, "GetWaveFormatParm parm error");
        return;
    }
    m_converter.SetOutputFormat(OutputFormatFor(*m_client.MixFormat()));
}

int32_t AudioPlayerWas::ResampleInit()
{
    GetWaveFormatParm();
    const int32_t result = m_converter.SetUp();
    if (result < 0) {
        LogPlayerError(initTag, "Failed to initialize the resampling context");
    }
    return result;
}

ConvertedBlock AudioPlayerWas::Resample(const uint8_t *data, uint64_t size)
{
    const SampleBuffer &input = m_converter.Input();
    const bool hasInput = input.Samples() != nullptr;
    const bool sizeFits = size - 1 < BlockConverter::maxBlockBytes; // false for 0, too
    if (!m_isOpen || data == nullptr || !sizeFits || !hasInput) {
        LogPlayerError(resampleTag, "parm is false, do not resample.");
        if (input.HasPlanes()) {
            LogPlayerError(resampleTag, "resample state ", hasInput ? 1 : 0);
        }
        return {};
    }
    ConvertedBlock block = m_converter.Convert(data, size);
    if (block.failure != nullptr) {
        LogPlayerError(resampleTag, block.failure);
    }
    return block;
}

} // namespace velto
