// Removes what is personal from texts of a report.
#pragma once

#include <string>
#include <string_view>

namespace velto::host {

class Privacy {
public:
    // `profile` is the user's folder, such as C:\Users\Anna. Empty arguments are ignored.
    Privacy(std::string profile, std::string user, std::string computer);

    // Replaces the profile's path by "<profile>". Replaces the name of the user or computer by "<user>" or
    // "<computer>" where it is a part of a path. Elsewhere a name may be an ordinary word, and stays. Ignores
    // the case of ASCII letters, and does not distinguish the two slashes.
    std::string Without(std::string_view text) const;

private:
    std::string m_profile;
    std::string m_user;
    std::string m_computer;
};

} // namespace velto::host
