#include "sample_file.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <numbers>
#include <stdexcept>

#include "velto-host/portable/ffmpeg.h"

namespace velto_test {
namespace {

constexpr double toneHz = 440.0;

struct Free {
    void operator()(AVCodecContext *encoder) const { avcodec_free_context(&encoder); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
    void operator()(AVFormatContext *format) const
    {
        avio_closep(&format->pb);
        avformat_free_context(format);
    }
};

void Check(bool ok, const char *what)
{
    if (!ok) {
        throw std::runtime_error(what);
    }
}

std::unique_ptr<AVCodecContext, Free> OpenEncoder(const Tone &tone)
{
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    std::unique_ptr<AVCodecContext, Free> encoder(avcodec_alloc_context3(codec));
    av_channel_layout_default(&encoder->ch_layout, tone.channels);
    encoder->sample_rate = tone.sampleRateHz;
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->bit_rate = 96000;
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    Check(avcodec_open2(encoder.get(), codec, nullptr) == 0, "no AAC encoder");
    return encoder;
}

std::unique_ptr<AVFormatContext, Free> OpenMuxer(const std::string &path, const std::string &muxer,
                                                 const AVCodecContext &encoder, bool indexFirst)
{
    AVFormatContext *format = nullptr;
    const std::string url = "file:" + path;
    Check(avformat_alloc_output_context2(&format, nullptr, muxer.c_str(), url.c_str()) >= 0, "no such muxer");
    std::unique_ptr<AVFormatContext, Free> owner(format);
    AVStream *stream = avformat_new_stream(format, nullptr);
    Check(avcodec_parameters_from_context(stream->codecpar, &encoder) >= 0, "no parameters");
    stream->time_base = {1, encoder.sample_rate};
    Check(avio_open(&format->pb, url.c_str(), AVIO_FLAG_WRITE) >= 0, "cannot write the file");
    AVDictionary *options = nullptr;
    if (indexFirst) {
        av_dict_set(&options, "movflags", "+faststart", 0);
    }
    const int result = avformat_write_header(format, &options);
    av_dict_free(&options);
    Check(result >= 0, "no header");
    return owner;
}

void FillTone(AVFrame &frame, const Tone &tone)
{
    for (int c = 0; c < tone.channels; ++c) {
        auto *samples = reinterpret_cast<float *>(frame.data[c]);
        for (int i = 0; i < frame.nb_samples; ++i) {
            const double t = static_cast<double>(frame.pts + i) / tone.sampleRateHz;
            samples[i] = static_cast<float>(tone.amplitude * std::sin(2 * std::numbers::pi * toneHz * t));
        }
    }
}

} // namespace

SampleFile::SampleFile(const std::u8string &name)
{
    static std::atomic<int> number{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    m_path = std::filesystem::temp_directory_path() /
             ("velto-host-" + std::to_string(now) + "-" + std::to_string(number++));
    std::filesystem::create_directories(m_path);
    m_path /= name;
}

SampleFile::~SampleFile()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path.parent_path(), ignored);
}

std::string SampleFile::Utf8Path() const
{
    const std::u8string text = m_path.u8string();
    return std::string(text.begin(), text.end());
}

std::vector<uint8_t> SampleFile::Bytes() const
{
    std::ifstream stream(m_path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void SampleFile::Write(const std::vector<uint8_t> &bytes) const
{
    std::ofstream stream(m_path, std::ios::binary);
    stream.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    Check(stream.good(), "cannot write the file");
}

void WriteTone(const SampleFile &file, const std::string &muxer, const Tone &tone, bool indexFirst)
{
    const auto encoder = OpenEncoder(tone);
    const auto format = OpenMuxer(file.Utf8Path(), muxer, *encoder, indexFirst);
    const std::unique_ptr<AVFrame, Free> frame(av_frame_alloc());
    const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
    int64_t position = 0;
    for (int written = 0; written < tone.units;) {
        frame->nb_samples = encoder->frame_size;
        frame->format = encoder->sample_fmt;
        frame->sample_rate = encoder->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
        Check(av_frame_get_buffer(frame.get(), 0) >= 0, "no memory for a frame");
        frame->pts = position;
        position += frame->nb_samples;
        FillTone(*frame, tone);
        Check(avcodec_send_frame(encoder.get(), frame.get()) == 0, "the encoder refuses a frame");
        av_frame_unref(frame.get());
        while (written < tone.units && avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
            av_packet_rescale_ts(packet.get(), {1, tone.sampleRateHz}, format->streams[0]->time_base);
            Check(av_write_frame(format.get(), packet.get()) >= 0, "cannot write a unit");
            av_packet_unref(packet.get());
            ++written;
        }
    }
    Check(av_write_trailer(format.get()) >= 0, "cannot write the end");
}

std::vector<uint8_t> WavBytes()
{
    constexpr std::array<uint8_t, 44> header{'R', 'I', 'F',  'F',  0x24, 0xEE, 0x02, 0x00, 'W',  'A',  'V',
                                             'E', 'f', 'm',  't',  ' ',  16,   0,    0,    0,    1,    0,
                                             2,   0,   0x80, 0xBB, 0,    0,    0x00, 0xEE, 0x02, 0x00, 4,
                                             0,   16,  0,    'd',  'a',  't',  'a',  0x00, 0xEE, 0x02, 0x00};
    std::vector<uint8_t> bytes(header.begin(), header.end());
    bytes.resize(header.size() + 192000);
    return bytes;
}

} // namespace velto_test
