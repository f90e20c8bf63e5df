// How long a read may wait for a packet.
#pragma once

#include <chrono>
#include <cstdint>

namespace velto {

// The playing time of so many bytes of 48000 Hz stereo 16-bit PCM (20 ms for 3840), plus 2 ms. A
// request of 0 counts as 3840. The product wraps at 32 bits: a request beyond about 100 MB may
// give any wait up to 9 minutes, or a negative one, which is none.
constexpr std::chrono::milliseconds ReadWait(uint32_t requestedBytes)
{
    const uint32_t bytes = requestedBytes < 1 ? 3840 : requestedBytes;
    return std::chrono::milliseconds(static_cast<int32_t>(bytes * 20U) / 3840 + 2);
}

} // namespace velto
