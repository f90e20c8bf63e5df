// The renderer on Windows Core Audio: shared mode, event-driven, following the default endpoint.
//
// Life cycle: the play thread calls Open, which enters COM, registers for notifications and starts a stream
// on the default endpoint; then PlayAudio for each block; then Close, which leaves COM. Open may follow
// again. A notification only raises a flag; the next PlayAudio switches the device.
//
// Input is fixed: interleaved signed 16-bit stereo at 48000 Hz in blocks of up to 1024 frames. Each block is
// converted to the engine's mix format and written into the endpoint buffer of 300 ms. While the buffer is
// full, the write is retried for about 100 ms; then the rest of the block is dropped. While the endpoint
// keeps playing, a block starts to be heard at most about 310 ms after PlayAudio: the buffer and one wait of
// 10 ms.
//
// Threads: one play thread opens, plays and closes; it stays in the single-threaded apartment that Open
// enters, and makes all Core Audio calls. The broadcast, device-changed and property-changed flags may be set
// on any thread.
//
// COM: raw interface pointers, each owned reference released by hand. Close keeps the enumerator and the
// device. If no other thread is in COM after Close, COM may unload their DLL; m_implementation keeps it
// mapped.
#pragma once

#include <windows.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <cstdint>

#include "render/block_converter.h"
#include "render/endpoint_client.h"
#include "render/i_audio_player.h"
#include "render/wasapi_device_events.h"
#include "support/module_reference.h"

namespace velto {

class AudioPlayerWas : public IAudioPlayer {
public:
    AudioPlayerWas() = default;
    ~AudioPlayerWas() override;
    AudioPlayerWas(const AudioPlayerWas &) = delete;
    AudioPlayerWas &operator=(const AudioPlayerWas &) = delete;

    bool Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate) override;
    void Close() override;
    void ReleaseClient() override { m_client.Release(); }
    void Stop() override { m_client.Stop(); }
    void Start() override { m_client.Start(); }
    void PlayAudio(const uint8_t *data, int64_t size) override;
    void SetCallback(IAudioPlayerCallback *callback) override { m_callback = callback; }
    void SetBroadcastFlag(bool value) override { m_broadcastFlag = value; }
    void SetDeviceChanged(bool changed) override { m_deviceChanged = changed; }
    void SetPropertyChanged(bool changed) override { m_propertyChanged = changed; }

private:
    friend class AudioPlayerWasProbe; // the unit tests' view of the members

    // --- audio_player_lifecycle.cpp: opening, activation, clean-up
    bool RegisterForNotifications();
    void EndNotifications();
    void ReleaseEarlierOpening();
    void InitDefaultAudioDevice();
    bool FindDefaultEndpoint();
    bool StartOnEndpoint();
    int32_t ActivateWasClient(); // 0, or 1 when there is no stream afterwards
    void ReleaseResources();

    // --- audio_player_resample.cpp: conversion to the mix format
    void GetWaveFormatParm();
    int32_t ResampleInit();                                      // 0, or a negative FFmpeg error
    ConvertedBlock Resample(const uint8_t *data, uint64_t size); // frames is -1 on failure

    // --- audio_player_write.cpp: into the endpoint buffer
    void AudioWriteToWasClient(ConvertedBlock block);
    void WriteBlock(const uint8_t *cursor, uint64_t remaining);
    bool QueryPadding(uint32_t &padding);

    // --- audio_player_device_change.cpp: following the default endpoint; results are 0 for success
    int32_t CheckDeviceChanged();
    int32_t OnAudioDeviceChanged();
    int32_t SwitchTo(IMMDevice *device);
    int32_t OnAudioPropertyValueChanged();
    void DropClient();

    // Shared with other threads. Each flag is independent of all other members, so any memory order would do;
    // the default one is the simplest.
    std::atomic<bool> m_broadcastFlag{false};   // contract only: the flag of SetBroadcastFlag
    std::atomic<bool> m_deviceChanged{false};   // notification thread sets, play thread clears
    std::atomic<bool> m_propertyChanged{false}; // notification thread sets, play thread clears

    // All below: play thread only, and later the thread that destroys the object.
    bool m_isOpen = false; // from a successful Open to destruction or a failed Open; Close keeps it
    ModuleReference m_implementation;                   // the DLL that implements m_enumerator and m_device
    IMMDeviceEnumerator *m_enumerator = nullptr;        // owned reference
    WasapiDeviceEvents *m_notificationClient = nullptr; // owned
    bool m_notificationRegistered = false;
    bool m_comEntered = false;     // Open has entered COM and Close has not left it yet
    IMMDevice *m_device = nullptr; // owned reference; endpoint in use
    LPWSTR m_deviceId = nullptr;   // CoTaskMemFree; endpoint in use
    EndpointClient m_client;
    BlockConverter m_converter;
    HANDLE m_waitEvent = nullptr;               // contract only: manual-reset event of the last opening
    IAudioPlayerCallback *m_callback = nullptr; // contract only: the owner's callback
};

} // namespace velto
