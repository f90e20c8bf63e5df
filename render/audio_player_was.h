// The renderer on Windows Core Audio: shared mode, event-driven, following the default endpoint.
//
// Input is fixed: interleaved signed 16-bit stereo at 48000 Hz in blocks of up to 1024 frames.
// Each block is converted to the engine's mix format and written into an endpoint buffer of
// 300 ms; a block that finds the buffer full is retried for about 100 ms and then dropped, so
// the delay through this class is at most what the endpoint buffer holds.
//
// Threads: one play thread opens, plays and closes; it stays in the single-threaded apartment
// that Open enters, and makes all Core Audio calls. The four setters may come from any thread.
// COM: raw interface pointers, each owned reference released by hand. Enumerator and device are
// kept past Close, which may leave the process without COM; m_implementation keeps their code.
#pragma once

#include <windows.h>
#include <audioclient.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <cstdint>

#include "render/i_audio_player.h"
#include "render/mix_format.h"
#include "render/sample_buffer.h"
#include "render/wasapi_device_events.h"
#include "support/module_reference.h"

struct SwrContext;

namespace velto {

class AudioPlayerWas : public IAudioPlayer {
public:
    AudioPlayerWas() = default;
    ~AudioPlayerWas() override;
    AudioPlayerWas(const AudioPlayerWas &) = delete;
    AudioPlayerWas &operator=(const AudioPlayerWas &) = delete;

    bool Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate) override;
    void Close() override;
    void ReleaseClient() override;
    void Stop() override;
    void Start() override;
    void PlayAudio(const uint8_t *data, int64_t size) override;
    void SetCallback(IAudioPlayerCallback *callback) override { m_callback = callback; }
    void SetBroadcastFlag(bool value) override { m_broadcastFlag = value; }
    void SetDeviceChanged(bool changed) override { m_deviceChanged = changed; }
    void SetPropertyChanged(bool changed) override { m_propertyChanged = changed; }

private:
    friend class AudioPlayerWasProbe; // the unit tests' view of the members

    static constexpr int32_t inputBlockFrames = 1024;
    static constexpr int32_t inputSampleRateHz = 48000;
    static constexpr int64_t inputChannelLayout = 3; // front left + front right
    static constexpr uint64_t maxBlockBytes = 4096;  // 1024 frames x 2 channels x 2 bytes

    struct ActivationLines;

    // --- audio_player_lifecycle.cpp: opening, activation, clean-up
    bool RegisterForNotifications();
    void EndNotifications();
    void ReleaseEarlierOpening();
    void InitDefaultAudioDevice();
    bool FindDefaultEndpoint();
    bool StartOnEndpoint();
    int32_t ActivateWasClient(); // 0, or 1 when there is no client afterwards
    bool ActivateClient(const ActivationLines &lines);
    bool InitializeClient(const ActivationLines &lines);
    bool BindClient(const ActivationLines &lines);
    void ReleaseResources();

    // --- audio_player_resample.cpp: conversion to the mix format
    void GetWaveFormatParm();
    int32_t ResampleInit();                               // 0, or negative
    int32_t Resample(const uint8_t *data, uint64_t size); // frames, or -1
    bool CanResample(const uint8_t *data, uint64_t size) const;

    // --- audio_player_write.cpp: into the endpoint buffer
    void AudioWriteToWasClient();
    void WriteBlock(const uint8_t *cursor, uint64_t remaining);
    bool QueryPadding(uint32_t &padding);
    bool WriteFrames(const uint8_t *cursor, uint32_t frames);

    // --- audio_player_device_change.cpp: 0 for success
    int32_t CheckDeviceChanged();
    int32_t OnAudioDeviceChanged();
    int32_t SwitchTo(IMMDevice *device);
    int32_t OnAudioPropertyValueChanged();
    void DropClient();

    // Shared with other threads. Each is independent of the other members, so the default order
    // of the atomics is only the simplest choice.
    std::atomic<bool> m_broadcastFlag{false};   // any thread; kept, never consulted
    std::atomic<bool> m_deviceChanged{false};   // notification thread sets, play thread clears
    std::atomic<bool> m_propertyChanged{false}; // the same
    std::atomic<bool> m_isOpen{false};          // play thread; true from Open to destruction

    // All below: play thread only, and the thread that destroys the object afterwards.
    ModuleReference m_implementation;            // the DLL behind m_enumerator and m_device
    IAudioClient *m_audioClient = nullptr;       // owned reference
    SwrContext *m_resampler = nullptr;           // owned
    WAVEFORMATEX *m_mixFormat = nullptr;         // CoTaskMemFree; edited in place
    IMMDeviceEnumerator *m_enumerator = nullptr; // owned reference
    LPWSTR m_deviceId = nullptr;                 // CoTaskMemFree; endpoint in use
    IMMDevice *m_device = nullptr;               // owned reference; endpoint in use
    uint32_t m_frameBytes = 0;                   // bytes per output frame, all channels
    OutputFormat m_output;                       // derived from the mix format
    int32_t m_outputChannels = 0;                // of the layout that the converter was last set up for
    int32_t m_outputFrames = 0;                  // expected from the current conversion
    SampleBuffer m_inputBuffer;
    SampleBuffer m_outputBuffer;                        // empty while AudioWriteToWasClient writes it
    uint32_t m_bufferFrames = 0;                        // endpoint buffer; kept when the client is released
    HANDLE m_waitEvent = nullptr;                       // manual reset; created and closed, never waited on
    IAudioRenderClient *m_renderClient = nullptr;       // owned reference
    HANDLE m_bufferEvent = nullptr;                     // auto reset; signalled by the audio engine
    IAudioPlayerCallback *m_callback = nullptr;         // not owned, never called
    WasapiDeviceEvents *m_notificationClient = nullptr; // owned
    int32_t m_outputBytes = 0;                          // size of the last converted block
    bool m_notificationRegistered = false;
    bool m_comEntered = false; // by Open; Close has yet to leave
};

} // namespace velto
