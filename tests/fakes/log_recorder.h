// Replaces the platform's logging library in unit tests: keeps what the module reports.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "logging/logger.h"

namespace fakes {

// One report of the module: the same text to the channel and, followed by "(" tag ")", to the
// singleton.
struct LogEntry {
    int level = 0;
    std::wstring text;
    std::string tag;
    bool inChannel = true; // false: went to the singleton alone

    bool operator==(const LogEntry &) const = default;
};
void PrintTo(const LogEntry &entry, std::ostream *out);

// Any thread.
class LogRecorder {
public:
    static LogRecorder &Instance();

    void Clear();

    // All reports, in the order of their second line. A line to the channel that its thread does
    // not follow up with the singleton's, of the same text and level, shows as an entry with the
    // tag "?".
    std::vector<LogEntry> Entries() const;
    std::vector<LogEntry> EntriesOf(const std::string &tag) const;
    // Reports in both sinks.
    int Count(int level, const std::wstring &text, const std::string &tag) const;
    // The channel's name of each line that went to a channel.
    std::vector<std::string> Channels() const;
    // True when the report is there, or comes within ten seconds.
    bool Await(int level, const std::wstring &text, const std::string &tag) const;
};

} // namespace fakes
