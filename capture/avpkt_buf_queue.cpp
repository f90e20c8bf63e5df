#include "capture/avpkt_buf_queue.h"

#include <new>

namespace velto {

AVPktBufQueue::~AVPktBufQueue()
{
    StopAndClear(); // while ReleaseElement is still this class's
}

AVEncodePacket *AVPktBufQueue::CreateElement()
{
    AVEncodePacket *packet = NewRecord();
    if (packet != nullptr && m_packetBufferSize != 0) {
        packet->AllocBuffer(m_packetBufferSize, false); // users look whether there is a buffer
    }
    return packet;
}

void AVPktBufQueue::ReleaseElement(AVEncodePacket *packet)
{
    if (packet != nullptr) {
        packet->ReleaseBuffer();
    }
}

// A function of its own, by which a leak checker knows the records apart from their buffers.
AVEncodePacket *AVPktBufQueue::NewRecord()
{
    return new (std::nothrow) AVEncodePacket;
}

} // namespace velto
