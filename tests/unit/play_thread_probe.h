// Gives unit tests access to a play thread's private members.
#pragma once

#include <deque>
#include <memory>

#include "playback/audio_play_thread.h"

namespace velto {

class AudioPlayThreadProbe {
public:
    explicit AudioPlayThreadProbe(AudioPlayThread &thread) : m_thread(thread) {}

    std::deque<AudioPlayBuffer *> &PlayQueue() { return m_thread.playQueue; }
    std::deque<AudioPlayBuffer *> &DelayQueue() { return m_thread.delayQueue; }
    std::unique_ptr<IAudioPlayer> &Player() { return m_thread.audioSpkPlayer; }
    void PlayNext() { m_thread.PlayNext(); }
    void InitPlayThread() { m_thread.InitPlayThread(); }
    bool Joinable() const { return m_thread.workThread.joinable(); }

    // Frees all queued blocks. The play thread's destructor does not.
    void FreeQueued()
    {
        for (auto *queue : {&m_thread.playQueue, &m_thread.delayQueue}) {
            for (AudioPlayBuffer *block : *queue) {
                if (block != nullptr) {
                    delete[] block->buf;
                    delete block;
                }
            }
            queue->clear();
        }
    }

private:
    AudioPlayThread &m_thread;
};

} // namespace velto
