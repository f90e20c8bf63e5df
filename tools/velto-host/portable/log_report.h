// Shows what a log analysis found: as text, and as a page with a plot.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "velto-host/portable/log_analysis.h"

namespace velto::host {

// One point or period of the time line.
struct TimeLineEntry {
    int64_t beginMs = 0;
    int64_t endMs = 0;
    RowKind kind = RowKind::NOTE;
    std::string text;
};

// Streams, recordings and events in the order of their begins.
std::vector<TimeLineEntry> TimeLine(const LogResult &result);

// The text for people, one element for each line; printable, whatever the log contains. The time line ends
// after `mostEntries`.
std::vector<std::string> LogReport(const LogResult &result, size_t mostEntries);

// A page of HTML that needs no other file. `title` is the log's name.
std::string LogPage(const LogResult &result, std::string_view title);

} // namespace velto::host
