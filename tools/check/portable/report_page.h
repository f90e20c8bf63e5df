// The report of a run as one page of HTML that needs no other file, no network and no script.
#pragma once

#include <string>

#include "check/portable/results.h"

namespace velto::check {

// Well-formed XML, so that tests can parse it.
//
// Measured values named "X p50" and "X p99" become a bar for X; "X budget" is its limit. Their units are
// "ns", "µs", "ms" or "s". All other measured values are in a table.
std::string HtmlReport(const Run &run);

} // namespace velto::check
