// Captures the PC's default microphone as AAC packets: WASAPI in shared mode, conversion to 48000 Hz stereo,
// encoding, and a queue for the host.
//
// The host's control thread calls SetTarget, Prepare and Start, later EndRestarts, Stop and WaitInitThread,
// and then destroys the object. The host's reading thread calls GetAudioData. Any thread may call Stop. A
// restart thread calls Stop, WaitInitThread, Prepare and Start.
//
// Threads, each of which keeps this module mapped while it runs:
// - The init thread sets up the encoder, starts the capture thread, polls the stop flag every 50 ms and
//   finally releases what it set up.
// - The capture thread makes all WASAPI calls of the stream, converts and encodes.
// - Each change of the default microphone starts a restart thread. Restarts run one at a time.
//
// A packet holds 1024 samples per channel, 21.3 ms. Delay from a sound to its packet: up to one device period
// (10 ms), up to one poll (10 ms), 21.3 ms to fill a unit, and one to two units in the encoder.
//
// COM: each thread enters and leaves COM itself. Interfaces are raw pointers, local to the thread that
// obtained them, and released by hand.
#pragma once

#include <windows.h>
#include <audioclient.h>
#include <endpointvolume.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "capture/audio_device_notify.h"
#include "capture/avpkt_buf_queue.h"
#include "capture/capture_converter.h"
#include "capture/capture_format.h"
#include "capture/capture_restarts.h"
#include "capture/i_audio_device_notify_listener.h"
#include "capture/packet_reader.h"
#include "capture/ready_event.h"
#include "codec/aac_encoder.h"
#include "codec/audio_frame.h"
#include "codec/encode_param.h"

namespace velto {

// Results of the steps of starting, and values of the state.
enum CaptureResult : int32_t {
    CAPTURE_OK = 0,
    CAPTURE_DEVICE_FAILED = -101,   // COM, the default microphone or the start of its client
    CAPTURE_ENCODER_FAILED = -103,  // setting up the encoder
    CAPTURE_ENCODING_FAILED = -104, // encoding a unit
    CAPTURE_FORMAT_UNKNOWN = -105,  // the mix format is not extensible; returned by GetEncodeParam only
    CAPTURE_SYSTEM_FAILED = -1001,  // creating an event or a thread
    CAPTURE_NOT_PREPARED = -10000,  // not a failure: the state before Prepare and after Teardown
    CAPTURE_STARTED_TWICE = -10001, // Start has succeeded once, perhaps before a restart
    CAPTURE_OUT_OF_MEMORY = -10002, // allocating the encoder's frame or the packets
};

class AudioCapture : public IAudioDeviceNotifyListener {
public:
    AudioCapture() = default;
    // Waits for the init thread, so the capture must be stopped first.
    ~AudioCapture() override;
    AudioCapture(const AudioCapture &) = delete;
    AudioCapture &operator=(const AudioCapture &) = delete;

    // Creates a capture. Logs an error and returns null if there is no memory.
    static AudioCapture *Create();

    // The capture that the host has open, or null. SetCurrent, on the control thread, does not touch the
    // capture that it replaces.
    static void SetCurrent(AudioCapture *capture);
    static AudioCapture *Current();
    // Sets the current capture to null and returns the previous one, or null. Later reads do not find it, and
    // no other thread closes it.
    static AudioCapture *TakeCurrent();
    // Deletes a stopped capture that TakeCurrent returned, after all of its reads have returned.
    static void DeleteTaken(AudioCapture *capture);

    // Copies one packet of the current capture, waiting for it if necessary. `size`: in, the bytes asked for,
    // which only determine how long to wait; out, the bytes of the packet, 0 without a packet, unchanged once
    // the capture has stopped. `buffer` has room for the largest packet.
    static void GetAudioData(uint8_t *buffer, uint32_t &size);

    // The format to encode. Before Prepare.
    void SetTarget(uint32_t sampleRateHz, uint32_t channels, int32_t sampleFormat);

    // Starts the threads. Returns when the capture thread exists or the start has failed. Does nothing, and
    // returns the state, if the capture is prepared. Returns a CaptureResult.
    int32_t Prepare();
    // Registers for changes of the default microphone. Returns a CaptureResult.
    int32_t Start();
    // Ends the capture without waiting for its threads.
    void Stop();
    // Waits until the init thread has ended. False if there is none.
    bool WaitInitThread();
    // Prevents further restarts and waits for running ones.
    void EndRestarts();

    void OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) override;

private:
    friend class AudioCaptureProbe; // the unit tests' view of the members

    // --- audio_capture.cpp: threads and life cycle
    template <void (AudioCapture::*Body)()>
    static DWORD WINAPI RunThread(void *capture);
    void Initialize();
    void Teardown();
    void ReleaseEncoder();
    void Fail(int32_t result);
    void ReplaceNotifier(AudioDeviceNotify *notifier);
    void Restart();

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

    // --- audio_capture_read.cpp: the host's reads
    void Read(uint8_t *buffer, uint32_t &size);
    void WaitForData(uint32_t requestedBytes);

    std::mutex m_stateMutex; // serialises Prepare; guards m_initThread and the reset of m_state
    std::atomic<int32_t> m_state{CAPTURE_NOT_PREPARED};
    std::atomic<bool> m_stop{true};
    std::atomic<bool> m_started{false}; // contract only: for the result of Start; never cleared
    HANDLE m_initThread = nullptr;      // owned
    HANDLE m_captureThread = nullptr;   // owned; init thread only
    ReadyEvent m_ready;

    // Set by the control thread before Prepare.
    StreamFormat m_target; // contract only: its sampleFormat; the converter keeps the microphone's format

    // The init thread sets these before it starts the capture thread and releases them after that thread has
    // ended. In between, only the capture thread uses them.
    AACEncoder m_encoder;
    AudioFrame m_frame;                 // PCM for the next unit
    uint32_t m_frameLength = 0;         // samples per channel
    uint32_t m_channelCode = 0;         // of the encoder and the frame
    uint32_t m_timestampTimeBaseHz = 0; // contract only: of packets' time stamps, which reads ignore
    uint8_t m_decoderConfig[8] = {};    // contract only: the packets' AudioSpecificConfig
    uint32_t m_decoderConfigLength = 0; // contract only: bytes in m_decoderConfig
    StreamFormat m_captured;            // the microphone's mix format; set again by the capture thread
    CaptureConverter m_converter;       // capture thread only; closed by Teardown

    AVPktBufQueue m_packets;
    PacketReader m_reader{m_packets};

    std::atomic<AudioDeviceNotify *> m_deviceNotifier{nullptr}; // owned reference; see ReplaceNotifier
    CaptureRestarts m_restarts{[this] { Restart(); }};
};

// Thread entry: runs the member function Body of the capture that is its argument.
template <void (AudioCapture::*Body)()>
DWORD WINAPI AudioCapture::RunThread(void *capture)
{
    if (capture == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    (static_cast<AudioCapture *>(capture)->*Body)();
    return 0;
}

} // namespace velto
