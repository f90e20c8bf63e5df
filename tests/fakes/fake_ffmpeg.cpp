#include "tests/fakes/fake_ffmpeg.h"

#include <mutex>

namespace fakeffmpeg {
namespace {

// The alignments of later calls are not recorded: the record has to grow without an allocation, because a
// test can make each allocation of the calling thread fail.
constexpr size_t maxAlignments = 64;

// Never destroyed: the module's static objects make calls when the process ends.
struct Record {
    Record() { alignments.reserve(maxAlignments); }

    std::mutex mutex;
    std::vector<float> sentSamples;
    std::vector<int> alignments;
    std::vector<int> logOffsets;
    OpenedCodec opened;
};

Record &TheRecord()
{
    static auto *record = new Record;
    return *record;
}

template <typename Value>
Value Copy(Value Record::*member)
{
    const std::lock_guard lock(TheRecord().mutex);
    return TheRecord().*member;
}

void RecordAlignment(int align)
{
    const std::lock_guard lock(TheRecord().mutex);
    if (TheRecord().alignments.size() < maxAlignments) {
        TheRecord().alignments.push_back(align);
    }
}

// Returns the scripted result; without one, makes the real call.
template <typename Real>
int Scripted(Call call, Real real)
{
    const auto fault = Script().Next(call);
    return fault ? static_cast<int>(*fault) : real();
}

// As Scripted, but makes the real call before it returns a result of 0 or more.
template <typename Real>
int ScriptedOrDone(Call call, Real real)
{
    const auto fault = Script().Next(call);
    if (fault && *fault < 0) {
        return static_cast<int>(*fault);
    }
    const int result = real();
    return fault && result >= 0 ? static_cast<int>(*fault) : result;
}

} // namespace

fakes::FaultScript<Call> &Script()
{
    static auto *script = new fakes::FaultScript<Call>; // outlives the module's static objects
    return *script;
}

void Reset()
{
    Script().Reset();
    const std::lock_guard lock(TheRecord().mutex);
    TheRecord().alignments.clear();
    TheRecord().logOffsets.clear();
}

std::vector<int> Alignments()
{
    return Copy(&Record::alignments);
}

std::vector<int> LogOffsets()
{
    return Copy(&Record::logOffsets);
}

SwrContext *swr_alloc()
{
    return Script().Next(Call::swr_alloc) ? nullptr : ::swr_alloc();
}

int swr_init(SwrContext *context)
{
    const int result = ScriptedOrDone(Call::swr_init, [&] { return ::swr_init(context); });
    if (result < 0) {
        ::swr_close(context); // a failing swr_init leaves the context uninitialised
    }
    return result;
}

int swr_convert(SwrContext *context, uint8_t **out, int outCount, const uint8_t **in, int inCount)
{
    return Scripted(Call::swr_convert, [&] { return ::swr_convert(context, out, outCount, in, inCount); });
}

int swr_alloc_set_opts2(SwrContext **context, AVChannelLayout *outLayout, AVSampleFormat outFormat,
                        int outRate, AVChannelLayout *inLayout, AVSampleFormat inFormat, int inRate,
                        int logOffset, void *logContext)
{
    {
        const std::lock_guard lock(TheRecord().mutex);
        TheRecord().logOffsets.push_back(logOffset);
    }
    const int result = ScriptedOrDone(Call::swr_alloc_set_opts2, [&] {
        return ::swr_alloc_set_opts2(context, outLayout, outFormat, outRate, inLayout, inFormat, inRate,
                                     logOffset, logContext);
    });
    if (result < 0) {
        ::swr_free(context); // as the real call does when it fails
    }
    return result;
}

int av_samples_alloc_array_and_samples(uint8_t ***planes, int *lineSize, int channels, int samples,
                                       AVSampleFormat format, int align)
{
    RecordAlignment(align);
    fakes::StoreBadPointer(planes); // no documentation promises null after a failure
    return ScriptedOrDone(Call::av_samples_alloc_array_and_samples, [&] {
        return ::av_samples_alloc_array_and_samples(planes, lineSize, channels, samples, format, align);
    });
}

int av_samples_alloc(uint8_t **planes, int *lineSize, int channels, int samples, AVSampleFormat format,
                     int align)
{
    RecordAlignment(align);
    return ScriptedOrDone(Call::av_samples_alloc, [&] {
        return ::av_samples_alloc(planes, lineSize, channels, samples, format, align);
    });
}

int av_samples_get_buffer_size(int *lineSize, int channels, int samples, AVSampleFormat format, int align)
{
    RecordAlignment(align);
    return Scripted(Call::av_samples_get_buffer_size,
                    [&] { return ::av_samples_get_buffer_size(lineSize, channels, samples, format, align); });
}

AVFormatContext *avformat_alloc_context()
{
    return Script().Next(Call::avformat_alloc_context) ? nullptr : ::avformat_alloc_context();
}

const AVCodec *avcodec_find_decoder(AVCodecID id)
{
    return Script().Next(Call::avcodec_find_decoder) ? nullptr : ::avcodec_find_decoder(id);
}

const AVCodec *avcodec_find_encoder(AVCodecID id)
{
    return Script().Next(Call::avcodec_find_encoder) ? nullptr : ::avcodec_find_encoder(id);
}

AVCodecContext *avcodec_alloc_context3(const AVCodec *codec)
{
    return Script().Next(Call::avcodec_alloc_context3) ? nullptr : ::avcodec_alloc_context3(codec);
}

int avcodec_open2(AVCodecContext *context, const AVCodec *codec, AVDictionary **options)
{
    {
        const std::lock_guard lock(TheRecord().mutex);
        TheRecord().opened = {context->sample_rate, context->ch_layout.nb_channels,
                              context->bit_rate,    context->profile,
                              context->time_base,   context->log_level_offset};
    }
    const auto scripted = Script().Next(Call::avcodec_open2);
    if (scripted && *scripted <= 0) {
        return static_cast<int>(*scripted);
    }
    const int opened = ::avcodec_open2(context, codec, options);
    if (scripted == withoutConfiguration) {
        av_freep(&context->extradata);
        context->extradata_size = 0;
    } else if (scripted) {
        context->frame_size = static_cast<int>(*scripted);
    }
    return opened;
}

AVFrame *av_frame_alloc()
{
    return Script().Next(Call::av_frame_alloc) ? nullptr : ::av_frame_alloc();
}

int av_frame_make_writable(AVFrame *frame)
{
    return Scripted(Call::av_frame_make_writable, [&] { return ::av_frame_make_writable(frame); });
}

AVPacket *av_packet_alloc()
{
    return Script().Next(Call::av_packet_alloc) ? nullptr : ::av_packet_alloc();
}

std::vector<float> SentSamples()
{
    return Copy(&Record::sentSamples);
}

OpenedCodec LastOpenedCodec()
{
    return Copy(&Record::opened);
}

int avcodec_send_frame(AVCodecContext *context, const AVFrame *frame)
{
    if (frame != nullptr) {
        const auto *samples = reinterpret_cast<const float *>(frame->data[0]);
        const std::lock_guard lock(TheRecord().mutex);
        TheRecord().sentSamples.assign(samples, samples + frame->nb_samples);
    }
    return Scripted(Call::avcodec_send_frame, [&] { return ::avcodec_send_frame(context, frame); });
}

int avcodec_receive_packet(AVCodecContext *context, AVPacket *packet)
{
    const int received = ::avcodec_receive_packet(context, packet);
    const auto scripted = Script().Next(Call::avcodec_receive_packet);
    if (!scripted) {
        return received;
    }
    av_packet_unref(packet);
    const auto result = static_cast<int>(*scripted);
    return result > 0 ? av_new_packet(packet, result) : result;
}

} // namespace fakeffmpeg
