// Tells the end of the process from the unloading of a module.
#pragma once

namespace logging {

// True once the system has ended all other threads of the process to let it exit. Locks that
// those threads held are never given back.
bool ProcessIsEnding() noexcept;

} // namespace logging
