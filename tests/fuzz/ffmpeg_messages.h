// Reports FFmpeg's log messages to the fuzzer as coverage. FFmpeg's libraries are not instrumented, but log a
// message for most kinds of damage in a stream.
#pragma once

namespace velto_fuzz {

// From now on, counts FFmpeg's messages by their format text instead of printing them.
void CountFFmpegMessages();

} // namespace velto_fuzz
