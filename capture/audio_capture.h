// The PC's default microphone as AAC packets: Windows Core Audio in shared mode, converted to
// 48000 Hz stereo, encoded, queued for the host.
//
// A packet holds 1024 samples per channel (21.3 ms). From a sound to the packet that holds it pass
// one period of the device, one poll (10 ms), and the encoder's own delay of one to two frames.
//
// Threads, each keeping this module mapped while it runs:
// - the init thread prepares the encoder, starts the capture thread, waits for the stop flag in
//   steps of 50 ms and takes down what it built;
// - the capture thread makes all Core Audio calls of the stream, converts and encodes;
// - one restart thread for each change of the default microphone, one at work at a time.
// Prepare, Start, Stop and the closing calls belong to the host's control thread, GetAudioData to
// its reading thread. Stop may come from any of them.
// COM: raw interface pointers, each owned reference released by hand, all of them local to the
// thread that obtained them; each thread enters and leaves COM for itself.
#pragma once

#include <windows.h>
#include <audioclient.h>
#include <endpointvolume.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "capture/audio_device_notify.h"
#include "capture/avpkt_buf_queue.h"
#include "capture/i_audio_device_notify_listener.h"
#include "codec/aac_encoder.h"
#include "codec/audio_frame.h"
#include "codec/encode_param.h"

struct SwrContext;

namespace velto {

// What Prepare and Start return, and what the state holds after a failure.
enum CaptureResult : int32_t {
    CAPTURE_OK = 0,
    CAPTURE_DEVICE_FAILED = -101,   // COM, the default microphone or the start of its client
    CAPTURE_ENCODER_FAILED = -103,  // setting up the encoder
    CAPTURE_ENCODING_FAILED = -104, // encoding a frame
    CAPTURE_FORMAT_UNKNOWN = -105,  // the mix format is not extensible
    CAPTURE_SYSTEM_FAILED = -1001,  // an event or a thread
    CAPTURE_NOT_PREPARED = -10000,  // the resting value of the state
    CAPTURE_STARTED_TWICE = -10001, // of an object that had been started once, perhaps before a restart
    CAPTURE_OUT_OF_MEMORY = -10002, // the frame or the packets
};

class AudioCapture : public IAudioDeviceNotifyListener {
public:
    AudioCapture() = default;
    // Waits for the init thread if that is still running, so capture has to be stopped first.
    ~AudioCapture() override;
    AudioCapture(const AudioCapture &) = delete;
    AudioCapture &operator=(const AudioCapture &) = delete;

    // A new capture. Null, with an error logged, when there is no memory for it or one of its members.
    static AudioCapture *Create();

    // The capture that the host has open, or null. Set by the control thread; the object that was
    // there before is not touched.
    static void SetCurrent(AudioCapture *capture);
    static AudioCapture *Current();
    // Takes the current capture out, so that no further read finds it and no other thread closes it;
    // null when there is none.
    static AudioCapture *TakeCurrent();
    // Deletes a capture that was taken out and has ended, once no read is under way in it.
    static void DeleteTaken(AudioCapture *capture);

    // Gives one packet of the current capture, waiting for it if need be. `size`: in, the bytes
    // asked for, which only tell how long to wait; out, the packet's bytes, 0 when there was none,
    // unchanged once capture has stopped. `buffer` has room for the largest packet.
    static void GetAudioData(uint8_t *buffer, uint32_t &size);

    // What to encode; before Prepare.
    void SetTarget(uint32_t sampleRateHz, uint32_t channels, int32_t sampleFormat);

    // Starts the threads; returns when the capture thread exists or could not be made.
    int32_t Prepare();
    // Follows the default microphone from here on.
    int32_t Start();
    // Ends capture; does not wait.
    void Stop();
    // Waits for the init thread's end. False when there is none.
    bool WaitInitThread();
    // No restart begins after this, and none is at work when it returns.
    void EndRestarts();

    void OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) override;

private:
    friend class AudioCaptureProbe; // the unit tests' view of the members

