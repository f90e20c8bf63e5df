// Gives the speakers back when nobody has used them for four minutes.
#pragma once

namespace velto {

// Starts the watchdog on a detached thread of its own; it ends after releasing once. Throws
// std::system_error when there can be no thread.
void StartIdleWatchdog();

} // namespace velto
