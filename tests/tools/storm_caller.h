// The calls of one thread of a storm. Their order and arguments are random; some units are damaged, and some
// arguments are wrong.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/tools/storm_figures.h"
#include "velto/audio_handler.h"

namespace velto_test {

using AacUnits = std::vector<std::vector<uint8_t>>;

// The random choices of one thread.
class RandomChoices {
public:
    explicit RandomChoices(uint32_t seed) : m_engine(seed) {}

    uint32_t Below(uint32_t bound) { return std::uniform_int_distribution<uint32_t>(0, bound - 1)(m_engine); }
    bool OneIn(uint32_t bound) { return Below(bound) == 0; }
    template <typename Values>
    const auto &AnyOf(const Values &values)
    {
        return values[Below(static_cast<uint32_t>(values.size()))];
    }

private:
    std::mt19937 m_engine;
};

// One thread makes the calls; any thread may ask for the figures.
class StormCaller {
public:
    // `pace` multiplies all times. The table, the units, of which there is at least one, and `stopped`
    // outlive this object. Once `stopped` is true, functions that make several calls end early.
    StormCaller(const AudioHandlerTable &table, const AacUnits &units, double pace,
                const std::atomic<bool> &stopped, uint32_t seed)
        : random(seed), m_table(table), m_units(units), m_pace(pace), m_stopped(stopped)
    {
    }

    // Writes up to 30 consecutive units at about the pace of playing.
    void Write(const std::string &id);
    void SetParameters();
    void CloseTrack();
    void QueryCapabilities();
    void ChangeListener();
    // Opens a microphone, reads for up to three seconds, and closes the microphone.
    void Record();
    void Read();
    // Closes both tracks, and removes the listener.
    void CloseAll();
    // Sleeps for a random time.
    void Pause(uint32_t longestMs);

    StormFigures Figures() const;

    RandomChoices random;

private:
    void WriteUnit(const std::string &id, std::vector<uint8_t> unit);
    void Note(std::string_view slot, int32_t result, bool isDocumented);

    const AudioHandlerTable &m_table;
    const AacUnits &m_units;
    const double m_pace;
    const std::atomic<bool> &m_stopped;

    // Each thread counts for itself. A lock that all threads share would put their calls in an order, and
    // would thereby hide data races from ThreadSanitizer.
    mutable std::mutex m_mutex;
    StormFigures m_figures; // guarded by m_mutex
};

} // namespace velto_test
