// The play thread of one speaker, with the two queues between its decoder and its renderer.
//
// Life cycle: the first write starts the thread, the idle watchdog stops it after four minutes without a
// write, and the next write starts it again. The thread opens the renderer when it starts and closes it when
// it ends. Between two runs the renderer object and the queued blocks are kept.
//
// The decoder pushes one block for each AAC unit. While needDelay is set, blocks collect in the delay queue,
// a cushion of 107 ms against late units; the fifth block moves all of them to the play queue. The play queue
// has room for twenty blocks (427 ms) and drops the oldest: a sender that is too fast loses old sound instead
// of building up delay. The thread passes one block at a time to the renderer, which waits while the endpoint
// buffer is full, and sleeps 1 ms after each pass.
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

    // Starts the play thread and returns true. Throws std::system_error or std::bad_alloc when no thread can
    // be created. The caller sets isRunning to 1 and checks that threadStarted is false: a second start
    // terminates the process, because it assigns to a joinable thread.
    bool StartPlayThread();
    // Ends the play thread and waits until it has closed the renderer. Queued blocks stay in the queues.
    void StopPlayThread();
    // The thread's body. `param` is the AudioPlayThread; null is logged. Returns 0.
    static uint32_t ThreadFun(void *param);

    // Takes ownership of `buffer` and queues it; frees it when out of memory. Called by one decoding thread
    // at a time.
    void PushBuffer(AudioPlayBuffer *buffer);

    // IAudioPlayerCallback
    void OnPlayerEvent() override {}
    void OnBroadcastFlag(bool value) override;

    // Forwards to the renderer, if it exists. Any thread.
    void SetBroadcastFlag(bool value);

    std::atomic<bool> threadStarted{false}; // play thread sets, StopPlayThread clears
    std::atomic<int32_t> isRunning{1};      // the thread's loop runs while non-zero
    std::atomic<int32_t> threadExited{0};   // contract only: set by the play thread as its last action
    std::atomic<bool> needDelay{true};      // host's parameter call sets, decoding thread clears

private:
    friend class AudioPlayThreadProbe; // the unit tests' view of the members

    void InitPlayThread();
    void PushDelayQueue(AudioPlayBuffer *buffer);
    void PushPlayQueue(AudioPlayBuffer *buffer);
    void PlayNext();

    std::deque<AudioPlayBuffer *> playQueue;      // guarded by queueMutex; oldest at the front
    std::unique_ptr<IAudioPlayer> audioSpkPlayer; // the play thread creates it, the destructor deletes it
    std::atomic<IAudioPlayer *> publishedPlayer{nullptr}; // contract only: audioSpkPlayer for all threads
    const SpeakerAudioParams *audioParam;
    std::mutex queueMutex;
    PlayerNotify playerNotify;                // contract only: forwards OnBroadcastFlag to both speakers
    std::deque<AudioPlayBuffer *> delayQueue; // used by one decoding thread at a time
    ModuleReference moduleReference;          // keeps the thread's code mapped while it runs
    std::thread workThread;                   // a writing thread starts it, the watchdog joins it
};

} // namespace velto
