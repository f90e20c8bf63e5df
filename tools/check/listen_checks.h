// Checks of what is heard: they play the watermark through the module and record the default loudspeaker.
//
// Where the system has no loopback recording, they are skipped; "listen.watermark" still plays its sound
// before, so that a recording from elsewhere can be compared: see heard_command.h.
#pragma once

#include <cstdint>
#include <span>

#include "check/portable/check.h"

namespace velto::check {

inline constexpr uint32_t framesOfListening = 280; // of the watermark in "listen.watermark": 6 s

std::span<const Check> ListenChecks(); // level 7

} // namespace velto::check
