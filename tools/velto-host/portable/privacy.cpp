#include "velto-host/portable/privacy.h"

#include <algorithm>
#include <utility>

namespace velto::host {
namespace {

char Folded(char c)
{
    if (c == '/') {
        return '\\';
    }
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool StartsWith(std::string_view text, std::string_view begin)
{
    return text.size() >= begin.size() && std::equal(begin.begin(), begin.end(), text.begin(),
                                                     [](char a, char b) { return Folded(a) == Folded(b); });
}

bool IsSlash(char c)
{
    return Folded(c) == '\\';
}

// Whether a path or a part of one ends here.
bool EndsPart(std::string_view rest)
{
    constexpr std::string_view ends = "\\/:\"'<>|,;)]\r\n\t ";
    return rest.empty() || ends.find(rest[0]) != std::string_view::npos;
}

} // namespace

Privacy::Privacy(std::string profile, std::string user, std::string computer)
    : m_profile(std::move(profile)), m_user(std::move(user)), m_computer(std::move(computer))
{
    while (!m_profile.empty() && IsSlash(m_profile.back())) {
        m_profile.pop_back();
    }
}

std::string Privacy::Without(std::string_view text) const
{
    std::string out;
    for (size_t i = 0; i < text.size();) {
        const std::string_view rest = text.substr(i);
        const auto replace = [&](std::string_view what, std::string_view by) {
            if (what.empty() || !StartsWith(rest, what) || !EndsPart(rest.substr(what.size()))) {
                return false;
            }
            out += by;
            i += what.size();
            return true;
        };
        const bool isPart = i > 0 && IsSlash(text[i - 1]);
        if (!replace(m_profile, "<profile>") &&
            !(isPart && (replace(m_user, "<user>") || replace(m_computer, "<computer>")))) {
            out += text[i++];
        }
    }
    return out;
}

} // namespace velto::host
