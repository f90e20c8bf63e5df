#include "playback/ffmpeg_decode.h"

#include <algorithm>
#include <new>
#include <utility>

#include "handler/log.h"
#include "support/checked_copy.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace velto {
namespace {

constexpr char initTag[] = "velto::FFmpegDecode::InitFFmpeg";
constexpr char swrTag[] = "velto::FFmpegDecode::InitSwrContext";
constexpr char decodeTag[] = "velto::FFmpegDecode::DecoderAudioFrame";
constexpr char resampleTag[] = "velto::FFmpegDecode::ResampleFrame";
constexpr char checkTag[] = "velto::FFmpegDecode::CheckNullPtrForDecoderValid";
constexpr char postTag[] = "velto::FFmpegDecode::PostAudioData";

constexpr int32_t maxSampleRateHz = 0x3FFFFFFF; // twice this rate fits into 32 bits

int32_t Failed(const char *tag, const char *message)
{
    LogError(tag, message);
    return -1;
}

// Separate function so that the LeakSanitizer suppression can name it.
AudioPlayBuffer *NewBlock()
{
    return new (std::nothrow) AudioPlayBuffer;
}

} // namespace

FFmpegDecode::FFmpegDecode(std::shared_ptr<AudioPlayThread> playThread, int32_t sampleRateHz)
    : audioPlayThread(std::move(playThread)), sampleRate(sampleRateHz)
{
}

FFmpegDecode::~FFmpegDecode()
{
    FreeFFmpegObjects();
}

int32_t FFmpegDecode::InitFFmpeg()
{
    formatContext = avformat_alloc_context();
    codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (formatContext == nullptr || codec == nullptr) {
        return -1;
    }
    codecContext = avcodec_alloc_context3(codec);
    if (codecContext == nullptr) {
        return Failed(initTag, "Could not allocate a decoding context");
    }
    av_channel_layout_default(&codecContext->ch_layout, channels);
    codecContext->sample_rate = sampleRate;
    // Such a rate fails without a log line. avcodec_open2 would refuse it, too, and that failure is logged.
    if (sampleRate > maxSampleRateHz) {
        return -1;
    }
    if (avcodec_open2(codecContext, codec, nullptr) < 0) {
        return Failed(initTag, "open codec fail");
    }
    decoderFrame = av_frame_alloc();
    if (decoderFrame == nullptr) {
        return Failed(initTag, "av_frame_alloc fail");
    }
    // A placeholder: the first decoded frame replaces it with a buffer of the right size.
    dstNbSamples = 2 * sampleRate;
    outBuffer = static_cast<uint8_t *>(av_malloc(static_cast<size_t>(dstNbSamples)));
    return InitSwrContext();
}

int32_t FFmpegDecode::InitSwrContext()
{
    swrContext = swr_alloc();
    if (swrContext == nullptr) {
        return Failed(swrTag, "swr_alloc failed");
    }
    packetToPlay = av_packet_alloc();
    if (packetToPlay == nullptr) {
        return Failed(swrTag, "av_packet_alloc failed");
    }
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    outSampleFmt = AV_SAMPLE_FMT_S16;
    outChannels = stereo.nb_channels;
    // Input and output have the same rate: the converter only changes the sample format.
    swr_alloc_set_opts2(&swrContext, &stereo, AV_SAMPLE_FMT_S16, sampleRate, &codecContext->ch_layout,
                        codecContext->sample_fmt, codecContext->sample_rate, 0, nullptr);
    if (swrContext == nullptr || swr_init(swrContext) < 0) {
        return Failed(swrTag, "swr_init failed");
    }
    return 0;
}

bool FFmpegDecode::CheckNullPtrForDecoderValid(const StreamFrame *data) const
{
    const char *missing = nullptr;
    if (data == nullptr || data->header == nullptr) {
        missing = "frame data or data->header is nullptr";
    } else if (decoderFrame == nullptr) {
        missing = "decoder frame is nullptr";
    } else if (packetToPlay == nullptr) {
        missing = "packetToPlay is null, can not decode audio frame";
    }
    if (missing != nullptr) {
        LogError(checkTag, missing);
    }
    return missing == nullptr;
}

