// The renderer as its owner, the play thread, sees it.
#pragma once

#include <cstdint>

namespace velto {

// Receives reports of a renderer; its owner implements it.
struct IAudioPlayerCallback {
    virtual void OnPlayerEvent() = 0;
    // Asks for the broadcast flag to be set on the renderers of all speaker tracks.
    virtual void OnBroadcastFlag(bool value) = 0;
    virtual ~IAudioPlayerCallback() = default;
};

// Plays interleaved PCM on the default render endpoint.
//
// Open, PlayAudio and Close run on the play thread, whose COM apartment Open enters and Close
// leaves. SetDeviceChanged and SetPropertyChanged may be called on any thread at any time.
struct IAudioPlayer {
    // Releases every system object that is still held.
    virtual ~IAudioPlayer() = default;

    // Starts rendering. False, with nothing logged or created, when an argument is below 1. The
    // values are only validated: a renderer's input format is fixed. True once the notifications
    // are registered, even if the device could not be initialised.
    virtual bool Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate) = 0;
    // Stops the stream, ends the notifications, releases the clients and leaves COM.
    virtual void Close() = 0;
    // Releases the audio client and the render client, if present. Nothing else.
    virtual void ReleaseClient() = 0;
    // Stop and start the client's stream, if there is one.
    virtual void Stop() = 0;
    virtual void Start() = 0;
    // Plays one block of `size` bytes. Problems are logged. The caller keeps `data`.
    virtual void PlayAudio(const uint8_t *data, int64_t size) = 0;
    // Not owned.
    virtual void SetCallback(IAudioPlayerCallback *callback) = 0;
    virtual void SetBroadcastFlag(bool value) = 0;
    // Raised by the system's notifications; tested and cleared by PlayAudio.
    virtual void SetDeviceChanged(bool changed) = 0;
    virtual void SetPropertyChanged(bool changed) = 0;
};

} // namespace velto
