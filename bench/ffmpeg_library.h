// What the comparisons with the bare FFmpeg libraries share.
#pragma once

#include <stdexcept>
#include <string>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace velto::bench {

// Throws std::runtime_error when a step of FFmpeg failed; `what` names the step.
inline void Require(bool success, const char *what)
{
    if (!success) {
        throw std::runtime_error(std::string("FFmpeg: ") + what + " failed");
    }
}

} // namespace velto::bench
