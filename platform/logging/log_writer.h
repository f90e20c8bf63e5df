// The one writer behind all channels of a process.
//
// It opens the log at the first line and not before, because the loader's lock is held while
// the module is loaded. When the module unloads, the file is closed; a line that is written
// still later opens the file for itself. While it holds its own lock the writer calls nothing
// that could need the loader's lock: a thread that unloads the module may be waiting to log.
#pragma once

#include <string_view>

#include "logging/logger.h"

namespace logging {

// Writes one line, or drops it when the level is filtered or no sink can be written. Any thread,
// any time. Never throws; keeps the thread's last error.
void WriteLine(LOG_MESSAGE_LEVEL level, const char *channel, std::wstring_view message) noexcept;

} // namespace logging
