// The hand-over point between a decoder and a renderer, one for each speaker.
//
// The decoder pushes one block per AAC frame. The first five blocks of a stream are held back as
// a cushion (about 0.1 s); after that they wait in a queue of at most twenty (about 0.43 s), from
// which the oldest is dropped: a fast sender loses old sound instead of building up delay. The
// play thread hands one block per pass to the renderer, whose own waiting paces it, and sleeps
// 1 ms between passes.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "playback/audio_play_buffer.h"
#include "render/i_audio_player.h"
#include "render/speaker_audio_params.h"
#include "support/module_reference.h"

namespace velto {

class AudioPlayThread : public IAudioPlayerCallback {
public:
    using PlayerNotify = void (*)(bool value);

    // `params` outlive the object; `notify` may be null.
    AudioPlayThread(const SpeakerAudioParams *params, PlayerNotify notify);
    ~AudioPlayThread() override;
    AudioPlayThread(const AudioPlayThread &) = delete;
    AudioPlayThread &operator=(const AudioPlayThread &) = delete;

    // Starts the play thread; always true. Throws std::system_error or std::bad_alloc when there can
    // be no thread. The caller has set isRunning to 1 and found threadStarted false: starting twice
    // ends the process, as assigning to a joinable thread does.
    bool StartPlayThread();
    // Ends the play thread, which closes the renderer, and waits for it. What is queued stays.
    void StopPlayThread();
    // The thread's body; `param` is the AudioPlayThread.
    static uint32_t ThreadFun(void *param);

    // Takes ownership of `buffer`; without memory to queue it, frees it. Called on the thread that runs
    // the decoder.
    void PushBuffer(AudioPlayBuffer *buffer);

    // IAudioPlayerCallback
    void OnPlayerEvent() override {}
    void OnBroadcastFlag(bool value) override;

    // Forwards to the renderer, if it exists. Any thread.
    void SetBroadcastFlag(bool value);

    std::atomic<bool> threadStarted{false}; // set by the play thread, cleared by StopPlayThread
    std::atomic<int32_t> isRunning{1};      // the loop runs while non-zero
    std::atomic<int32_t> threadExited{0};   // set by the play thread as its last action
    std::atomic<bool> needDelay{true};      // host's parameter call sets, decoder's thread clears

private:
    friend class AudioPlayThreadProbe; // the unit tests' view of the members

    void InitPlayThread();
    void PushDelayQueue(AudioPlayBuffer *buffer);
    void PushPlayQueue(AudioPlayBuffer *buffer);
    void PlayNext();

    std::deque<AudioPlayBuffer *> playQueue;              // guarded by queueMutex; oldest at the front
    std::unique_ptr<IAudioPlayer> audioSpkPlayer;         // made by the play thread, kept until destruction
    std::atomic<IAudioPlayer *> publishedPlayer{nullptr}; // audioSpkPlayer, for SetBroadcastFlag
    const SpeakerAudioParams *audioParam;
    std::mutex queueMutex;
    PlayerNotify playerNotify;
    std::deque<AudioPlayBuffer *> delayQueue; // thread that runs the decoder only
    ModuleReference moduleReference;          // keeps the thread's code mapped while it runs
    std::thread workThread;
};

} // namespace velto
