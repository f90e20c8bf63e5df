// The encoder's set-up.
#include <windows.h>
#include <mmreg.h>

#include "capture/audio_capture.h"
#include "codec/audio_utils.h"
#include "handler/log.h"
#include "support/com.h"

namespace velto {
namespace {

constexpr char paramTag[] = "AudioCapture::GetEncodeParam";
constexpr char encoderTag[] = "AudioCapture::InitAudioEncoder";
constexpr uint32_t bitRate = 128000;
constexpr uint32_t aacLowComplexity = 2;
constexpr uint32_t packetTimeBaseHz = 1000000; // microseconds

} // namespace

int32_t AudioCapture::GetEncodeParam(EncodeParam &param)
{
    const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
    if (status == COM_NOT_LOADED) {
        LogError(paramTag, "GetEncodeParam GetCOMLoadedStatus failed");
        return CAPTURE_DEVICE_FAILED;
    }
    WAVEFORMATEX *mixFormat = nullptr;
    IAudioClient *client = GetDefaultMicAudioClient(&mixFormat, nullptr);
    if (client == nullptr) {
        AudioUtils::UnloadCOM(status);
        return CAPTURE_DEVICE_FAILED;
    }
    if (mixFormat->wFormatTag != WAVE_FORMAT_EXTENSIBLE) {
        // Leaks the client and stays in the apartment, by contract: docs/known-leaks.md.
        LogError(paramTag, "WAVEFORMATEX is not WAVEFORMATEXTENSIBLE?");
        return CAPTURE_FORMAT_UNKNOWN;
    }
    m_channelCode = ChannelCodeFor(static_cast<uint16_t>(m_target.channels));
    m_captured.channels = mixFormat->nChannels;
    m_captured.sampleRateHz = mixFormat->nSamplesPerSec;
    param = {m_target.sampleRateHz, m_channelCode, bitRate, static_cast<uint32_t>(PCMFormat::S16),
             aacLowComplexity};
    SafeRelease(client);
    AudioUtils::UnloadCOM(status);
    return CAPTURE_OK;
}

int32_t AudioCapture::InitAudioEncoder()
{
    EncodeParam param{};
    if (GetEncodeParam(param) != CAPTURE_OK) {
        LogError(encoderTag, "GetEncodeParam failed!");
        return CAPTURE_ENCODER_FAILED;
    }
    uint32_t maxPacketSize = 0;
    if (!m_encoder.Initialize(param, m_frameLength, maxPacketSize)) {
        LogError(encoderTag, "Init audio encoder failed!");
        return CAPTURE_ENCODER_FAILED;
    }
    if (!m_frame.AllocBuffer(m_captured.sampleRateHz, m_frameLength, m_channelCode, PCMFormat::S16)) {
        LogError(encoderTag, "Alloc audio frame failed!");
        m_encoder.Close();
        return CAPTURE_OUT_OF_MEMORY;
    }
    m_packets.SetPacketBufferSize(maxPacketSize);
    if (m_frameLength == 0 || !m_packets.Init(PacketPoolSize(m_target.sampleRateHz, m_frameLength))) {
        LogError(encoderTag, "Alloc audio encode data buffer queue failed!");
        m_encoder.Close();
        m_frame.ReleaseBuffer();
        return CAPTURE_OUT_OF_MEMORY;
    }
    if (!m_encoder.GetDecoderSpecificInfo(m_decoderConfig, sizeof m_decoderConfig, m_decoderConfigLength)) {
        LogError(encoderTag, "Get audio decoder specific info failed!");
        ReleaseEncoder();
        return CAPTURE_ENCODER_FAILED;
    }
    m_timestampTimeBaseHz = packetTimeBaseHz;
    return CAPTURE_OK;
}

} // namespace velto
