// The queue of encoded packets between the capture thread and the host's reads.
#pragma once

#include <cstdint>

#include "capture/buffer_queue.h"
#include "codec/av_encode_packet.h"

namespace velto {

// How many packets circulate: ten seconds of packets of `frameLength` samples per channel, and one more.
// `frameLength` must not be 0.
constexpr uint32_t PacketPoolSize(uint32_t sampleRateHz, uint32_t frameLength)
{
    constexpr uint32_t bufferedMs = 10000;
    return sampleRateHz * bufferedMs / 1000 / frameLength + 1;
}

// Clearing the queue frees the packets' buffers and leaks the records, sizeof(AVEncodePacket) each: a thread
// that still has a packet then finds a record without a buffer.
class AVPktBufQueue : public BufferQueue<AVEncodePacket *> {
public:
    AVPktBufQueue() = default;
    ~AVPktBufQueue() override;

    // Sets the size of each packet's buffer for later Init calls. 0 makes packets without a buffer. Must not
    // overlap with Init.
    void SetPacketBufferSize(uint32_t bytes) { m_packetBufferSize = bytes; }

protected:
    AVEncodePacket *CreateElement() override;
    // Frees the packet's buffer, not its record.
    void ReleaseElement(AVEncodePacket *packet) override;

private:
    static AVEncodePacket *NewRecord();

    uint32_t m_packetBufferSize = 0;
};

} // namespace velto
