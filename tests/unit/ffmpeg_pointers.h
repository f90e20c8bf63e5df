// Owning pointers to FFmpeg objects, for tests.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace velto_test {

struct FreeFFmpegObject {
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};

using CodecContextPointer = std::unique_ptr<AVCodecContext, FreeFFmpegObject>;
using FramePointer = std::unique_ptr<AVFrame, FreeFFmpegObject>;
using PacketPointer = std::unique_ptr<AVPacket, FreeFFmpegObject>;

} // namespace velto_test
