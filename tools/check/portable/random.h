// The random numbers of the checks: the same sequence for a seed with every compiler and library, which
// std::uniform_int_distribution does not promise.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace velto::check {

// SplitMix64 (Steele, Lea and Flood, 2014). One thread.
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    // A separate sequence for a check, so that the choice of checks does not change their inputs.
    Random(uint64_t seed, std::string_view checkName);

    uint64_t Next();
    // 0 to bound - 1; every value is equally likely. bound > 0.
    uint32_t Below(uint32_t bound);
    bool OneIn(uint32_t bound) { return Below(bound) == 0; }
    template <typename Value>
    const Value &AnyOf(std::span<const Value> values)
    {
        return values[Below(static_cast<uint32_t>(values.size()))];
    }

private:
    uint64_t m_state;
};

} // namespace velto::check
