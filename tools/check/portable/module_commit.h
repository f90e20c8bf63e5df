// The commit from which a module was built, as its log names it.
#pragma once

#include <string>
#include <string_view>

namespace velto::check {

// From the first line that the module wrote into this log: "... [Logging] LibVeltoAudioHandler 1.0.0, commit
// 0123456789ab, ...". Empty without such a line.
std::string ModuleCommit(std::string_view log);

} // namespace velto::check
