// The calls of one thread of a storm. Their order and arguments are random; some units are damaged, and some
// arguments are wrong.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "check/portable/built_in_sound.h"
#include "check/portable/random.h"
#include "check/portable/storm_figures.h"
#include "velto/audio_handler.h"

namespace velto::check {

// The time of a storm: by default the system's.
struct StormTime {
    using Clock = std::chrono::steady_clock;

    std::function<void(std::chrono::microseconds)> sleep = [](std::chrono::microseconds time) {
        std::this_thread::sleep_for(time);
    };
    std::function<Clock::time_point()> now = Clock::now;
};

// One thread makes the calls; any thread may ask for the figures.
class StormCaller {
public:
    // `pace` multiplies all times. The table, the units, of which there is at least one, `time` and `stopped`
    // outlive this object. Once `stopped` is true, functions that make several calls end early.
    StormCaller(const AudioHandlerTable &table, const AacUnits &units, double pace, const StormTime &time,
                const std::atomic<bool> &stopped, uint64_t seed)
        : random(seed), m_table(table), m_units(units), m_pace(pace), m_time(time), m_stopped(stopped)
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

    Random random;

private:
    void WriteUnit(const std::string &id, std::vector<uint8_t> unit);
    void Note(std::string_view slot, int32_t result, bool isDocumented);

    const AudioHandlerTable &m_table;
    const AacUnits &m_units;
    const double m_pace;
    const StormTime &m_time;
    const std::atomic<bool> &m_stopped;

    // Each thread counts for itself. A lock that all threads share would put their calls in an order, and
    // would thereby hide data races from ThreadSanitizer.
    mutable std::mutex m_mutex;
    StormFigures m_figures; // guarded by m_mutex
};

} // namespace velto::check
