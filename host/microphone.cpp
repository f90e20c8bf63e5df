#include "host/microphone.h"

namespace velto::host {
namespace {

// How many bytes are asked for. The number only tells the module how long to wait for a packet: as
// long as so much stereo PCM of 16 bits lasts, 20 ms, and a little. It is more than a packet can
// have (6144 bits a channel), so that a size that comes back as it went tells that nothing came.
constexpr uint32_t requestedBytes = 3840;
constexpr uint32_t longestPacket = 6144 / 8 * microphoneChannels;
static_assert(requestedBytes > longestPacket);

} // namespace

int32_t Microphone::Open()
{
    // The module wants a list and reads nothing of it.
    const AudioProfileEntry entry{VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, microphoneRateHz};
    const AudioProfileList list{1, 0, &entry};
    return m_table.OpenAudioRecord(m_device.Text(), m_device.Length(), nullptr, nullptr, &list);
}

int32_t Microphone::Close()
{
    return m_table.CloseAudioRecord(m_device.Text(), m_device.Length());
}

Microphone::Outcome Microphone::Read()
{
    StreamFrameHeader header{0, requestedBytes, 0};
    StreamFrame frame{m_buffer.data(), {}, &header};
    m_packetBytes = 0;
    m_result = m_table.ReadStreamBuffer(m_device.Text(), m_device.Length(), nullptr, &frame);
    if (m_result != VELTO_OK) {
        return Outcome::REFUSED;
    }
    if (header.size == requestedBytes) {
        return Outcome::STOPPED;
    }
    if (header.size == 0) {
        return Outcome::NOTHING;
    }
    if (header.size > longestPacket) {
        m_result = VELTO_ERROR_INVALID; // no packet has so many bytes: the module is not to be trusted
        return Outcome::REFUSED;
    }
    m_packetBytes = header.size;
    return Outcome::PACKET;
}

} // namespace velto::host
