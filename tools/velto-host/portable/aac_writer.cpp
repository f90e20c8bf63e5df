#include "velto-host/portable/aac_writer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <new>
#include <system_error>
#include <vector>

#include "velto-host/portable/ffmpeg.h"

namespace velto::host {
namespace {

constexpr int64_t primingSamples = samplesPerUnit;

struct Ending {
    const char *text;
    const char *muxer;
};
constexpr std::array<Ending, 3> endings{{{".aac", "adts"}, {".m4a", "ipod"}, {".mp4", "mp4"}}};

std::filesystem::path FromUtf8(const std::string &text)
{
    return std::u8string(text.begin(), text.end());
}

std::string ToUtf8(const std::filesystem::path &path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// Null for another ending.
const char *MuxerFor(const std::filesystem::path &path)
{
    std::string ending = ToUtf8(path.extension());
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    const auto *known = std::find_if(endings.begin(), endings.end(),
                                     [&](const Ending &candidate) { return ending == candidate.text; });
    return known != endings.end() ? known->muxer : nullptr;
}

} // namespace

void AacWriter::FormatCloser::operator()(AVFormatContext *context) const
{
    avio_closep(&context->pb);
    avformat_free_context(context);
}

void AacWriter::PacketCloser::operator()(AVPacket *packet) const
{
    av_packet_free(&packet);
}

AacWriter::AacWriter(const std::string &path, const Format &format)
    : m_name(path),
      m_path(FromUtf8(path)),
      m_unfinished(FromUtf8(path + ".unfinished")),
      m_parameters(format),
      m_packet(av_packet_alloc())
{
    if (m_packet == nullptr) {
        throw std::bad_alloc();
    }
    const char *muxer = MuxerFor(m_path);
    if (muxer == nullptr) {
        throw AacFileError(path + ": the name has to end in .aac (ADTS), .m4a or .mp4 (MP4)");
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(m_path, ignored)) {
        throw AacFileError(path + ": is a folder");
    }
    try {
        Open(muxer);
    } catch (...) {
        Discard();
        throw;
    }
}

AacWriter::~AacWriter()
{
    Discard();
}

void AacWriter::Open(const char *muxer)
{
    AVFormatContext *format = nullptr;
    // Without the prefix, FFmpeg could take the part of the name before a colon for a protocol.
    const std::string url = "file:" + ToUtf8(m_unfinished);
    Check(avformat_alloc_output_context2(&format, nullptr, muxer, url.c_str()));
    m_format.reset(format);
    AddStream();
    Check(avio_open(&format->pb, url.c_str(), AVIO_FLAG_WRITE));
    m_begun = true;
    Check(avformat_write_header(format, nullptr));
}

void AacWriter::AddStream()
{
    AVStream *stream = avformat_new_stream(m_format.get(), nullptr);
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    const auto channels = static_cast<int>(m_parameters.channels);
    const std::vector<uint8_t> config =
        MakeSpecificConfig(aacLowComplexity, m_parameters.sampleRateHz, m_parameters.channels);
    AVCodecParameters &codec = *stream->codecpar;
    codec.codec_type = AVMEDIA_TYPE_AUDIO;
    codec.codec_id = AV_CODEC_ID_AAC;
    codec.profile = FF_PROFILE_AAC_LOW;
    codec.sample_rate = static_cast<int>(m_parameters.sampleRateHz);
    codec.bit_rate = m_parameters.bitRate;
    codec.frame_size = samplesPerUnit;
    codec.initial_padding = primingSamples;
    av_channel_layout_default(&codec.ch_layout, channels);
    codec.extradata = static_cast<uint8_t *>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (codec.extradata == nullptr) {
        throw std::bad_alloc();
    }
    std::copy(config.begin(), config.end(), codec.extradata);
    codec.extradata_size = static_cast<int>(config.size());
    stream->time_base = {1, codec.sample_rate};
}

const char *AacWriter::Container() const
{
    return MuxerFor(m_path) == std::string("adts") ? "ADTS" : "MP4";
}

double AacWriter::Seconds() const
{
    const int64_t samples = static_cast<int64_t>(m_units) * samplesPerUnit - primingSamples;
    return static_cast<double>(std::max<int64_t>(samples, 0)) / m_parameters.sampleRateHz;
}

void AacWriter::Write(std::span<const uint8_t> unit)
{
    if (unit.empty()) {
        throw AacFileError(m_name + ": an empty unit cannot be written");
    }
    // The muxer copies the unit. Time 0 is the start of the sound, after the priming.
    m_packet->data = const_cast<uint8_t *>(unit.data());
    m_packet->size = static_cast<int>(unit.size());
    m_packet->flags = AV_PKT_FLAG_KEY;
    m_packet->stream_index = 0;
    m_packet->pts = m_packet->dts = static_cast<int64_t>(m_units) * samplesPerUnit - primingSamples;
    m_packet->duration = samplesPerUnit;
    av_packet_rescale_ts(m_packet.get(), {1, static_cast<int>(m_parameters.sampleRateHz)},
                         m_format->streams[0]->time_base);
    const int result = av_write_frame(m_format.get(), m_packet.get());
    av_packet_unref(m_packet.get());
    Check(result);
    ++m_units;
}

void AacWriter::Finish()
{
    if (m_units == 0) {
        Discard();
        return;
    }
    Check(av_write_trailer(m_format.get()));
    Check(avio_closep(&m_format->pb)); // closing may report a write error, such as a full disk
    m_format.reset();
    m_begun = false; // Discard() must keep the complete file
    std::error_code error;
    std::filesystem::rename(m_unfinished, m_path, error);
    if (error) {
        throw AacFileError(m_name + ": cannot be replaced: " + error.message() + "; the recording is in " +
                           ToUtf8(m_unfinished));
    }
}

void AacWriter::Check(int result) const
{
    if (result < 0) {
        throw AacFileError(m_name + ": cannot be written: " + FFmpegErrorText(result));
    }
}

// Deletes an unfinished file.
void AacWriter::Discard()
{
    m_format.reset();
    if (m_begun) {
        std::error_code ignored;
        std::filesystem::remove(m_unfinished, ignored);
        m_begun = false;
    }
}

} // namespace velto::host
