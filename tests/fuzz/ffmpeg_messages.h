// Reports FFmpeg's messages to the fuzzer as coverage. FFmpeg's libraries are not instrumented, but they
// print a message on most paths that a damaged stream takes.
#pragma once

namespace velto_fuzz {

// Counts later messages by their format text instead of printing them.
void CountFFmpegMessages();

} // namespace velto_fuzz
