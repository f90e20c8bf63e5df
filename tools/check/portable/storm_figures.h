// The results that the calls of a storm returned. A plain value, for one thread at a time.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace velto::check {

class StormFigures {
public:
    // How often each slot of the table returned which result.
    using Calls = std::map<std::string_view, std::map<int32_t, uint64_t>>;
    // Each difference from the documentation, and how often it was seen.
    using Differences = std::map<std::string, uint64_t>;

    // `slot` is a string literal. `isDocumented`: the result and all other outputs are as documented.
    void Note(std::string_view slot, int32_t result, bool isDocumented);
    void NotePacket() { ++m_packets; }
    void Add(const StormFigures &other);

    const Calls &CallsOfSlots() const { return m_calls; }
    const Differences &FromDocumentation() const { return m_differences; }
    // The number of calls that did not return the documented result.
    uint64_t Different() const;
    // The number of reads that returned a packet.
    uint64_t Packets() const { return m_packets; }

private:
    Calls m_calls;
    Differences m_differences;
    uint64_t m_packets = 0;
};

} // namespace velto::check
