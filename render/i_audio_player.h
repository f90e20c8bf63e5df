// The interface between a renderer and its owner, the play thread.
#pragma once

#include <cstdint>

namespace velto {

// Events that a renderer could report to its owner.
//
// contract only: no renderer reports any
struct IAudioPlayerCallback {
    virtual void OnPlayerEvent() = 0;
    // Sets the broadcast flag on the renderers of all speaker tracks.
    virtual void OnBroadcastFlag(bool value) = 0;
    virtual ~IAudioPlayerCallback() = default;
};

// Plays interleaved PCM on the default render endpoint.
//
// Open, PlayAudio and Close run on the play thread. Open enters COM on this thread, Close leaves it. The
// three flags may be set on any thread at any time.
struct IAudioPlayer {
    // Releases the system objects that Close keeps. An open renderer must be closed first.
    virtual ~IAudioPlayer() = default;

    // Starts rendering. An open renderer must be closed first. Returns true once the notifications are
    // registered, even if the device could not be initialised. Returns false, with nothing logged or created,
    // when an argument is below 1, and false with a log line when COM or the notifications are not available.
    // The arguments are only validated: a renderer's input format is fixed.
    virtual bool Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate) = 0;
    // Stops the stream, ends the notifications, releases the clients and leaves COM.
    virtual void Close() = 0;
    // Releases the audio client and the render client, if present, and nothing else.
    virtual void ReleaseClient() = 0;
    // Stop and start the audio client's stream. Do nothing without an audio client.
    virtual void Stop() = 0;
    virtual void Start() = 0;
    // Plays one block of `size` bytes. Failures are logged. The caller keeps `data`.
    virtual void PlayAudio(const uint8_t *data, int64_t size) = 0;
    // Stores the callback, which the caller keeps.
    virtual void SetCallback(IAudioPlayerCallback *callback) = 0;
    virtual void SetBroadcastFlag(bool value) = 0; // contract only: a flag that no renderer acts on
    // A notification of the system sets these flags; PlayAudio tests and clears them.
    virtual void SetDeviceChanged(bool changed) = 0;
    virtual void SetPropertyChanged(bool changed) = 0;
};

} // namespace velto
