// A check of loudspeaker and microphone together, through the air: only with --speak, because it is heard in
// the room.
#pragma once

#include <span>

#include "check/portable/check.h"

namespace velto::check {

std::span<const Check> SpeakChecks();

} // namespace velto::check
