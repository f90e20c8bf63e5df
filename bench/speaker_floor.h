// The floor of playing: the barest program that makes the system calls of a play thread and its renderer.
#pragma once

#include <windows.h>

#include <atomic>
#include <thread>

#include "bench/write_floor.h"

namespace velto::bench {

// Opens a shared, event-driven stream of 300 ms on the default endpoint, and polls a queue every millisecond
// for blocks to play. Each block takes a query of the padding, a conversion into the endpoint buffer, and no
// copy.
class SpeakerFloor {
public:
    explicit SpeakerFloor(BlockQueue &queue);
    ~SpeakerFloor(); // does not play blocks that are still queued
    SpeakerFloor(const SpeakerFloor &) = delete;
    SpeakerFloor &operator=(const SpeakerFloor &) = delete;

    // Blocks that are in the endpoint buffer or were played. Negative after a failure; the reason is on the
    // standard error.
    int Played() const { return m_played; }

private:
    void Run();
    void Play();

    BlockQueue &m_queue;
    std::atomic<int> m_played{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace velto::bench
