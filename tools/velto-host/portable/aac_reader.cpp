#include "velto-host/portable/aac_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "velto-host/portable/ffmpeg.h"

namespace velto::host {
namespace {

constexpr uint32_t lowestRateHz = 7350;
constexpr uint32_t highestRateHz = 96000;
constexpr int mostFailuresInARow = 1000; // then reading ends, whatever length the file states

void ThrowIfFailed(int result)
{
    if (result == AVERROR_INVALIDDATA || result == AVERROR_EOF) {
        throw AacFileError("neither an ADTS (.aac) nor an MP4 (.m4a, .mp4) file");
    }
    if (result < 0) {
        throw AacFileError(FFmpegErrorText(result));
    }
}

// Detects the container from the file's first bytes without opening it: opening a playlist would open the
// files that it names.
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

bool SetExtradata(AVCodecContext &decoder, const std::vector<uint8_t> &bytes)
{
    decoder.extradata = static_cast<uint8_t *>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (decoder.extradata == nullptr) {
        return false;
    }
    std::memcpy(decoder.extradata, bytes.data(), bytes.size());
    decoder.extradata_size = static_cast<int>(bytes.size());
    return true;
}

float Peak(const AVFrame &frame)
{
    float peak = 0;
    for (int channel = 0; channel < frame.ch_layout.nb_channels; ++channel) {
        const auto *samples = reinterpret_cast<const float *>(frame.extended_data[channel]);
        for (int i = 0; i < frame.nb_samples; ++i) {
            peak = std::max(peak, std::fabs(samples[i]));
        }
    }
    return peak;
}

} // namespace

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
    // Without the prefix, FFmpeg could take the part of the name before a colon for a protocol.
    const std::string url = "file:" + path;
    const AVInputFormat *container = ContainerOf(url);
    const std::string_view name = container->name;
    m_stream.isAdts = name == "aac";
    if (!m_stream.isAdts && name.find("mp4") == std::string_view::npos) {
        throw AacFileError("a file of format \"" + std::string(name) +
                           "\"; ADTS (.aac) and MP4 (.m4a, .mp4) are played");
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
        throw AacFileError(m_stream.isAdts ? "has no AAC unit" : "has no sound");
    }
}

void AacReader::Describe()
{
    const AVStream *stream = m_format->streams[m_index];
    const AVCodecParameters *codec = stream->codecpar;
    if (codec->codec_id != AV_CODEC_ID_AAC) {
        throw AacFileError(std::string("its sound is ") + avcodec_get_name(codec->codec_id) + ", not AAC");
    }
    m_stream.channels = static_cast<uint32_t>(codec->ch_layout.nb_channels);
    m_stream.objectType =
        codec->profile == FF_PROFILE_UNKNOWN ? aacLowComplexity : static_cast<uint32_t>(codec->profile) + 1;
    m_stream.sampleRateHz = static_cast<uint32_t>(codec->sample_rate);
    if (m_stream.objectType == spectralBandReplication || m_stream.objectType == parametricStereo) {
        m_stream.sampleRateHz /= 2; // FFmpeg states the rate after spectral band replication
    }
    if (m_stream.sampleRateHz < lowestRateHz || m_stream.sampleRateHz > highestRateHz ||
        m_stream.channels == 0) {
        throw AacFileError("has no AAC unit that can be read");
    }
    if (!m_stream.isAdts && codec->extradata_size > 0) {
        m_stream.specificConfig.assign(codec->extradata, codec->extradata + codec->extradata_size);
    } else {
        m_stream.specificConfig =
            MakeSpecificConfig(aacLowComplexity, m_stream.sampleRateHz, m_stream.channels);
    }
    // For ADTS, FFmpeg guesses the duration from the bit rate of the first units, and is often far off.
    if (!m_stream.isAdts && stream->duration > 0) {
        m_stream.durationSeconds = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    }
}

AacReader::Outcome AacReader::Read(std::vector<uint8_t> &unit)
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
            return TakeUnit(unit);
        }
    }
}

AacReader::Outcome AacReader::TakeUnit(std::vector<uint8_t> &unit)
{
    std::span<const uint8_t> bytes(m_packet->data, static_cast<size_t>(m_packet->size));
    if (m_stream.isAdts) {
        const auto header = ParseAdtsHeader(bytes);
        if (!header) {
            return Fail(Outcome::DAMAGED, "no ADTS header");
        }
        if (header->frameBytes != bytes.size()) {
            return Fail(Outcome::DAMAGED, std::to_string(bytes.size()) + " bytes of an ADTS frame of " +
                                              std::to_string(header->frameBytes));
        }
        if (header->rawBlocks != 1) {
            return Fail(Outcome::DAMAGED,
                        std::to_string(header->rawBlocks) + " raw blocks in one ADTS frame");
        }
        bytes = bytes.subspan(header->headerBytes);
    }
    if (bytes.empty() || (m_packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        return Fail(Outcome::DAMAGED, "incomplete");
    }
    unit.assign(bytes.begin(), bytes.end());
    return Outcome::UNIT;
}

AacReader::Outcome AacReader::Fail(Outcome outcome, std::string damage)
{
    m_damage = std::move(damage);
    return outcome;
}

void LevelMeter::Closer::operator()(AVCodecContext *decoder) const
{
    avcodec_free_context(&decoder);
}

void LevelMeter::Closer::operator()(AVPacket *packet) const
{
    av_packet_free(&packet);
}

void LevelMeter::Closer::operator()(AVFrame *frame) const
{
    av_frame_free(&frame);
}

LevelMeter::LevelMeter(const AacStream &stream) : m_packet(av_packet_alloc()), m_frame(av_frame_alloc())
{
    if (m_packet == nullptr || m_frame == nullptr) {
        throw std::bad_alloc();
    }
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    m_decoder.reset(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
    if (m_decoder == nullptr || stream.specificConfig.empty() ||
        !SetExtradata(*m_decoder, stream.specificConfig) ||
        avcodec_open2(m_decoder.get(), codec, nullptr) < 0 || m_decoder->sample_fmt != AV_SAMPLE_FMT_FLTP) {
        m_decoder.reset();
    }
}

LevelMeter::~LevelMeter() = default;

std::optional<double> LevelMeter::PeakDb(const std::vector<uint8_t> &unit)
{
    if (!IsAvailable()) {
        return silenceDb;
    }
    if (av_new_packet(m_packet.get(), static_cast<int>(unit.size())) < 0) {
        throw std::bad_alloc();
    }
    std::memcpy(m_packet->data, unit.data(), unit.size());
    bool accepted = avcodec_send_packet(m_decoder.get(), m_packet.get()) == 0;
    av_packet_unref(m_packet.get());
    float peak = 0;
    int result = 0;
    while (accepted && (result = avcodec_receive_frame(m_decoder.get(), m_frame.get())) == 0) {
        peak = std::max(peak, Peak(*m_frame));
    }
    accepted = accepted && result == AVERROR(EAGAIN);
    if (!accepted) {
        return std::nullopt;
    }
    return peak > 0 ? std::max(silenceDb, 20.0 * std::log10(static_cast<double>(peak))) : silenceDb;
}

} // namespace velto::host
