// Plays a sound on the default loudspeaker without the module, as a control of what is heard through it.
//
// The sound belongs to this process's default audio session, so it has the same volume as the module's. The
// sound system converts it to the loudspeaker's format.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>

namespace velto::check {

// The loudspeaker cannot play here and now; the text is the reason.
class SoundPlayerError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Plays interleaved stereo at 48000 Hz and returns when its last frame was played. Returns the performance
// counter at its begin, in units of 100 ns. Enters the multi-threaded COM apartment for the call. Throws
// SoundPlayerError.
uint64_t PlayWithoutModule(std::span<const float> interleaved);

} // namespace velto::check
