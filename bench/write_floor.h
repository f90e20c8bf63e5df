// The floor of the write path: the barest program that makes the system calls of a write.
#pragma once

#include <windows.h>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "bench/bare_decoder.h"

namespace velto::bench {

// A block of decoded sound, interleaved signed 16-bit stereo.
struct Block {
    explicit Block(size_t size) : bytes(new uint8_t[size]), size(size) {}
    std::unique_ptr<uint8_t[]> bytes;
    size_t size;
};

// Queues blocks from a writing to a playing thread. Drops the oldest one if there are more than twenty.
class BlockQueue {
public:
    void Push(std::unique_ptr<Block> block);
    std::unique_ptr<Block> Pop(); // null if the queue is empty

private:
    std::mutex m_mutex;
    std::deque<std::unique_ptr<Block>> m_blocks; // guarded by m_mutex
};

// A write sets an event, for which a thread waits as the idle watchdog does, and makes one query of an open
// registry key. It decodes the unit, converts it and queues the block.
class WriteFloor {
public:
    // Throws std::runtime_error if the registry key, the event or the decoder cannot be created.
    explicit WriteFloor(BlockQueue &queue);
    ~WriteFloor();
    WriteFloor(const WriteFloor &) = delete;
    WriteFloor &operator=(const WriteFloor &) = delete;

    void Write(const AacUnit &unit);

private:
    void WaitAsWatchdog();

    BlockQueue &m_queue;
    BareDecoder m_decoder;
    HKEY m_key = nullptr;
    HANDLE m_event = nullptr;
    std::atomic<bool> m_stop{false};
    std::thread m_watchdog;
};

} // namespace velto::bench
