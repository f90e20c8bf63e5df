// Converts wide text to UTF-8 for a log line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace logging {

// Converts UTF-16 or UTF-32 to UTF-8; a pair of surrogates is one character in both. Invalid values (lone
// surrogates, values above U+10FFFF) become U+FFFD. Control characters and line separators become escapes
// (\n, \x1B, \u2028), so that a message can neither forge a line nor control a terminal. Text beyond
// `maxBytes` is replaced by an ellipsis.
std::string ToLogText(std::wstring_view message, std::size_t maxBytes);

} // namespace logging
