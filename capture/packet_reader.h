// The host's side of the packet queue: waiting for a packet and copying it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "capture/avpkt_buf_queue.h"

namespace velto {

// How long a read may wait: the playing time of `requestedBytes` of 48000 Hz stereo 16-bit PCM (20 ms for
// 3840 bytes), plus 2 ms. 0 counts as 3840. The multiplication wraps at 32 bits: requests above about 100 MB
// result in an arbitrary wait of up to 9 minutes, or in a negative one, which ends at once.
constexpr std::chrono::milliseconds ReadWait(uint32_t requestedBytes)
{
    constexpr uint32_t bytesIn20Ms = 3840;
    const uint32_t bytes = requestedBytes < 1 ? bytesIn20Ms : requestedBytes;
    return std::chrono::milliseconds(static_cast<int32_t>(bytes * 20U) / int32_t{bytesIn20Ms} + 2);
}

// Any thread may call any operation.
class PacketReader {
public:
    // `packets` has to outlive the reader.
    explicit PacketReader(AVPktBufQueue &packets) : m_packets(packets) {}

    // Waits once for NotifyPacket, NotifyStop or the timeout. Returns at once if a packet is queued or
    // `stop` is set.
    void Wait(std::chrono::milliseconds timeout, const std::atomic<bool> &stop);
    // Wakes one read. To be called after a packet was queued.
    void NotifyPacket();
    // Wakes all reads. To be called after the stop flag was set.
    void NotifyStop();

    // Copies the oldest packet, sets `size` to its size in bytes and returns the packet to the free queue.
    // Sets `size` to 0 if there is no packet or `buffer` is null. A packet without data leaves `size`
    // unchanged and does not go to the free queue. `buffer` has room for the largest packet.
    void Copy(uint8_t *buffer, uint32_t &size);
    // Stops the queue and releases all packets. Waits for a read that is copying one.
    void ClearPackets();

private:
    friend class AudioCaptureProbe; // the unit tests' view of the members

    AVPktBufQueue &m_packets;
    std::mutex m_dataMutex; // for m_dataCondition
    std::condition_variable m_dataCondition;
    std::mutex m_readMutex; // locked while a read copies a packet and while the packets are cleared
};

} // namespace velto
