// Makes text from a file safe to show.
#pragma once

#include <string>
#include <string_view>

namespace velto::host {

// The text with U+FFFD for each byte that is no UTF-8 and for each control character. A console interprets
// control characters, and fmt refuses to print invalid UTF-8 to one.
std::string PrintableText(std::string_view text);

} // namespace velto::host
