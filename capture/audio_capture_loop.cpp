// The capture thread's work: takes WASAPI's packets, converts and encodes them, and queues the encoded
// packets.
#include "capture/audio_capture.h"

#include <algorithm>
#include <span>
#include <utility>

#include "codec/audio_utils.h"
#include "handler/log.h"
#include "support/com.h"

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/samplefmt.h>
}

namespace velto {
namespace {

constexpr char threadTag[] = "AudioCapture::AudioCaptureAndEncodeThreadProc";
constexpr char loopTag[] = "AudioCapture::LoopGetAudioBuffer";
constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";
constexpr char encodeTag[] = "AudioCapture::EncodeAudioFrame";
constexpr char errorTag[] = "AudioCapture::OnError";
constexpr DWORD pollMs = 10;

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
        LogError(threadTag, "AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed");
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
    m_ready.CountAndSet();
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

// Takes one packet from WASAPI. True when another one is ready.
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
    if (muted != FALSE || (flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0) {
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

// Appends converted samples to m_frame and encodes it each time it is full. Reads all samples as floats,
// which shared mode delivers. Bytes of narrower samples yield fewer floats than there are samples; silence
// replaces the missing ones.
void AudioCapture::EncodeSamples(uint8_t **planes, uint32_t frames)
{
    const auto *source = reinterpret_cast<const float *>(planes[0]);
    const uint32_t channels = m_frame.channelCount;
    const auto sampleBytes = static_cast<size_t>(av_get_bytes_per_sample(m_captured.sampleFormat));
    const size_t available = size_t{frames} * m_target.channels * sampleBytes / sizeof(float);

    size_t next = 0;
    uint32_t left = frames;
    while (left != 0) {
        // Not 0, because a full frame is encoded at once.
        const uint32_t count = std::min(left, m_frameLength - m_frame.fillCount);
        int16_t *target = m_frame.samples + size_t{m_frame.fillCount} * channels;
        for (int16_t &sample : std::span(target, size_t{count} * channels)) {
            sample = next < available ? FloatToPcm16(source[next]) : int16_t{0};
            ++next;
        }
        left -= count;
        m_frame.fillCount += count;
        if (m_frame.fillCount == m_frameLength) {
            EncodeAudioFrame(&m_frame);
            m_frame.fillCount = 0;
        }
    }
}

// Converts a WASAPI packet to the target's rate and channels. Returns the planes, which the caller frees, or
// null.
uint8_t **AudioCapture::AudioFormatConvert(const uint8_t *data, uint32_t frames, uint32_t &converted)
{
    const int64_t capacity = m_converter.OutputFrames(frames);
    const AVSampleFormat format = m_captured.sampleFormat;
    const auto channels = static_cast<int>(m_target.channels);
    uint8_t **planes = nullptr;
    // The converter's counts are int32_t.
    if (!std::in_range<int32_t>(capacity) || !std::in_range<int32_t>(frames) ||
        av_samples_alloc_array_and_samples(&planes, nullptr, channels, static_cast<int>(capacity), format,
                                           0) < 0) {
        LogError(convertTag, "Could not allocate destination samples");
        return nullptr;
    }
    const int32_t count =
        m_converter.Convert(planes, static_cast<int32_t>(capacity), data, static_cast<int32_t>(frames));
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

// Encodes a frame, or drains the encoder if `frame` is null, and queues the packet if there is one. True if
// the caller can encode another frame or drain another packet.
bool AudioCapture::EncodeAudioFrame(const AudioFrame *frame)
{
    AVEncodePacket *packet = m_packets.PopFree();
    if (packet == nullptr) {
        return false;
    }
    const int32_t result = m_encoder.Encode(frame, packet);
    if (result < 0) {
        // The packet stays out of both queues. The pool releases it when the queue is cleared.
        LogError(encodeTag, "AAC encode failed! Err=", result);
        OnError(CAPTURE_ENCODING_FAILED);
        return false;
    }
    if (result == 0) {
        m_packets.PushFree(packet);
        return frame != nullptr;
    }
    m_packets.PushData(packet);
    m_reader.NotifyPacket();
    if (m_captured.sampleRateHz != m_timestampTimeBaseHz) {
        // Safe after the push: reads do not use the time stamp, and the record is never freed.
        RescalePacketTimeStamp(packet, m_captured.sampleRateHz, m_timestampTimeBaseHz);
    }
    return true;
}

void AudioCapture::OnError(int32_t code)
{
    LogError(errorTag, "Error code: ", code);
    Stop();
}

} // namespace velto
