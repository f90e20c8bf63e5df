// A process that ends in the middle of using a module: the program of the checks of process ends.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace velto::check {

// What runs when the process ends.
inline constexpr std::array<std::string_view, 4> endSituations{"playing", "recording", "in-listener", "busy"};

inline constexpr int endUnknown = 2; // no such situation
inline constexpr int endRefused = 3; // the module does not load, or refuses to play or record
inline constexpr std::string_view lastWords = "ends the process";

// Loads the module (UTF-8, full path), brings it into the situation and ends the process with the exit code,
// without closing and freeing anything. Directly before the end, the journal of this process gets the step
// lastWords. Returns only on failure, with endUnknown or endRefused.
int EndProcessWhile(const std::string &modulePath, const std::string &how, int exitCode);

} // namespace velto::check
