// The capture thread's work: packets in, converted, encoded, queued.
#include "capture/audio_capture.h"

#include <algorithm>
#include <limits>

#include "capture/hresult_text.h"
#include "capture/pcm_conversion.h"
#include "codec/audio_utils.h"
#include "handler/log.h"
#include "support/com.h"

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace velto {
namespace {

constexpr char threadTag[] = "AudioCapture::AudioCaptureAndEncodeThreadProc";
constexpr char loopTag[] = "AudioCapture::LoopGetAudioBuffer";
constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";
constexpr char encodeTag[] = "AudioCapture::EncodeAudioFrame";
constexpr char errorTag[] = "AudioCapture::OnError";
constexpr DWORD pollMs = 10;
constexpr int64_t mostFrames = std::numeric_limits<int>::max(); // that the converter can count

void FreePlanes(uint8_t **planes)
{
    if (planes != nullptr) {
        av_freep(&planes[0]);
        av_freep(&planes);
    }
}

} // namespace

void AudioCapture::AudioCaptureAndEncodeThreadProc()
{
    const COMLoadStatus status = AudioUtils::GetCOMLoadedStatus();
    if (status == COM_NOT_LOADED) {
        Log(static_cast<LOG_MESSAGE_LEVEL>(status + 1), threadTag,
            "AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed");
        return;
    }
    IAudioClient *client = nullptr;
    IAudioCaptureClient *captureClient = nullptr;
    IAudioEndpointVolume *volume = nullptr;
    if (!GetLoopBackAudioCapture(client, captureClient, volume)) {
        AudioUtils::UnloadCOM(status);
        Fail(CAPTURE_DEVICE_FAILED);
        return;
    }
    SignalReady();
    const HRESULT started = client->Start();
    if (SUCCEEDED(started)) {
        LoopGetAudioBuffer(captureClient, volume);
        while (EncodeAudioFrame(nullptr)) {
        }
        m_packets.Stop();
        client->Stop();
    } else {
        LogError(threadTag, "Start audio client failed! err=", HresultText(started));
    }
    SafeRelease(captureClient);
    SafeRelease(client);
    SafeRelease(volume);
    AudioUtils::UnloadCOM(status);
    if (FAILED(started)) {
        OnError(CAPTURE_DEVICE_FAILED);
        ReleaseEncoder();
    }
}

void AudioCapture::LoopGetAudioBuffer(IAudioCaptureClient *captureClient, IAudioEndpointVolume *volume)
{
    if (captureClient == nullptr || volume == nullptr) {
        return;
    }
    m_frame.fillCount = 0;
    while (!m_stop) {
        Sleep(pollMs);
        while (CapturePacket(*captureClient, *volume)) {
        }
    }
}

// True when another packet can be had at once.
bool AudioCapture::CapturePacket(IAudioCaptureClient &captureClient, IAudioEndpointVolume &volume)
{
    BYTE *data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 devicePosition = 0;
    UINT64 counterPosition = 0;
    HRESULT result = captureClient.GetBuffer(&data, &frames, &flags, &devicePosition, &counterPosition);
    if (result != S_OK) {
        LogError(loopTag, "Capture audio frame failed! err=", HresultText(result));
        return false;
    }
    BOOL muted = FALSE;
    volume.GetMute(&muted);
    if (muted) {
        flags |= AUDCLNT_BUFFERFLAGS_SILENT;
    }
    if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0) {
        LogErrorToChannel("Audio device is disabled");
    } else {
        uint32_t converted = 0;
        uint8_t **planes = AudioFormatConvert(data, frames, converted);
        if (planes != nullptr) {
            EncodeSamples(planes, converted);
            FreePlanes(planes);
        }
    }
    result = captureClient.ReleaseBuffer(frames);
    if (FAILED(result)) {
        LogError(loopTag, "ReleaseBuffer Capture audio data failed! err=", HresultText(result));
        return false;
    }
    UINT32 nextFrames = 0;
    result = captureClient.GetNextPacketSize(&nextFrames);
    if (FAILED(result)) {
        LogError(loopTag, "Get next audio packet size failed! err=", HresultText(result));
        return false;
    }
    return nextFrames != 0 && !m_stop;
}

