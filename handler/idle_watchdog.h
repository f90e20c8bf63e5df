// Releases the speakers after four minutes without a write.
#pragma once

namespace velto {

// Starts the watchdog on a detached thread, which ends after one release. Throws std::system_error when no
// thread can be created.
void StartIdleWatchdog();

} // namespace velto
