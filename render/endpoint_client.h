// The renderer's connection to one endpoint: audio client, render client and mix format.
//
// Life cycle: Activate obtains the audio client and the mix format, Initialize and Bind make it a shared-mode
// stream with a buffer of 300 ms, Start runs it. Release ends the connection; a new one begins with Activate.
//
// Threads: play thread only, in the COM apartment that the renderer has entered.
#pragma once

#include <windows.h>
#include <audioclient.h>
#include <mmdeviceapi.h>

#include <cstdint>

namespace velto {

// Tag and numbers of the log lines that report a failed step. The numbers are part of the log contract and
// are not line numbers of this code.
struct ActivationLines {
    const char *tag;
    int activate;
    int mixFormat;
    int initialize;
    int eventHandle;
    int bufferSize;
    int service;
};

// Owns raw references without a destructor: the renderer releases them in its own clean-up, in a fixed order.
class EndpointClient {
public:
    static constexpr REFERENCE_TIME bufferDuration100ns = 3000000; // 300 ms

    EndpointClient() = default;
    EndpointClient(const EndpointClient &) = delete;
    EndpointClient &operator=(const EndpointClient &) = delete;

    // Replaces the event that a stream signals when its buffer has room. A missing event makes Bind fail.
    void CreateBufferEvent();

    // The steps from device to stream. Each logs its failure and returns false. Activate may succeed with a
    // null mix format; Initialize needs one.
    bool Activate(IMMDevice &device, const ActivationLines &lines);
    bool Initialize(const ActivationLines &lines);
    bool Bind(const ActivationLines &lines);

    // Do nothing without an audio client. The system's results are ignored.
    void Start();
    void Stop();
    // Releases the audio client and the render client. Mix format and sizes stay.
    void Release();
    void ReleaseAudioClient();
    void FreeMixFormat();
    void CloseBufferEvent();

    // False without an audio client, or when the system has invalidated it.
    bool IsUsable() const;
    bool HasRenderClient() const { return m_renderClient != nullptr; }
    const WAVEFORMATEX *MixFormat() const { return m_mixFormat; }
    uint32_t FrameBytes() const { return m_frameBytes; }
    uint32_t BufferFrames() const { return m_bufferFrames; }

    // Needs an audio client. A failed query may leave `padding` as it is.
    HRESULT QueryPadding(uint32_t &padding) const { return m_audioClient->GetCurrentPadding(&padding); }
    // Writes as many of the `bytes` as fit into `freeFrames`, in whole frames, and logs a failed call with
    // `tag`. Returns the number of bytes consumed, including a partial frame at the end, which cannot be
    // written; 0 when the rest of the block must be dropped.
    uint64_t Write(const char *tag, const uint8_t *samples, uint64_t bytes, uint32_t freeFrames);
    // Waits up to 10 ms, one device period, for room in the buffer.
    void WaitForRoom() const;

private:
    friend class AudioPlayerWasProbe; // the unit tests' view of the members

    bool WriteFrames(const char *tag, const uint8_t *samples, uint32_t frames);

    IAudioClient *m_audioClient = nullptr;        // owned reference
    IAudioRenderClient *m_renderClient = nullptr; // owned reference
    WAVEFORMATEX *m_mixFormat = nullptr;          // CoTaskMemFree; relabelled as PCM by Initialize
    uint32_t m_frameBytes = 0;                    // all channels
    uint32_t m_bufferFrames = 0;                  // Release keeps it for the log line of a dropped block
    HANDLE m_bufferEvent = nullptr;               // owned; auto-reset; the audio engine signals it
};

} // namespace velto
