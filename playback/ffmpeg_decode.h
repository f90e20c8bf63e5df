// The AAC decoder of one speaker.
#pragma once

#include <cstdint>
#include <memory>

#include "playback/audio_play_thread.h"
#include "velto/audio_handler.h"

struct AVCodec;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace velto {

// Decodes AAC-LC with FFmpeg to interleaved signed 16-bit stereo and pushes each decoded frame as one block
// to the speaker's play thread. Always opens as stereo at the rate given at construction.
//
// Threads: InitFFmpeg and DecoderAudioFrame run on host threads that write units. The caller serialises them.
//
// contract only: the base class and the virtual function
struct FFmpegDecode final : public std::enable_shared_from_this<FFmpegDecode> {
    FFmpegDecode(std::shared_ptr<AudioPlayThread> playThread, int32_t sampleRateHz);
    ~FFmpegDecode();
    FFmpegDecode(const FFmpegDecode &) = delete;
    FFmpegDecode &operator=(const FFmpegDecode &) = delete;

    // Sets up the decoder. Returns 0 or -1. A second call, after an idle release, overwrites the objects of
    // the first without freeing them, by contract: docs/known-leaks.md.
    int32_t InitFFmpeg();
    // Decodes one unit, whose payload is read during the call only. A unit that FFmpeg refuses is dropped.
    void DecoderAudioFrame(StreamFrame *data);
    // Frees all FFmpeg objects except the codec context, which is closed and leaked, by contract. The
    // destructor does the same.
    virtual void ReleaseFFmpeg();

private:
    friend class FFmpegDecodeProbe; // the unit tests' view of the members

    int32_t InitSwrContext();
    bool CheckNullPtrForDecoderValid(const StreamFrame *data) const;
    bool PostDecodedFrame(); // false: DecoderAudioFrame must return
    int32_t ResampleFrame();
    void PostAudioData(const uint8_t *pcm, int32_t size);
    void FreeFFmpegObjects();

    const char *mimeType = "audio/mp4a-latm"; // contract only: MIME type of the stream
    std::shared_ptr<AudioPlayThread> audioPlayThread;
    AVFormatContext *formatContext = nullptr; // contract only: allocated and freed with the decoder
    AVCodecContext *codecContext = nullptr;
    const AVCodec *codec = nullptr; // contract only: codec of codecContext
    AVFrame *decoderFrame = nullptr;
    int32_t channels = 2;         // of the coded stream
    int32_t sampleRate;           // Hz
    int32_t maxDstNbSamples = 0;  // capacity of outBuffer, per channel
    uint8_t *outBuffer = nullptr; // interleaved PCM of the current frame
    SwrContext *swrContext = nullptr;
    int32_t dstNbSamples = 0;         // samples per channel that outBuffer needs for the current frame
    AVPacket *packetToPlay = nullptr; // refers to the host's payload during a call
    int32_t outChannels = 0;          // 0 until set up
    int32_t outSampleFmt = -1;        // AVSampleFormat; -1 until set up
};

} // namespace velto
