// One encoded unit in a reusable buffer.
#pragma once

#include <cstdint>

// Not locked: queues pass a packet between threads, and only the thread that has the packet uses it.
class AVEncodePacket {
public:
    AVEncodePacket();
    ~AVEncodePacket();
    AVEncodePacket(const AVEncodePacket &) = delete;
    AVEncodePacket &operator=(const AVEncodePacket &) = delete;

    uint8_t *data = nullptr; // the buffer; null if there is none
    uint32_t size = 0;       // bytes of the encoded unit
    int64_t timeStamp = 0;   // of the first sample; in samples, until RescalePacketTimeStamp

    // Replaces the buffer with one of `capacity` bytes, cleared if `zeroed`. Returns false, without a buffer,
    // if `capacity` is 0 or memory runs out.
    bool AllocBuffer(uint32_t capacity, bool zeroed);
    // Frees the buffer and sets the size to 0; keeps the time stamp. Can be called without a buffer.
    void ReleaseBuffer();

    uint32_t Capacity() const { return m_capacity; }

private:
    uint32_t m_capacity = 0;
};

// Converts a packet's time stamp from units of 1/`fromHz` to units of 1/`toHz` seconds, rounded to the
// nearest. Does nothing if the packet is null or a rate is 0.
void RescalePacketTimeStamp(AVEncodePacket *packet, uint32_t fromHz, uint32_t toHz);
