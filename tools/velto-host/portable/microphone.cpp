#include "velto-host/portable/microphone.h"

namespace velto::host {
namespace {

// The size that a read asks for. The module derives only its waiting time from this size: the duration of so
// many bytes of 16-bit stereo PCM, 20 ms, plus 2 ms. The size exceeds the longest packet (6144 bits per
// channel), so that an unchanged size means that there is no packet.
constexpr uint32_t requestedBytes = 3840;
constexpr uint32_t longestPacket = 6144 / 8 * microphoneChannels;
static_assert(requestedBytes > longestPacket);

} // namespace

int32_t Microphone::Open()
{
    // The module requires a list but does not read it.
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
        m_result = VELTO_ERROR_INVALID; // longer than any packet: the module is faulty
        return Outcome::REFUSED;
    }
    m_packetBytes = header.size;
    return Outcome::PACKET;
}

} // namespace velto::host