    // --- audio_capture.cpp: threads and life cycle
    static DWORD WINAPI InitThread(void *capture);
    static DWORD WINAPI CaptureThread(void *capture);
    void Initialize();
    void Teardown();
    void ReleaseEncoder();
    void Fail(int32_t result);
    void SignalReady();
    void SetReadyEvent();
    void CloseReadyEvent();
    void ReplaceNotifier(AudioDeviceNotify *notifier);

    // --- audio_capture_device.cpp: the microphone and the converter
    static IAudioClient *GetDefaultMicAudioClient(WAVEFORMATEX **mixFormat, IMMDevice **device);
    bool GetLoopBackAudioCapture(IAudioClient *&client, IAudioCaptureClient *&captureClient,
                                 IAudioEndpointVolume *&volume);
    bool OpenStream(const WAVEFORMATEX &mixFormat, IAudioClient &client, IAudioCaptureClient *&captureClient);
    bool InitSwr();

    // --- audio_capture_encoder.cpp: the encoder's set-up
    int32_t GetEncodeParam(EncodeParam &param);
    int32_t InitAudioEncoder();

    // --- audio_capture_loop.cpp: the capture thread's work
    void AudioCaptureAndEncodeThreadProc();
    void LoopGetAudioBuffer(IAudioCaptureClient *captureClient, IAudioEndpointVolume *volume);
    bool CapturePacket(IAudioCaptureClient &captureClient, IAudioEndpointVolume &volume);
    void EncodeSamples(uint8_t **planes, uint32_t frames);
    uint8_t **AudioFormatConvert(const uint8_t *data, uint32_t frames, uint32_t &converted);
    bool EncodeAudioFrame(const AudioFrame *frame);
    void OnError(int32_t code);

    // --- audio_capture_read.cpp: the host's side
    void Read(uint8_t *buffer, uint32_t &size);
    void WaitForData(uint32_t requestedBytes);

    // --- audio_capture_restart.cpp: following the default microphone
    struct RestartStart;
    static DWORD WINAPI RestartThread(void *start);
    void Restart();

    std::mutex m_stateMutex; // serialises Prepare; guards m_initThread and the return to rest

    // Set before the capture thread starts, then its own.
    uint32_t m_timestampTimeBaseHz = 0;
    AACEncoder m_encoder;
    uint32_t m_channelCode = 0;
    uint32_t m_frameLength = 0; // samples per channel
    AudioFrame m_frame;
    uint8_t m_decoderConfig[8] = {};
    uint32_t m_decoderConfigLength = 0;

    // The capture thread's, until Teardown has waited for it.
    SwrContext *m_resampler = nullptr; // owned
    uint32_t m_captureSampleRateHz = 0;
    uint32_t m_captureChannels = 0;
    int32_t m_sampleFormat = -1; // an AVSampleFormat, of both sides of the converter

    // Set by the host's control thread before Prepare.
    uint32_t m_targetSampleRateHz = 0;
    uint32_t m_targetChannels = 0;
    int32_t m_targetSampleFormat = -1; // kept, never consulted: the converter keeps the engine's

    HANDLE m_captureThread = nullptr; // owned; the init thread
    HANDLE m_initThread = nullptr;    // owned
    std::mutex m_readyMutex;          // guards m_readyEvent
    HANDLE m_readyEvent = nullptr;    // manual reset; there while Prepare waits
    std::atomic<int32_t> m_readyCounter{0};
    std::atomic<bool> m_stop{true};
    std::atomic<bool> m_started{false}; // never cleared
    std::atomic<int32_t> m_state{CAPTURE_NOT_PREPARED};

    AVPktBufQueue m_packets;
    std::mutex m_readMutex; // held while a packet is with a reader, and while the packets are cleared
    std::atomic<AudioDeviceNotify *> m_deviceNotifier{
        nullptr}; // owned reference; who takes it out releases it
    std::mutex m_dataMutex;
    std::condition_variable m_dataCondition; // a packet was queued, or capture stopped

    std::mutex m_restartTurn; // held by the restart at work
    std::mutex m_restartMutex;
    std::condition_variable m_restartsChanged; // one began or ended
    int m_restarts = 0;                        // guarded by m_restartMutex
    bool m_restartsOver = false;               // the same
};

} // namespace velto
