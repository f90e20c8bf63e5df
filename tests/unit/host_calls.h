// Arguments of the host's calls, for tests that call the function table.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "velto/audio_handler.h"

namespace velto_test {

// The module releases the speakers after this time without a write.
inline constexpr DWORD idleMs = 240000;

inline uint32_t Length(const std::string &id)
{
    return static_cast<uint32_t>(id.size());
}

// A StreamFrame record with its header. The caller keeps the payload alive.
struct HostFrame {
    HostFrame(uint8_t *data, uint32_t size, int32_t streamType = 0)
        : header{streamType, size, 0}, frame{data, {}, &header}
    {
    }
    explicit HostFrame(std::vector<uint8_t> &bytes, int32_t streamType = 0)
        : HostFrame(bytes.data(), static_cast<uint32_t>(bytes.size()), streamType)
    {
    }
    HostFrame(const HostFrame &) = delete;
    HostFrame &operator=(const HostFrame &) = delete;

    StreamFrameHeader header;
    StreamFrame frame;
};

} // namespace velto_test
