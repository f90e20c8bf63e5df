// Replaces the platform's logging library in unit tests: records the module's log lines.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "logging/logger.h"

namespace fakes {

// One log entry. The module writes each twice: the text to its channel, then the text followed by "(tag)" to
// the singleton.
struct LogEntry {
    int level = 0;
    std::wstring text;
    std::string tag;
    bool inChannel = true; // false: written to the singleton only

    bool operator==(const LogEntry &) const = default;
};
void PrintTo(const LogEntry &entry, std::ostream *out);

// Thread-safe.
class LogRecorder {
public:
    static LogRecorder &Instance();

    void Clear();

    // All entries, in the order of their lines to the singleton. A line to the channel without a matching
    // line to the singleton (same thread, text and level) becomes an entry with the tag "?".
    std::vector<LogEntry> Entries() const;
    std::vector<LogEntry> EntriesOf(const std::string &tag) const;
    // Counts entries that were written to both sinks.
    int Count(int level, const std::wstring &text, const std::string &tag) const;
    // The channel name of each line to a channel.
    std::vector<std::string> Channels() const;
    // Waits for the entry. False after ten seconds.
    bool Await(int level, const std::wstring &text, const std::string &tag) const;
};

} // namespace fakes
