// What the write path does beside decoding, each by itself.
#pragma once

namespace velto::bench {

// One registry read of the stream type; one signal to a thread that waits as the idle watchdog
// does; one block allocated, filled, queued and, as the queue is full, an old one freed; one line
// of the frame counter.
void RegisterWritePathParts(int iterations, int repetitions);

} // namespace velto::bench
