// FFmpeg functions that a test can make fail. Without a scripted result they call FFmpeg.
// tests/fakes/redirect.h redirects the module's calls here.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/fakes/fault_script.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace fakeffmpeg {

enum class Call {
    swr_alloc,
    swr_init, // a result of 0 or more is no error; the call does its work
    swr_convert,
    swr_alloc_set_opts2,                // likewise
    av_samples_alloc_array_and_samples, // likewise
    av_samples_alloc,                   // likewise
    av_samples_get_buffer_size,
    avformat_alloc_context,
    avcodec_find_decoder,
    avcodec_find_encoder,
    avcodec_alloc_context3,
    avcodec_open2, // a positive result is no error but the frame length of the opened codec
    av_frame_alloc,
    av_frame_make_writable,
    av_packet_alloc,
    avcodec_send_frame,
    avcodec_receive_packet, // a positive result is no error but the size of the packet
};

// Scripted for avcodec_open2: the call succeeds, but the codec has no extradata.
constexpr int64_t withoutConfiguration = INT64_C(1) << 40;

// A failing call returns `result`, or null where it returns a pointer.
fakes::FaultScript<Call> &Script();

// The arguments `align` of the calls that allocate or measure samples, and `logOffset` of
// swr_alloc_set_opts2, since the last Reset.
std::vector<int> Alignments();
std::vector<int> LogOffsets();

// Removes all scripted results, counts and records.
void Reset();

// Returns the first channel of the last frame that was sent to an encoder.
std::vector<float> SentSamples();

// The settings with which a codec was opened.
struct OpenedCodec {
    int sampleRateHz;
    int channels;
    int64_t bitRate;
    int profile;
    AVRational timeBase;
    int logLevelOffset;
};
// The last codec opened, whether or not opening it failed.
OpenedCodec LastOpenedCodec();

SwrContext *swr_alloc();
int swr_init(SwrContext *context);
int swr_convert(SwrContext *context, uint8_t **out, int outCount, const uint8_t **in, int inCount);
int swr_alloc_set_opts2(SwrContext **context, AVChannelLayout *outLayout, AVSampleFormat outFormat,
                        int outRate, AVChannelLayout *inLayout, AVSampleFormat inFormat, int inRate,
                        int logOffset, void *logContext);
int av_samples_alloc_array_and_samples(uint8_t ***planes, int *lineSize, int channels, int samples,
                                       AVSampleFormat format, int align);
int av_samples_alloc(uint8_t **planes, int *lineSize, int channels, int samples, AVSampleFormat format,
                     int align);
int av_samples_get_buffer_size(int *lineSize, int channels, int samples, AVSampleFormat format, int align);
AVFormatContext *avformat_alloc_context();
const AVCodec *avcodec_find_decoder(AVCodecID id);
const AVCodec *avcodec_find_encoder(AVCodecID id);
AVCodecContext *avcodec_alloc_context3(const AVCodec *codec);
int avcodec_open2(AVCodecContext *context, const AVCodec *codec, AVDictionary **options);
AVFrame *av_frame_alloc();
int av_frame_make_writable(AVFrame *frame);
AVPacket *av_packet_alloc();
int avcodec_send_frame(AVCodecContext *context, const AVFrame *frame);
int avcodec_receive_packet(AVCodecContext *context, AVPacket *packet);

} // namespace fakeffmpeg
