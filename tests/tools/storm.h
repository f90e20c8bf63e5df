// Makes all calls of the table at once and at random, from eight threads: writes to both speakers,
// parameters, closes, capabilities, the listener, a microphone that is opened, read and closed, and another
// reader of the microphone. Some units are damaged and some arguments are wrong.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "velto-host/json.h"
#include "velto-host/portable/microphone.h"
#include "velto/audio_handler.h"

namespace velto_test {

using velto::host::DeviceId;
using velto::host::Json;
using velto::host::Microphone;

using AacUnits = std::vector<std::vector<uint8_t>>;

// How often each slot of the table returned which result. Any thread.
class CallCounts {
public:
    void Note(const std::string &slot, int32_t result, int32_t documented);

    // {slot: {result: calls}}
    Json Report() const;
    // The number of calls that did not return the documented result.
    uint64_t Different() const;

private:
    mutable std::mutex m_mutex; // guards all below
    std::map<std::string, std::map<int32_t, uint64_t>> m_counts;
    uint64_t m_different = 0;
};

class Storm {
public:
    // Starts the threads. `units` is not empty. The first three arguments outlive this object.
    Storm(const AudioHandlerTable &table, const AacUnits &units, CallCounts &counts, uint32_t seed);
    // Stops.
    ~Storm();
    Storm(const Storm &) = delete;
    Storm &operator=(const Storm &) = delete;

    // Waits for the threads, and closes the tracks; the microphone is closed then.
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

} // namespace velto_test
