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

// Whether a name ends here: no letter, digit, hyphen or underscore follows, and no character outside ASCII.
bool EndsName(std::string_view rest)
{
    if (rest.empty()) {
        return true;
    }
    const char c = Folded(rest[0]);
    const bool continues = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                           static_cast<unsigned char>(c) >= 0x80;
    return !continues;
}

bool IsName(std::string_view text, std::string_view name)
{
    return !name.empty() && StartsWith(text, name) && EndsName(text.substr(name.size()));
}

} // namespace

Privacy::Privacy(std::vector<std::string> profiles, std::string user, std::string computer)
    : m_profiles(std::move(profiles)),
      m_names{{std::move(user), "<user>"}, {std::move(computer), "<computer>"}}
{
    for (std::string &profile : m_profiles) {
        while (!profile.empty() && IsSlash(profile.back())) {
            profile.pop_back();
        }
        m_names.push_back({profile.substr(profile.find_last_of("\\/") + 1), "<user>"});
    }
}

std::string Privacy::Without(std::string_view text) const
{
    std::string out;
    for (size_t i = 0; i < text.size();) {
        const std::string_view rest = text.substr(i);
        const auto profile = std::find_if(m_profiles.begin(), m_profiles.end(),
                                          [&](const std::string &each) { return IsName(rest, each); });
        if (profile != m_profiles.end()) {
            out += "<profile>";
            i += profile->size();
            continue;
        }
        const bool isPart = i > 0 && IsSlash(text[i - 1]);
        const auto name = std::find_if(m_names.begin(), m_names.end(),
                                       [&](const Name &each) { return isPart && IsName(rest, each.text); });
        if (name != m_names.end()) {
            out += name->replacement;
            i += name->text.size();
            continue;
        }
        out += text[i++];
    }
    return out;
}

std::string Privacy::PathWithout(std::string_view path) const
{
    return Without("\\" + std::string(path)).substr(1);
}

} // namespace velto::host
