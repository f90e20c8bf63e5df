// One recording of the module's microphone, in which each read is compared with the contract.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "check/portable/context.h"

namespace velto::check {

// Open and Close belong to one thread; another one may read.
class Recording {
public:
    enum class Outcome {
        PACKET,  // Packet() has a unit
        NOTHING, // none came in time, or nothing is open
        STOPPED, // the module does not capture
        WRONG,   // reported: a result or a size that breaks the contract
    };

    // The context outlives this object.
    Recording(Context &context, std::string id);

    // Return the module's result.
    int32_t Open() const;
    int32_t Close() const;
    // The same calls; another result than 0 is reported.
    void ExpectOpens() const;
    void ExpectCloses() const;

    // Reads once. Reports each rule of reading that is broken. `requested`: the size before the call.
    Outcome Read(uint32_t requested = VELTO_READ_SIZE);
    // Reads until a packet comes, for ten seconds at most. False without one; ends the check after a WRONG
    // read.
    bool ReadUntilPacket(uint32_t requested = VELTO_READ_SIZE);

    // Of the last read that returned PACKET.
    std::span<const uint8_t> Packet() const { return {m_memory->Data(), m_packetBytes}; }

private:
    uint32_t Length() const { return static_cast<uint32_t>(m_id.size()); }
    bool IsUntouched(size_t first) const;
    Outcome Classify(uint32_t size, uint32_t requested);

    Context &m_context;
    const std::string m_id;
    const std::unique_ptr<GuardedMemory> m_memory;
    size_t m_packetBytes = 0;
};

} // namespace velto::check
