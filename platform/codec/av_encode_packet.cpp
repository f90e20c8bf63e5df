#include "codec/av_encode_packet.h"

#include <cstring>
#include <new>

extern "C" {
#include <libavutil/mathematics.h>
}

AVEncodePacket::AVEncodePacket() = default;

AVEncodePacket::~AVEncodePacket()
{
    ReleaseBuffer();
}

bool AVEncodePacket::AllocBuffer(uint32_t capacity, bool zeroed)
{
    ReleaseBuffer();
    if (capacity == 0) {
        return false;
    }
    data = new (std::nothrow) uint8_t[capacity];
    if (data == nullptr) {
        return false;
    }
    m_capacity = capacity;
    if (zeroed) {
        std::memset(data, 0, capacity);
    }
    return true;
}

void AVEncodePacket::ReleaseBuffer()
{
    delete[] data;
    data = nullptr;
    size = 0;
    m_capacity = 0;
}

void RescalePacketTimeStamp(AVEncodePacket *packet, uint32_t fromHz, uint32_t toHz)
{
    if (packet == nullptr || fromHz == 0 || toHz == 0) {
        return;
    }
    packet->timeStamp = av_rescale(packet->timeStamp, toHz, fromHz);
}