// Appends converted samples to the frame, encoding it each time that it is full. The samples are
// read as floats, which the engine's are; of narrower ones there are fewer floats than values, and
// the rest is silence.
void AudioCapture::EncodeSamples(uint8_t **planes, uint32_t frames)
{
    const auto *source = reinterpret_cast<const float *>(planes[0]);
    const uint32_t channels = m_frame.channelCount;
    const auto sampleBytes =
        static_cast<size_t>(av_get_bytes_per_sample(static_cast<AVSampleFormat>(m_sampleFormat)));
    const size_t available = size_t{frames} * m_targetChannels * sampleBytes / sizeof(float);

    size_t next = 0;
    uint32_t taken = 0;
    while (taken < frames && m_frame.fillCount < m_frameLength) {
        const uint32_t count = std::min(frames - taken, m_frameLength - m_frame.fillCount);
        int16_t *target = m_frame.samples + size_t{m_frame.fillCount} * channels;
        for (size_t value = 0; value < size_t{count} * channels; ++value, ++next) {
            target[value] = next < available ? FloatToPcm16(source[next]) : int16_t{0};
        }
        taken += count;
        m_frame.fillCount += count;
        if (m_frame.fillCount == m_frameLength) {
            EncodeAudioFrame(&m_frame);
            m_frame.fillCount = 0;
        }
    }
}

// Converts a packet to the target rate and channels. The caller frees the planes.
uint8_t **AudioCapture::AudioFormatConvert(const uint8_t *data, uint32_t frames, uint32_t &converted)
{
    const int64_t delay = swr_get_delay(m_resampler, m_captureSampleRateHz);
    const int64_t capacity =
        av_rescale_rnd(delay + frames, m_targetSampleRateHz, m_captureSampleRateHz, AV_ROUND_UP);
    const auto format = static_cast<AVSampleFormat>(m_sampleFormat);
    const auto channels = static_cast<int>(m_targetChannels);
    uint8_t **planes = nullptr;
    if (capacity > mostFrames || frames > mostFrames ||
        av_samples_alloc_array_and_samples(&planes, nullptr, channels, static_cast<int>(capacity), format,
                                           0) < 0) {
        LogError(convertTag, "Could not allocate destination samples");
        return nullptr;
    }
    const int count = data == nullptr ? -1
                                      : swr_convert(m_resampler, planes, static_cast<int>(capacity), &data,
                                                    static_cast<int>(frames));
    if (count < 0) {
        LogError(convertTag, "Error while converting");
        FreePlanes(planes);
        return nullptr;
    }
    converted = static_cast<uint32_t>(count);
    if (av_samples_get_buffer_size(nullptr, channels, count, format, 1) < 0) {
        LogError(convertTag, "Could not get sample buffer size");
        FreePlanes(planes);
        return nullptr;
    }
    return planes;
}

// Encodes a frame, or drains the encoder without one, and queues the packet if there is one. True
// when it makes sense to go on.
bool AudioCapture::EncodeAudioFrame(const AudioFrame *frame)
{
    AVEncodePacket *packet = m_packets.PopFree();
    if (packet == nullptr) {
        return false;
    }
    const int32_t result = m_encoder.Encode(frame, packet);
    if (result < 0) {
        // The packet stays out of the queues, but in the pool, until the queue is cleared.
        LogError(encodeTag, "AAC encode failed! Err=", result);
        OnError(CAPTURE_ENCODING_FAILED);
        return false;
    }
    if (result == 0) {
        m_packets.PushFree(packet);
        return frame != nullptr;
    }
    m_packets.PushData(packet);
    {
        const std::lock_guard lock(m_dataMutex);
        m_dataCondition.notify_one();
    }
    if (m_captureSampleRateHz != m_timestampTimeBaseHz) {
        // Readers leave the time stamp alone, and records outlive the queue: it may follow the push.
        RescalePacketTimeStamp(packet, m_captureSampleRateHz, m_timestampTimeBaseHz);
    }
    return true;
}

void AudioCapture::OnError(int32_t code)
{
    LogError(errorTag, "Error code: ", code);
    Stop();
}

} // namespace velto
