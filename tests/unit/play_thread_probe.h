// Gives unit tests access to a play thread's private members.
#pragma once

#include <deque>
#include <memory>
#include <utility>

#include "playback/audio_play_thread.h"

namespace velto {

class AudioPlayThreadProbe {
public:
    explicit AudioPlayThreadProbe(AudioPlayThread &thread) : m_thread(thread) {}

    std::deque<AudioPlayBuffer *> &PlayQueue() { return m_thread.playQueue; }
    std::deque<AudioPlayBuffer *> &DelayQueue() { return m_thread.delayQueue; }
    std::unique_ptr<IAudioPlayer> &Player() { return m_thread.audioSpkPlayer; }
    const SpeakerAudioParams &Parameters() const { return *m_thread.audioParam; }
    // Also replaces the renderer that receives the broadcast flag. Returns the renderer used so far.
    std::unique_ptr<IAudioPlayer> ReplacePlayer(std::unique_ptr<IAudioPlayer> player)
    {
        m_thread.publishedPlayer = player.get();
        return std::exchange(m_thread.audioSpkPlayer, std::move(player));
    }
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
