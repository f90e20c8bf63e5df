// Text as HTML, for pages that this program writes.
#pragma once

#include <string>
#include <string_view>

namespace velto::host {

// For text and attributes. U+FFFD replaces bytes that are no UTF-8 and control characters.
std::string EscapeHtml(std::string_view text);

// The same for XML 1.0, which also forbids U+FFFE and U+FFFF.
std::string EscapeXml(std::string_view text);

// The Markdown of a sentence: code stays code, and a link becomes its label.
std::string HtmlOfMarkdown(std::string_view markdown);

} // namespace velto::host