void FFmpegDecode::DecoderAudioFrame(StreamFrame *data)
{
    if (!CheckNullPtrForDecoderValid(data)) {
        return;
    }
    packetToPlay->data = data->data;
    packetToPlay->size = static_cast<int>(data->header->size);
    // FFmpeg would dereference a null codec context or a null payload. It would treat a null payload of size
    // 0 as the end of the stream and refuse every later unit.
    const bool canSend = data->data != nullptr && codecContext != nullptr;
    const int result = canSend ? avcodec_send_packet(codecContext, packetToPlay) : AVERROR(EINVAL);
    if (result != 0) {
        LogError(decodeTag, "AUDIO decode error:", result);
        return;
    }
    while (avcodec_receive_frame(codecContext, decoderFrame) == 0) {
        if (!PostDecodedFrame()) {
            return;
        }
    }
}

bool FFmpegDecode::PostDecodedFrame()
{
    if (decoderFrame == nullptr) {
        LogError(decodeTag, "frame is null");
        return false;
    }
    if (ResampleFrame() != 0) {
        return false;
    }
    const uint8_t *const *const planes = decoderFrame->data;
    const auto missing = std::find(planes, planes + channels, nullptr) - planes;
    if (missing != channels) {
        LogError(decodeTag, "frame->data ", missing, " is null");
        return false;
    }
    const int converted =
        swr_convert(swrContext, &outBuffer, dstNbSamples, const_cast<const uint8_t **>(decoderFrame->data),
                    decoderFrame->nb_samples);
    if (converted < 0) {
        LogError(decodeTag, "convert failed, ret: ", converted);
        return false;
    }
    // Computed from the input count: at equal rates the output count is the same.
    const int size = av_samples_get_buffer_size(nullptr, outChannels, decoderFrame->nb_samples,
                                                static_cast<AVSampleFormat>(outSampleFmt), 1);
    if (size < 1) {
        LogError(decodeTag, "out_buffer_size too small");
        return false;
    }
    PostAudioData(outBuffer, size);
    return true;
}

// Makes room in outBuffer for the converted samples of the current frame. The buffer only grows.
int32_t FFmpegDecode::ResampleFrame()
{
    if (swrContext == nullptr) {
        return Failed(resampleTag, "swrContext is nullptr");
    }
    const int rate = decoderFrame->sample_rate;
    dstNbSamples = static_cast<int32_t>(
        av_rescale_rnd(swr_get_delay(swrContext, rate) + decoderFrame->nb_samples, rate, rate, AV_ROUND_UP));
    if (dstNbSamples > maxDstNbSamples || outBuffer == nullptr) {
        av_free(outBuffer);
        if (av_samples_alloc(&outBuffer, nullptr, outChannels, dstNbSamples,
                             static_cast<AVSampleFormat>(outSampleFmt), 1) < 0) {
            outBuffer = nullptr;
            return Failed(resampleTag, "av_samples_alloc failed");
        }
        maxDstNbSamples = dstNbSamples;
    }
    return 0;
}

void FFmpegDecode::PostAudioData(const uint8_t *pcm, int32_t size)
{
    if (pcm == nullptr) {
        LogError(postTag, "outBuffer is nullptr");
        return;
    }
    std::unique_ptr<AudioPlayBuffer> block(NewBlock());
    if (block == nullptr) {
        LogError(postTag, "new AudioPlayBuffer failed");
        return;
    }
    const auto bytes = static_cast<size_t>(size);
    std::unique_ptr<uint8_t[]> buf(new (std::nothrow) uint8_t[bytes]);
    if (buf == nullptr) {
        LogError(postTag, "new buf->buf failed");
        return;
    }
    if (CheckedCopy(buf.get(), bytes, pcm, bytes) == 0) {
        block->buf = buf.release();
        block->len = size;
        audioPlayThread->PushBuffer(block.release());
    } else {
        LogError(postTag, "memcpy_s failed");
    }
}

void FFmpegDecode::ReleaseFFmpeg()
{
    FreeFFmpegObjects();
}

void FFmpegDecode::FreeFFmpegObjects()
{
    av_frame_free(&decoderFrame);
    av_free(std::exchange(outBuffer, nullptr));
    swr_free(&swrContext);
    if (codecContext != nullptr) {
        avcodec_close(codecContext);
        codecContext = nullptr;
    }
    avformat_close_input(&formatContext);
    if (packetToPlay != nullptr) {
        av_packet_unref(packetToPlay);
        av_packet_free(&packetToPlay);
    }
}

} // namespace velto
