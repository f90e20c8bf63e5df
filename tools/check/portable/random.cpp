#include "check/portable/random.h"

namespace velto::check {

Random::Random(uint64_t seed, std::string_view checkName) : m_state(seed)
{
    // FNV-1a over the name.
    uint64_t hash = 0xCBF29CE484222325;
    for (const char letter : checkName) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001B3;
    }
    m_state ^= hash;
}

uint64_t Random::Next()
{
    m_state += 0x9E3779B97F4A7C15;
    uint64_t mixed = m_state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

uint32_t Random::Below(uint32_t bound)
{
    // Values of the incomplete last interval are drawn again.
    const uint64_t end = UINT64_MAX - UINT64_MAX % bound;
    uint64_t value = Next();
    while (value >= end) {
        value = Next();
    }
    return static_cast<uint32_t>(value % bound);
}

} // namespace velto::check
