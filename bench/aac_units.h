// Reads the units of an ADTS file, without their headers, as a host sends them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velto::bench {

using AacUnit = std::vector<uint8_t>;

// Throws std::runtime_error when the file is not an ADTS stream at 48000 Hz, the rate that the module
// assumes for raw units.
std::vector<AacUnit> ReadAacUnits(const std::string &path);

} // namespace velto::bench
