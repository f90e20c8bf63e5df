// Removes what is personal from texts of a report.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velto::host {

class Privacy {
public:
    // `profiles` are the paths of the user's folder, such as C:\Users\Anna and its short form. Empty
    // arguments are ignored.
    Privacy(std::vector<std::string> profiles, std::string user, std::string computer);

    // Replaces a profile's path by "<profile>". Replaces the name of the user or computer by "<user>" or
    // "<computer>" where it begins a part of a path; the name of the user's folder counts as the user's.
    // Elsewhere a name may be an ordinary word, and stays, as do longer names that begin with it. Ignores the
    // case of ASCII letters, and does not distinguish the two slashes.
    std::string Without(std::string_view text) const;

    // The same for a path, which can begin with a name.
    std::string PathWithout(std::string_view path) const;

private:
    struct Name {
        std::string text;
        std::string_view replacement;
    };

    std::vector<std::string> m_profiles;
    std::vector<Name> m_names;
};

} // namespace velto::host
