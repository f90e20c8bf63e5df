// The text of the log's first line, which names the build and the system.
#pragma once

#include <string>

namespace logging {

// "LibVeltoAudioHandler 1.0.0, commit 0123456789ab, build id <GUID and age>, FFmpeg 5.1.9,
// Windows 10.0.19045". The version of FFmpeg is that of the build. Under Wine, the system is Wine's version.
// Needs the loader's lock.
std::string FirstLine();

// The build id of the binary that contains this code, as symbol servers write it; "none" without one.
std::string BuildId();

} // namespace logging
