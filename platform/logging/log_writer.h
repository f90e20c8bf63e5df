// The writer that all channels of the module share.
//
// The log is opened at the first line and not at load, because the loader's lock is held during load. The
// file is closed when the module unloads; each line written after that opens and closes the file. While the
// writer holds its own lock, it makes no call that could need the loader's lock: a thread that unloads the
// module owns that lock and may be waiting to log.
#pragma once

#include <string_view>

#include "logging/logger.h"

namespace logging {

// Writes one line. Drops it if its level is filtered or no sink can be written. Any thread, at any time,
// also during load and unload. Never throws; keeps the thread's last error.
void WriteLine(LOG_MESSAGE_LEVEL level, const char *channel, std::wstring_view message) noexcept;

} // namespace logging
