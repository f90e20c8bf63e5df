// Everything at once, at random: writers on both speakers, parameters, closes, capabilities, the
// listener, a microphone that is opened, read and closed, and somebody else who reads it meanwhile.
// Now and then a unit is damaged or an argument wrong.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/call_counts.h"
#include "host/device_id.h"
#include "host/microphone.h"
#include "velto/audio_handler.h"

namespace velto::host {

using AacUnits = std::vector<std::vector<uint8_t>>;

class Storm {
public:
    // Starts a thread for each part. `units` is not empty. The first three outlive this object.
    Storm(const AudioHandlerTable &table, const AacUnits &units, CallCounts &counts, uint32_t seed);
    // Stops.
    ~Storm();
    Storm(const Storm &) = delete;
    Storm &operator=(const Storm &) = delete;

    // Waits until all parts have ended; the tracks and the microphone are closed then.
    void Stop();

    uint64_t Packets() const { return m_packets; }

private:
    using Random = std::mt19937;

    void Repeat(uint32_t seed, int mostPauseMs, const std::function<void(Random &)> &act);
    void Write(const DeviceId &id, Random &random);
    void SetParameters(Random &random);
    void CloseTrack(Random &random);
    void AskCapabilities();
    void ChangeListener(Random &random);
    void Record(Random &random);
    void ReadOnce(Microphone &microphone);

    const AudioHandlerTable &m_table;
    const AacUnits &m_units;
    CallCounts &m_counts;
    std::atomic<bool> m_stopped{false};
    std::atomic<uint64_t> m_packets{0};
    std::vector<std::thread> m_threads;
};

} // namespace velto::host
