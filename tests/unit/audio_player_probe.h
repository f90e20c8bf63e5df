// Gives unit tests access to a renderer's private members.
#pragma once

#include <utility>

#include "render/audio_player_was.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace velto {

class AudioPlayerWasProbe {
public:
    explicit AudioPlayerWasProbe(AudioPlayerWas &player) : m_player(player) {}

    bool IsOpen() const { return m_player.m_isOpen; }
    void SetOpen(bool value) { m_player.m_isOpen = value; }
    bool BroadcastFlag() const { return m_player.m_broadcastFlag; }
    bool DeviceChanged() const { return m_player.m_deviceChanged; }
    bool PropertyChanged() const { return m_player.m_propertyChanged; }
    IAudioPlayerCallback *Callback() const { return m_player.m_callback; }

    IMMDeviceEnumerator *&Enumerator() { return m_player.m_enumerator; }
    IMMDevice *&Device() { return m_player.m_device; }
    IAudioClient *&AudioClient() { return m_player.m_client.m_audioClient; }
    IAudioRenderClient *&RenderClient() { return m_player.m_client.m_renderClient; }
    WasapiDeviceEvents *NotificationClient() const { return m_player.m_notificationClient; }
    WAVEFORMATEX *&MixFormat() { return m_player.m_client.m_mixFormat; }
    LPWSTR DeviceId() const { return m_player.m_deviceId; }
    HANDLE BufferEvent() const { return m_player.m_client.m_bufferEvent; }
    HANDLE WaitEvent() const { return m_player.m_waitEvent; }
    bool NotificationRegistered() const { return m_player.m_notificationRegistered; }
    uint32_t BufferFrames() const { return m_player.m_client.m_bufferFrames; }

    const OutputFormat &Output() const { return m_player.m_converter.m_format; }
    int32_t OutputChannels() const { return m_player.m_converter.m_outputChannels; }
    uint32_t &FrameBytes() { return m_player.m_client.m_frameBytes; }
    int32_t OutputFrames() const { return m_player.m_converter.m_outputFrames; }
    int32_t OutputCapacityFrames() const { return m_player.m_converter.m_output.samples.CapacityFrames(); }
    int32_t &OutputBytes() { return m_player.m_converter.m_output.bytes; }
    uint8_t **&InputBuffer() { return m_player.m_converter.m_input.m_planes; }
    uint8_t **&OutputBuffer() { return m_player.m_converter.m_output.samples.m_planes; }
    bool HasResampler() const { return m_player.m_converter.m_context != nullptr; }
    // Detaches the SwrContext, which the next Open would leak. The caller frees it.
    SwrContext *TakeResampler() { return std::exchange(m_player.m_converter.m_context, nullptr); }

    int32_t ActivateWasClient() { return m_player.ActivateWasClient(); }
    void GetWaveFormatParm() { m_player.GetWaveFormatParm(); }
    int32_t ResampleInit() { return m_player.ResampleInit(); }
    // Resamples one block and recycles it, so that OutputBuffer and OutputBytes describe it.
    int32_t Resample(const uint8_t *data, uint64_t size)
    {
        ConvertedBlock block = m_player.Resample(data, size);
        const int32_t frames = block.frames;
        if (frames >= 0) {
            m_player.m_converter.Recycle(std::move(block));
        }
        return frames;
    }
    // Writes the block that OutputBuffer and OutputBytes describe.
    void AudioWriteToWasClient() { m_player.AudioWriteToWasClient(std::move(m_player.m_converter.m_output)); }
    int32_t CheckDeviceChanged() { return m_player.CheckDeviceChanged(); }
    int32_t OnAudioDeviceChanged() { return m_player.OnAudioDeviceChanged(); }
    int32_t OnAudioPropertyValueChanged() { return m_player.OnAudioPropertyValueChanged(); }

private:
    AudioPlayerWas &m_player;
};

} // namespace velto
