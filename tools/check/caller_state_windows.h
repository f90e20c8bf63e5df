// The state of the calling thread and the process under Windows.
#pragma once

#include <memory>

#include "check/portable/caller_state.h"

namespace velto::check {

// Covers the FFmpeg DLLs that are loaded when the object is made. One object with unusual values at a time.
std::unique_ptr<CallerState> MakeWindowsCallerState();

} // namespace velto::check
