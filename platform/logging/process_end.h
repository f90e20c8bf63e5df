// Distinguishes the end of the process from the unloading of the module.
#pragma once

namespace logging {

// True once the system has killed all other threads because the process exits. Locks that those threads
// owned are never released.
bool ProcessIsEnding() noexcept;

} // namespace logging
