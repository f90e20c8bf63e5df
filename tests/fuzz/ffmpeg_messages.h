// FFmpeg's messages, which tell a fuzzer how far inside FFmpeg an input came: its libraries are not
// instrumented, but say something on most of the ways that they take with a damaged stream.
#pragma once

namespace velto_fuzz {

// From now on messages are counted by their text's kind, and not printed.
void CountFFmpegMessages();

} // namespace velto_fuzz
