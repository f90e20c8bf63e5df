// A microphone of the module: opened, read packet by packet, closed. Portable: sees the table only.
//
// One thread, which Read may keep for about 22 ms.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "host/device_id.h"
#include "velto/audio_handler.h"

namespace velto::host {

// What the module's microphones send.
inline constexpr uint32_t microphoneRateHz = 48000;
inline constexpr uint32_t microphoneChannels = 2;
inline constexpr uint32_t samplesPerPacket = 1024; // per channel

class Microphone {
public:
    enum class Outcome {
        PACKET,  // Packet() holds a raw access unit
        NOTHING, // there was none at this time
        STOPPED, // there was none, and the module captures nothing now
        REFUSED, // the call returned an error: Result()
    };

    // `table` outlives this object.
    Microphone(const AudioHandlerTable &table, const std::string &device) : m_table(table), m_device(device)
    {
    }

    // These two return what the module returned.
    int32_t Open();
    int32_t Close();

    Outcome Read();

    // The bytes that the last Read gave; valid until the next one.
    std::span<const uint8_t> Packet() const { return {m_buffer.data(), m_packetBytes}; }
    // What the module returned to the last Read.
    int32_t Result() const { return m_result; }
    const DeviceId &Device() const { return m_device; }

private:
    const AudioHandlerTable &m_table;
    const DeviceId m_device;
    std::array<uint8_t, 8192> m_buffer{}; // the length in an ADTS header ends here
    size_t m_packetBytes = 0;
    int32_t m_result = VELTO_OK;
};

} // namespace velto::host
