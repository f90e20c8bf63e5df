// Calls for the speakers, with the records of an ordinary host.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "check/portable/environment.h"
#include "velto/audio_handler.h"

namespace velto::check {

// Of the sound in a unit.
inline constexpr std::chrono::nanoseconds unitTime =
    std::chrono::nanoseconds(std::chrono::seconds(1)) * VELTO_UNIT_SAMPLES / VELTO_SAMPLE_RATE_HZ;

// Each returns the module's result. Any thread.
int32_t WriteUnit(const AudioHandlerTable &table, std::string_view id, std::span<const uint8_t> unit,
                  int32_t streamType = 3);
// SetAudioParameter with this entry alone. `key` is a literal.
int32_t SetParameter(const AudioHandlerTable &table, std::string_view id, std::string_view key,
                     uint32_t value);
// The same with the sample rate of the module's sound.
int32_t StartStream(const AudioHandlerTable &table, std::string_view id);
int32_t CloseTrack(const AudioHandlerTable &table, std::string_view id);

// Calls `write` with 0 to count - 1 at the pace of playing, each when its unit is due.
void WriteAtPace(Environment &environment, size_t count, const std::function<void(size_t)> &write);

} // namespace velto::check
