// From AAC frames to blocks of PCM, one decoder for each speaker.
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

// Decodes AAC-LC with FFmpeg to interleaved signed 16-bit stereo and pushes each frame as one
// block to the speaker's play thread. Always opens as stereo at the rate given at construction.
//
// Threads: no lock of its own. Everything runs on the thread that writes the frame or starts the
// speaker, one at a time.
struct FFmpegDecode final : public std::enable_shared_from_this<FFmpegDecode> {
    FFmpegDecode(std::shared_ptr<AudioPlayThread> playThread, int32_t sampleRateHz);
    ~FFmpegDecode();
    FFmpegDecode(const FFmpegDecode &) = delete;
    FFmpegDecode &operator=(const FFmpegDecode &) = delete;

    // 0, or -1. Run again after an idle release, it overwrites the objects of the earlier run
    // without freeing them, by contract: docs/known-leaks.md.
    int32_t InitFFmpeg();
    // Decodes one frame. The payload is only borrowed; a frame that does not decode is dropped.
    void DecoderAudioFrame(StreamFrame *data);
    // Frees all FFmpeg objects but the codec context itself, which is only closed.
    virtual void ReleaseFFmpeg();

private:
    friend class FFmpegDecodeProbe; // the unit tests' view of the members

    int32_t InitSwrContext();
    bool CheckNullPtrForDecoderValid(const StreamFrame *data) const;
    bool PostDecodedFrame(); // false: abandon the rest of the call
    int32_t ResampleFrame();
    void PostAudioData(const uint8_t *pcm, int32_t size);
    void FreeFFmpegObjects();

    const char *mimeType = "audio/mp4a-latm";
    std::shared_ptr<AudioPlayThread> audioPlayThread;
    AVFormatContext *formatContext = nullptr;
    AVCodecContext *codecContext = nullptr;
    const AVCodec *codec = nullptr;
    AVFrame *decoderFrame = nullptr;
    int32_t channels = 2;
    int32_t sampleRate;           // Hz
    int32_t maxDstNbSamples = 0;  // capacity of outBuffer, per channel
    uint8_t *outBuffer = nullptr; // interleaved PCM of the current frame
    SwrContext *swrContext = nullptr;
    int32_t dstNbSamples = 0;         // needed for the current frame, per channel
    AVPacket *packetToPlay = nullptr; // borrows the host's payload
    int32_t outChannels = 0;
    int32_t outSampleFmt = -1; // AVSampleFormat, none until set up
};

} // namespace velto
