#include "host/aac_reader.h"

#include <cstring>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "host/adts_header.h"
#include "host/ffmpeg.h"

namespace velto::host {
namespace {

constexpr uint32_t samplesPerUnit = 1024;
constexpr uint32_t lowComplexity = 2;
constexpr uint32_t spectralBandReplication = 5;
constexpr uint32_t parametricStereo = 29;
constexpr uint32_t lowestRateHz = 7350;
constexpr uint32_t highestRateHz = 96000;
constexpr int mostFailuresInARow = 1000; // then the file is given up, however long it claims to be

void ThrowIfFailed(int result)
{
    if (result == AVERROR_INVALIDDATA || result == AVERROR_EOF) {
        throw AacFileError("neither an ADTS (.aac) nor an MP4 (.m4a, .mp4) file");
    }
    if (result < 0) {
        throw AacFileError(FFmpegErrorText(result));
    }
}

// Tells the container by the file's beginning, and opens none: a playlist would have the files
// opened that it names.
const AVInputFormat *ContainerOf(const std::string &url)
{
    AVIOContext *file = nullptr;
    ThrowIfFailed(avio_open(&file, url.c_str(), AVIO_FLAG_READ));
    const AVInputFormat *container = nullptr;
    const int result = av_probe_input_buffer2(file, &container, url.c_str(), nullptr, 0, 0);
    avio_closep(&file);
    ThrowIfFailed(result);
    return container;
}

} // namespace

double AacStream::FrameSeconds() const
{
    return static_cast<double>(samplesPerUnit) / sampleRateHz;
}

std::string ObjectTypeName(uint32_t objectType)
{
    switch (objectType) {
    case 1:
        return "AAC Main";
    case lowComplexity:
        return "AAC-LC";
    case 3:
        return "AAC SSR";
    case 4:
        return "AAC LTP";
    case spectralBandReplication:
        return "HE-AAC";
    case parametricStereo:
        return "HE-AAC v2";
    default:
        return fmt::format("MPEG-4 audio object type {}", objectType);
    }
}

void AacReader::FormatCloser::operator()(AVFormatContext *context) const
{
    avformat_close_input(&context);
}

void AacReader::PacketCloser::operator()(AVPacket *packet) const
{
    av_packet_free(&packet);
}

AacReader::AacReader(const std::string &path) : m_packet(av_packet_alloc())
{
    if (m_packet == nullptr) {
        throw std::bad_alloc();
    }
    try {
        Open(path);
        Describe();
    } catch (const AacFileError &error) {
        throw AacFileError(path + ": " + error.what());
    }
}

AacReader::~AacReader() = default;

void AacReader::Open(const std::string &path)
{
    // Without the prefix a colon in the name could be taken for a protocol.
    const std::string url = "file:" + path;
    const AVInputFormat *container = ContainerOf(url);
    const std::string_view name = container->name;
    m_stream.isAdts = name == "aac";
    if (!m_stream.isAdts && name.find("mp4") == std::string_view::npos) {
        throw AacFileError(
            fmt::format("a file of format \"{}\"; ADTS (.aac) and MP4 (.m4a, .mp4) are played", name));
    }
    AVFormatContext *format = nullptr;
    int result = avformat_open_input(&format, url.c_str(), container, nullptr);
    m_format.reset(format);
    ThrowIfFailed(result);
    result = avformat_find_stream_info(format, nullptr);
    if (result < 0) {
        throw AacFileError("its sound cannot be read: " + FFmpegErrorText(result));
    }
    m_index = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (m_index < 0) {
        throw AacFileError(m_stream.isAdts ? "holds no AAC frame" : "holds no sound");
    }
}

void AacReader::Describe()
{
    const AVStream *stream = m_format->streams[m_index];
    const AVCodecParameters *codec = stream->codecpar;
    if (codec->codec_id != AV_CODEC_ID_AAC) {
        throw AacFileError(fmt::format("its sound is {}, not AAC", avcodec_get_name(codec->codec_id)));
    }
    m_stream.channels = static_cast<uint32_t>(codec->ch_layout.nb_channels);
    m_stream.objectType =
        codec->profile == FF_PROFILE_UNKNOWN ? lowComplexity : static_cast<uint32_t>(codec->profile) + 1;
    m_stream.sampleRateHz = static_cast<uint32_t>(codec->sample_rate);
    if (m_stream.objectType == spectralBandReplication || m_stream.objectType == parametricStereo) {
        m_stream.sampleRateHz /= 2; // the file is known by the rate that it decodes to
    }
    if (m_stream.sampleRateHz < lowestRateHz || m_stream.sampleRateHz > highestRateHz ||
        m_stream.channels == 0) {
        throw AacFileError("holds no AAC frame that can be read");
    }
    if (!m_stream.isAdts && codec->extradata_size > 0) {
        m_stream.specificConfig.assign(codec->extradata, codec->extradata + codec->extradata_size);
    } else {
        m_stream.specificConfig = MakeSpecificConfig(lowComplexity, m_stream.sampleRateHz, m_stream.channels);
    }
    // For ADTS the duration is a guess from the first frames' bit rate, and often far off.
    if (!m_stream.isAdts && stream->duration > 0) {
        m_stream.durationSeconds = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    }
}

AacReader::Outcome AacReader::Read(std::vector<uint8_t> &frame)
{
    for (;;) {
        av_packet_unref(m_packet.get());
        const int result = av_read_frame(m_format.get(), m_packet.get());
        if (result == AVERROR_EOF || m_failuresInARow >= mostFailuresInARow) {
            return Outcome::END;
        }
        if (result < 0) {
            ++m_failuresInARow;
            return Fail(Outcome::MISSING, FFmpegErrorText(result));
        }
        m_failuresInARow = 0;
        if (m_packet->stream_index == m_index) {
            return TakeUnit(frame);
        }
    }
}

AacReader::Outcome AacReader::TakeUnit(std::vector<uint8_t> &frame)
{
    std::span<const uint8_t> bytes(m_packet->data, static_cast<size_t>(m_packet->size));
    if (m_stream.isAdts) {
        const auto header = ParseAdtsHeader(bytes);
        if (!header) {
            return Fail(Outcome::DAMAGED, "no ADTS header");
        }
        if (header->frameBytes != bytes.size()) {
            return Fail(Outcome::DAMAGED,
                        fmt::format("{} bytes of a frame of {}", bytes.size(), header->frameBytes));
        }
        if (header->rawBlocks != 1) {
            return Fail(Outcome::DAMAGED, fmt::format("{} raw blocks in one frame", header->rawBlocks));
        }
        bytes = bytes.subspan(header->headerBytes);
    }
    if (bytes.empty() || (m_packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        return Fail(Outcome::DAMAGED, "incomplete");
    }
    frame.assign(bytes.begin(), bytes.end());
    return Outcome::FRAME;
}

AacReader::Outcome AacReader::Fail(Outcome outcome, std::string damage)
{
    m_damage = std::move(damage);
    return outcome;
}

} // namespace velto::host
