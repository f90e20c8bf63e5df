#include "capture/packet_reader.h"

#include <cstring>

#include "support/deadline.h"

namespace velto {

void PacketReader::Wait(std::chrono::milliseconds timeout, const std::atomic<bool> &stop)
{
    std::unique_lock lock(m_dataMutex);
    if (m_packets.DataCount() == 0 && !stop) {
        m_dataCondition.wait_until(lock, DeadlineAfter(timeout));
    }
}

void PacketReader::NotifyPacket()
{
    const std::lock_guard lock(m_dataMutex);
    m_dataCondition.notify_one();
}

void PacketReader::NotifyStop()
{
    const std::lock_guard lock(m_dataMutex);
    m_dataCondition.notify_all();
}

void PacketReader::Copy(uint8_t *buffer, uint32_t &size)
{
    // Without the lock, two reads could count the same packet, or ClearPackets could free the buffer in use.
    const std::lock_guard lock(m_readMutex);
    if (m_packets.DataCount() == 0 || buffer == nullptr) {
        size = 0;
        return;
    }
    AVEncodePacket *packet = m_packets.PopData();
    if (packet == nullptr || packet->data == nullptr) {
        return;
    }
    size = packet->size;
    if (size != 0) {
        std::memcpy(buffer, packet->data, size);
    }
    m_packets.PushFree(packet);
}

void PacketReader::ClearPackets()
{
    const std::lock_guard lock(m_readMutex);
    m_packets.StopAndClear();
}

} // namespace velto
