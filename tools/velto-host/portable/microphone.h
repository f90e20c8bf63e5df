// Opens, reads and closes a microphone of the module. Portable: uses the table only.
//
// One thread, which Read may block for about 22 ms.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "velto/audio_handler.h"

namespace velto::host {

// A device id and its length, as every slot of the table takes them.
struct DeviceId {
    explicit DeviceId(std::string text) : id(std::move(text)) {}
    const char *Text() const { return id.c_str(); }
    uint32_t Length() const { return static_cast<uint32_t>(id.size()); }

    std::string id;
};

// The format of the module's microphones.
inline constexpr uint32_t microphoneRateHz = 48000;
inline constexpr uint32_t microphoneChannels = 2;

class Microphone {
public:
    enum class Outcome {
        PACKET,  // Packet() has a raw access unit
        NOTHING, // no packet is ready
        STOPPED, // no packet is ready, and the module is not capturing
        REFUSED, // the call returned an error: Result()
    };

    // `table` outlives this object.
    Microphone(const AudioHandlerTable &table, const std::string &device) : m_table(table), m_device(device)
    {
    }

    // Open and Close return the module's result.
    int32_t Open();
    int32_t Close();

    Outcome Read();

    // The packet of the last Read; valid until the next one.
    std::span<const uint8_t> Packet() const { return {m_buffer.data(), m_packetBytes}; }
    // The module's result for the last Read.
    int32_t Result() const { return m_result; }
    const DeviceId &Device() const { return m_device; }

private:
    const AudioHandlerTable &m_table;
    const DeviceId m_device;
    std::array<uint8_t, 8192> m_buffer{}; // as large as an ADTS header can state
    size_t m_packetBytes = 0;
    int32_t m_result = VELTO_OK;
};

} // namespace velto::host
