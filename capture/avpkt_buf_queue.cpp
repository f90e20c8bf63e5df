#include "capture/avpkt_buf_queue.h"

#include <new>

namespace velto {

AVPktBufQueue::~AVPktBufQueue()
{
    StopAndClear(); // here, because the base class's destructor would not call this ReleaseElement
}

AVEncodePacket *AVPktBufQueue::CreateElement()
{
    AVEncodePacket *packet = NewRecord();
    if (packet != nullptr && m_packetBufferSize != 0) {
        // On failure the packet has no buffer, and the encoder refuses it.
        packet->AllocBuffer(m_packetBufferSize, false);
    }
    return packet;
}

void AVPktBufQueue::ReleaseElement(AVEncodePacket *packet)
{
    if (packet != nullptr) {
        packet->ReleaseBuffer();
    }
}

// Separate function so that the LeakSanitizer suppression can name it.
AVEncodePacket *AVPktBufQueue::NewRecord()
{
    return new (std::nothrow) AVEncodePacket;
}

} // namespace velto
