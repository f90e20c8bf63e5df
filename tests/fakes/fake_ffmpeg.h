// FFmpeg calls that a test can let fail; otherwise FFmpeg's own. tests/fakes/redirect.h leads the
// module's calls here.
#pragma once

#include <cstdint>

#include "tests/fakes/fault_script.h"

extern "C" {
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace fakeffmpeg {

enum class Call { swr_alloc, swr_init, swr_convert, av_samples_alloc, av_samples_get_buffer_size };

// A failing call returns `result`; swr_alloc returns null.
fakes::FaultScript<Call> &Script();

SwrContext *swr_alloc();
int swr_init(SwrContext *context);
int swr_convert(SwrContext *context, uint8_t **out, int outCount, const uint8_t **in, int inCount);
int av_samples_alloc(uint8_t **planes, int *lineSize, int channels, int samples, AVSampleFormat format, int align);
int av_samples_get_buffer_size(int *lineSize, int channels, int samples, AVSampleFormat format, int align);

} // namespace fakeffmpeg
