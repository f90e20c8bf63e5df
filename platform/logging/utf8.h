// Wide text as it stands in a log line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace logging {

// Converts UTF-16 or UTF-32, whichever the platform's wchar_t holds, to UTF-8. What is no
// character (a lone surrogate, a value past U+10FFFF) becomes U+FFFD. Control characters and
// line separators are written as escapes (\n, \x1B, \u2028), so that no message can forge a
// line or drive a terminal. Text past `maxBytes` is replaced by an ellipsis.
std::string ToLogText(std::wstring_view message, std::size_t maxBytes);

} // namespace logging
