#include "velto-host/portable/html_text.h"

#include <cstddef>

#include "velto-host/portable/printable_text.h"
#include "velto-host/portable/troubleshooting.h"

namespace velto::host {

std::string EscapeHtml(std::string_view text)
{
    std::string out;
    for (const char c : PrintableText(text)) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
            break;
        }
    }
    return out;
}

std::string EscapeXml(std::string_view text)
{
    constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD
    std::string escaped = EscapeHtml(text);
    for (const std::string_view forbidden : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
        for (size_t at = 0; (at = escaped.find(forbidden, at)) != std::string::npos;) {
            escaped.replace(at, forbidden.size(), replacement);
        }
    }
    return escaped;
}

std::string HtmlOfMarkdown(std::string_view markdown)
{
    std::string html;
    bool isCode = false;
    while (!markdown.empty()) {
        const size_t mark = markdown.find('`');
        const std::string_view part = markdown.substr(0, mark);
        html += EscapeHtml(isCode ? std::string(part) : PlainText(part));
        if (mark == std::string_view::npos) {
            break;
        }
        isCode = !isCode;
        html += isCode ? "<code>" : "</code>";
        markdown.remove_prefix(mark + 1);
    }
    return html;
}

} // namespace velto::host
