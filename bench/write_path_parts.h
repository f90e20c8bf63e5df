// The parts of the write path besides decoding, each alone.
#pragma once

namespace velto::bench {

// Registers four benchmarks: reading the stream type from the registry; signalling a thread that waits as
// the idle watchdog does; allocating, filling and queueing a block, which frees the oldest block of the full
// queue; writing the log line that counts units.
void RegisterWritePathParts(int iterations, int repetitions);

} // namespace velto::bench
