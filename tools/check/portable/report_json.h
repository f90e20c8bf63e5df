// The report of a run as JSON: docs/schemas/velto-host-check.schema.json documents the form.
//
// All that may differ between two runs with one module, level and seed is in the member "measured": times,
// texts of what was observed, heard sound, machine and date. Without it, the reports of two such runs are
// equal, byte for byte.
#pragma once

#include <string>
#include <string_view>

#include "check/portable/results.h"

namespace velto::check {

inline constexpr std::string_view reportSchema = "urn:velto:velto-host-check:1";

// Indented, with a line feed at the end. Replaces bytes that are not UTF-8.
std::string JsonReport(const Run &run);

// Reads what JsonReport wrote. An envelope comes back with four decimals, a number that is not finite as NaN.
// Throws std::runtime_error with a text for people if the text is no report, has another version of the form,
// or contradicts itself: for example a verdict that does not follow from the results.
Run ReadJsonReport(const std::string &text);

} // namespace velto::check
