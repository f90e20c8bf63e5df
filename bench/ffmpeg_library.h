// Shared by the baselines and floors, which call FFmpeg's libraries and the system directly.
#pragma once

#include <stdexcept>
#include <string>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace velto::bench {

// Throws std::runtime_error if `success` is false; `what` names the step that failed.
inline void Require(bool success, const char *what)
{
    if (!success) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

} // namespace velto::bench
