// How many packets circulate between the encoder and the host.
#pragma once

#include <cstdint>

namespace velto {

// Ten seconds of packets of `frameLength` samples per channel, and one more. Whoever calls has seen
// that the frame length is not 0.
constexpr uint32_t PacketPoolSize(uint32_t sampleRateHz, uint32_t frameLength)
{
    constexpr uint32_t bufferedMs = 10000;
    return sampleRateHz * bufferedMs / 1000 / frameLength + 1;
}

} // namespace velto
