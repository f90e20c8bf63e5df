// How often each slot of the table returned what. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "host/output.h"

namespace velto::host {

class CallCounts {
public:
    void Note(const std::string &slot, int32_t result, int32_t documented);

    // {slot: {result: calls}}
    Json Report() const;
    // Calls that returned something else than documented.
    uint64_t Different() const;

private:
    mutable std::mutex m_mutex; // guards all below
    std::map<std::string, std::map<int32_t, uint64_t>> m_counts;
    uint64_t m_different = 0;
};

} // namespace velto::host
