// Reads numbers and blocks from the bytes of a fuzz input, from front to back.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace velto_fuzz {

class Input {
public:
    Input(const uint8_t *data, size_t size) : m_rest(data, size) {}

    bool IsEmpty() const { return m_rest.empty(); }

    // At the end of the input, missing bytes of a number count as 0, and blocks are shorter.
    uint8_t Byte() { return static_cast<uint8_t>(Number(1)); }
    uint16_t Short() { return static_cast<uint16_t>(Number(2)); }
    uint32_t Word() { return Number(4); }

    std::span<const uint8_t> Block(size_t bytes)
    {
        const auto block = m_rest.first(std::min(bytes, m_rest.size()));
        m_rest = m_rest.subspan(block.size());
        return block;
    }

private:
    uint32_t Number(size_t bytes) // least significant byte first
    {
        uint32_t value = 0;
        uint32_t shift = 0;
        for (const uint8_t byte : Block(bytes)) {
            value |= uint32_t{byte} << shift;
            shift += 8;
        }
        return value;
    }

    std::span<const uint8_t> m_rest;
};

// Aborts the process when `isTrue` is false, so that the fuzzer records a finding.
inline void Expect(bool isTrue, const char *what)
{
    if (!isTrue) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

} // namespace velto_fuzz

// Each target defines this function. libFuzzer or replay_main.cpp calls it once per input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
