// Gives unit tests access to a capture's private members.
#pragma once

#include "capture/audio_capture.h"

namespace velto {

class AudioCaptureProbe {
public:
    explicit AudioCaptureProbe(AudioCapture &capture) : m_capture(capture) {}

    int32_t State() const { return m_capture.m_state; }
    void SetState(int32_t state) { m_capture.m_state = state; }
    bool Stopped() const { return m_capture.m_stop; }
    void SetStopped(bool stopped) { m_capture.m_stop = stopped; }
    bool Started() const { return m_capture.m_started; }
    int32_t ReadyCounter() const { return m_capture.m_ready.m_counter; }
    bool Restarting() const
    {
        const std::lock_guard lock(m_capture.m_restarts.m_mutex);
        return m_capture.m_restarts.m_threads != 0;
    }
    bool RestartsOver() const
    {
        const std::lock_guard lock(m_capture.m_restarts.m_mutex);
        return m_capture.m_restarts.m_ended;
    }
    HANDLE InitThreadHandle() const { return m_capture.m_initThread; }
    HANDLE CaptureThreadHandle() const { return m_capture.m_captureThread; }
    HANDLE ReadyEvent() const { return m_capture.m_ready.m_event; }
    AudioDeviceNotify *Notifier() const { return m_capture.m_deviceNotifier; }

    uint32_t TimestampTimeBase() const { return m_capture.m_timestampTimeBaseHz; }
    uint32_t ChannelCode() const { return m_capture.m_channelCode; }
    uint32_t FrameLength() const { return m_capture.m_frameLength; }
    uint32_t CaptureSampleRate() const { return m_capture.m_captured.sampleRateHz; }
    uint32_t CaptureChannels() const { return m_capture.m_captured.channels; }
    int32_t SampleFormat() const { return m_capture.m_captured.sampleFormat; }
    uint32_t TargetSampleRate() const { return m_capture.m_target.sampleRateHz; }
    uint32_t TargetChannels() const { return m_capture.m_target.channels; }
    int32_t TargetSampleFormat() const { return m_capture.m_target.sampleFormat; }
    std::vector<uint8_t> DecoderConfig() const
    {
        return {m_capture.m_decoderConfig, m_capture.m_decoderConfig + m_capture.m_decoderConfigLength};
    }
    bool HasResampler() const { return m_capture.m_converter.IsOpen(); }
    AVPktBufQueue &Packets() { return m_capture.m_packets; }
    AudioFrame &Frame() { return m_capture.m_frame; }
    AACEncoder &Encoder() { return m_capture.m_encoder; }

    int32_t GetEncodeParam(EncodeParam &param) { return m_capture.GetEncodeParam(param); }
    int32_t InitAudioEncoder() { return m_capture.InitAudioEncoder(); }
    IAudioClient *GetDefaultMicAudioClient(WAVEFORMATEX **format, IMMDevice **device)
    {
        return AudioCapture::GetDefaultMicAudioClient(format, device);
    }
    bool GetLoopBackAudioCapture(IAudioClient *&client, IAudioCaptureClient *&captureClient,
                                 IAudioEndpointVolume *&volume)
    {
        return m_capture.GetLoopBackAudioCapture(client, captureClient, volume);
    }
    void LoopGetAudioBuffer(IAudioCaptureClient *captureClient, IAudioEndpointVolume *volume)
    {
        m_capture.LoopGetAudioBuffer(captureClient, volume);
    }
    bool EncodeAudioFrame(const AudioFrame *frame) { return m_capture.EncodeAudioFrame(frame); }
    void Read(uint8_t *buffer, uint32_t &size) { m_capture.Read(buffer, size); }
    void WaitForData(uint32_t requestedBytes) { m_capture.WaitForData(requestedBytes); }
    // A read holds this lock from before its timeout is set until it waits. So once a timeout was recorded
    // and this has returned, the read has begun to wait.
    void PassReadLock() { const std::lock_guard lock(m_capture.m_reader.m_dataMutex); }
    void WakeReads() { m_capture.m_reader.NotifyStop(); }
    // Blocks reads before they take a packet.
    std::unique_lock<std::mutex> HoldReads() { return std::unique_lock(m_capture.m_reader.m_readMutex); }
    void OnError(int32_t code) { m_capture.OnError(code); }
    void Teardown() { m_capture.Teardown(); }

    static DWORD InitThread(void *capture)
    {
        return AudioCapture::RunThread<&AudioCapture::Initialize>(capture);
    }
    static DWORD CaptureThread(void *capture)
    {
        return AudioCapture::RunThread<&AudioCapture::AudioCaptureAndEncodeThreadProc>(capture);
    }
    static DWORD RestartThread(void *start) { return CaptureRestarts::Thread(start); }

private:
    AudioCapture &m_capture;
};

} // namespace velto
