// One encoded frame, in a buffer that is made once and filled again and again.
#pragma once

#include <cstdint>

// Passed between threads as a whole: whoever holds it owns its fields.
class AVEncodePacket {
public:
    AVEncodePacket();
    ~AVEncodePacket();
    AVEncodePacket(const AVEncodePacket &) = delete;
    AVEncodePacket &operator=(const AVEncodePacket &) = delete;

    uint8_t *data = nullptr; // null without a buffer
    uint32_t size = 0;       // bytes of the encoded frame
    int64_t timeStamp = 0;   // of the first sample, in samples until it is rescaled

    // Makes a buffer of `capacity` bytes instead of the one before; `zeroed` clears it. False for
    // 0 bytes or without memory: then there is none.
    bool AllocBuffer(uint32_t capacity, bool zeroed);
    // Gives the buffer back; the time stamp is left alone. Can be repeated.
    void ReleaseBuffer();

    uint32_t Capacity() const { return m_capacity; }

private:
    uint32_t m_capacity = 0;
};

// Converts a packet's time stamp from units of 1/`fromHz` to units of 1/`toHz` seconds, rounding
// to the nearest. A rate of 0 leaves it alone, and a null packet is ignored.
void RescalePacketTimeStamp(AVEncodePacket *packet, uint32_t fromHz, uint32_t toHz);
