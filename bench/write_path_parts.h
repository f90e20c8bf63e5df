// The parts of the write path besides decoding, each alone.
#pragma once

namespace velto::bench {

// Registers four benchmarks: one registry read of the stream type; one signal to a thread that waits as
// the idle watchdog does; one block that is allocated, filled and queued, which frees the oldest block of
// the full queue; one log line of the frame counter.
void RegisterWritePathParts(int iterations, int repetitions);

} // namespace velto::bench
