#include "bench/aac_units.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace velto::bench {

std::vector<AacUnit> ReadAacUnits(const std::string &path)
{
    constexpr size_t shortHeader = 7;
    constexpr size_t checksum = 2;
    constexpr unsigned index48000Hz = 3;

    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                     std::istreambuf_iterator<char>());
    std::vector<AacUnit> units;
    for (size_t at = 0; at + shortHeader <= bytes.size();) {
        const uint8_t *header = bytes.data() + at;
        const bool isSync = header[0] == 0xFF && (header[1] & 0xF6) == 0xF0;
        const bool hasChecksum = (header[1] & 1) == 0;
        const size_t length = ((header[3] & 3U) << 11) | (header[4] << 3) | (header[5] >> 5);
        const size_t headerLength = shortHeader + (hasChecksum ? checksum : 0);
        if (!isSync || ((header[2] >> 2) & 0xFU) != index48000Hz || length <= headerLength ||
            at + length > bytes.size()) {
            throw std::runtime_error(path + " is not an ADTS stream at 48000 Hz");
        }
        units.emplace_back(header + headerLength, header + length);
        at += length;
    }
    if (units.empty()) {
        throw std::runtime_error(path + " has no units");
    }
    return units;
}

} // namespace velto::bench
