// The encoded packets between the capture thread and the host's reads.
#pragma once

#include <cstdint>

#include "capture/buffer_queue.h"
#include "codec/av_encode_packet.h"

namespace velto {

// The packets' records outlive the queue: whoever still holds one when the queue is cleared finds
// it without a buffer, but finds it. What each costs is the size of AVEncodePacket.
class AVPktBufQueue : public BufferQueue<AVEncodePacket *> {
public:
    AVPktBufQueue() = default;
    ~AVPktBufQueue() override;

    // Bytes of each packet's buffer from the next Init on; 0 makes packets without one. Not while
    // another thread may call Init.
    void SetPacketBufferSize(uint32_t bytes) { m_packetBufferSize = bytes; }

protected:
    AVEncodePacket *CreateElement() override;
    // Gives the packet's buffer back, not its record.
    void ReleaseElement(AVEncodePacket *packet) override;

private:
    static AVEncodePacket *NewRecord();

    uint32_t m_packetBufferSize = 0;
};

} // namespace velto
