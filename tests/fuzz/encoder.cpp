// Fuzzes the codec library's encoder: any sound and parameters, in any sequence of calls.
//
// Varied: all five parameters; samples; frames with another length, channel code, fill count or channel
// count than the encoder's, and without a buffer; packets without a buffer or with one that is too small;
// draining, encoding after draining, reopening, closing. Checked: the results that the library's headers
// document, and that FFmpeg decodes every packet. Not varied: the frame's pointer, which AllocBuffer sets.
#include "codec/aac_encoder.h"

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "effects.h"
#include "ffmpeg_messages.h"
#include "input.h"
#include "tests/fakes/log_recorder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

using velto_fuzz::Effect;
using velto_fuzz::Expect;
using velto_fuzz::Input;

Effect opened("opened encoders");
Effect refusedParameters("refused parameters");
Effect packets("packets that decode");
Effect refusedFrames("refused frames");
Effect drained("drained encoders");
Effect configurations("configurations read");
Effect refusedCalls("calls with invalid arguments refused");
Effect closed("closed encoders");

constexpr uint32_t aacFrameLength = 1024;

// Decodes the encoder's packets with the configuration that the encoder reports.
class Decoder {
public:
    explicit Decoder(const std::vector<uint8_t> &config)
        : m_context(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC))),
          m_packet(av_packet_alloc()),
          m_frame(av_frame_alloc())
    {
        m_context->extradata =
            static_cast<uint8_t *>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(m_context->extradata, config.data(), config.size());
        m_context->extradata_size = static_cast<int>(config.size());
        Expect(avcodec_open2(m_context, nullptr, nullptr) == 0, "the configuration opens a decoder");
    }
    ~Decoder()
    {
        av_frame_free(&m_frame);
        av_packet_free(&m_packet);
        avcodec_free_context(&m_context);
    }
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;

    void Decode(AVEncodePacket &packet, uint32_t channels)
    {
        m_packet->data = packet.data;
        m_packet->size = static_cast<int>(packet.size);
        Expect(avcodec_send_packet(m_context, m_packet) == 0, "a decoder accepts a packet");
        Expect(avcodec_receive_frame(m_context, m_frame) == 0, "a packet decodes");
        Expect(m_frame->nb_samples == static_cast<int>(aacFrameLength), "a packet's samples");
        Expect(m_frame->ch_layout.nb_channels == static_cast<int>(channels), "a packet's channels");
    }

private:
    AVCodecContext *m_context;
    AVPacket *m_packet;
    AVFrame *m_frame;
};

// The encoder, and a model of its state that predicts its results.
class Session {
public:
    void Step(Input &input)
    {
        switch (input.Byte() % 8) {
        case 0:
            Open(input);
            break;
        case 1:
        case 2:
        case 3:
            Encode(input);
            break;
        case 4:
            Drain(input);
            break;
        case 5:
            ReadConfig(input.Byte());
            break;
        case 6:
            EncodeWithInvalidArguments(input);
            break;
        default:
            closed.Add(m_isOpen);
            m_encoder.Close();
            Closed();
            break;
        }
    }

private:
    void Open(Input &input)
    {
        constexpr std::array<uint32_t, 13> rates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                 22050, 16000, 12000, 11025, 8000,  7350};
        EncodeParam param{rates[input.Byte() % rates.size()], input.Byte() % 2 == 0 ? 3U : 4U, 0, 1, 2};
        const uint8_t change = input.Byte();
        param.bitRate = input.Word() % 600000;
        uint32_t *const fields[] = {&param.sampleRateHz, &param.channelCode, &param.bitRate, &param.pcmFormat,
                                    &param.objectType};
        if (change % 8 < std::size(fields)) {
            *fields[change % 8] = input.Word();
        }
        const uint64_t channels = ChannelCountOf(param.channelCode);
        const uint64_t maxBits = 6144 * channels * param.sampleRateHz;
        const bool isSupported = std::find(rates.begin(), rates.end(), param.sampleRateHz) != rates.end() &&
                                 channels != 0 && param.bitRate >= 5 * channels &&
                                 param.bitRate <= maxBits / aacFrameLength && param.pcmFormat == 1 &&
                                 param.objectType == 2;
        uint32_t frameLength = 99;
        uint32_t maxPacketSize = 99;
        Closed();
        m_isOpen = m_encoder.Initialize(param, frameLength, maxPacketSize);
        Expect(m_isOpen == isSupported, "which parameters are accepted");
        (m_isOpen ? opened : refusedParameters).Add();
        m_channels = m_isOpen ? ChannelCountOf(param.channelCode) : 0;
        Expect(frameLength == (m_isOpen ? aacFrameLength : 0), "the frame length");
        Expect(maxPacketSize == 768 * m_channels, "the largest packet");
        if (m_isOpen) {
            Expect(m_packet.AllocBuffer(maxPacketSize, true), "memory for a packet");
            m_decoder = std::make_unique<Decoder>(ReadConfig(255));
        }
    }

    void Closed()
    {
        m_isOpen = m_isEnding = m_isDrained = false;
        m_frames = 0;
        m_expectedTime = -int64_t{aacFrameLength};
        m_decoder.reset();
    }

    // Encodes a frame, usually of the right length and channel count. A block of the input, repeated, gives
    // its samples.
    void Encode(Input &input)
    {
        const uint8_t shape = input.Byte();
        const uint32_t code = shape % 32 == 1 ? 7 - CodeOf(m_channels) : CodeOf(m_channels);
        const uint32_t length = shape % 32 == 2 ? input.Short() % 3000 : aacFrameLength;
        const uint8_t filling = input.Byte();
        AudioFrame frame;
        const bool hasBuffer = frame.AllocBuffer(48000, length, code, PCMFormat::S16);
        Expect(hasBuffer == (length != 0), "a frame's buffer");
        frame.fillCount = filling % 16 == 1   ? input.Word()
                          : filling % 16 == 2 ? input.Short() % (aacFrameLength + 1)
                                              : length;
        if (filling % 16 == 3) {
            frame.channelCount = input.Byte();
        }
        if (hasBuffer) {
            Fill(input, frame, length * ChannelCountOf(code));
        }
        const bool fits = frame.samples != nullptr && frame.fillCount > 0 && frame.fillCount <= length &&
                          frame.fillCount <= aacFrameLength && frame.channelCount == m_channels;
        const int32_t result = m_encoder.Encode(&frame, &m_packet);
        if (!m_isOpen || !fits || m_isEnding) {
            Expect(result < 0, "a frame that cannot be encoded is refused");
            refusedFrames.Add();
            return;
        }
        ++m_frames;
        m_isEnding = frame.fillCount < aacFrameLength;
        Expect(result != 0 || m_frames == 1, "each frame but the first results in a packet");
        CheckPacket(result);
    }

    static uint32_t CodeOf(uint32_t channels) { return channels == 1 ? 4 : 3; }

    static void Fill(Input &input, AudioFrame &frame, size_t values)
    {
        const auto bytes = input.Block(input.Short() % 4096);
        for (size_t i = 0; i < values && bytes.size() > 1; ++i) {
            const size_t at = 2 * i % (bytes.size() - 1);
            frame.samples[i] = static_cast<int16_t>(bytes[at] | bytes[at + 1] << 8);
        }
    }

    void Drain(Input &input)
    {
        const uint8_t times = input.Byte() % 4;
        for (uint8_t i = 0; i <= times; ++i) {
            const int32_t result = m_encoder.Encode(nullptr, &m_packet);
            if (!m_isOpen) {
                Expect(result < 0, "a closed encoder cannot be drained");
                return;
            }
            m_isEnding = true;
            Expect(!m_isDrained || result == 0, "a drained encoder has no more packets");
            drained.Add(!m_isDrained && result == 0);
            m_isDrained = m_isDrained || result == 0;
            CheckPacket(result);
        }
    }

    void CheckPacket(int32_t result)
    {
        if (result <= 0) {
            Expect(m_packet.size == 0, "the packet is empty when none is returned");
            // The encoder drops a packet that is too large for the buffer, but counts it in the time stamps.
            m_expectedTime += result < 0 ? aacFrameLength : 0;
            return;
        }
        Expect(m_packet.size == static_cast<uint32_t>(result), "a packet's size");
        Expect(m_packet.size <= 768 * m_channels, "a packet's largest size");
        Expect(m_packet.timeStamp == m_expectedTime, "a packet's time");
        m_expectedTime += aacFrameLength;
        m_decoder->Decode(m_packet, m_channels);
        packets.Add();
    }

    std::vector<uint8_t> ReadConfig(uint8_t capacity) const
    {
        std::vector<uint8_t> config(capacity);
        uint32_t length = 99;
        const bool isRead = m_encoder.GetDecoderSpecificInfo(config.data(), capacity, length);
        Expect(isRead == (length != 0) && length <= capacity, "a configuration's length");
        Expect(!isRead || m_isOpen, "a closed encoder has no configuration");
        Expect(isRead || !m_isOpen || capacity < 16, "an open encoder has a configuration");
        configurations.Add(isRead);
        config.resize(length);
        return config;
    }

    void EncodeWithInvalidArguments(Input &input)
    {
        AVEncodePacket small;
        const uint8_t capacity = input.Byte();
        if (capacity > 0) {
            Expect(small.AllocBuffer(capacity, false), "memory for a packet");
        }
        AudioFrame empty;
        Expect(m_encoder.Encode(nullptr, nullptr) < 0, "no packet");
        Expect(m_encoder.Encode(nullptr, &small) < 0, "too small a packet");
        Expect(m_encoder.Encode(&empty, &m_packet) < 0, "a frame without samples");
        refusedCalls.Add();
    }

    AACEncoder m_encoder;
    AVEncodePacket m_packet;
    std::unique_ptr<Decoder> m_decoder;
    bool m_isOpen = false;
    bool m_isEnding = false;
    bool m_isDrained = false;
    uint32_t m_channels = 0;
    uint32_t m_frames = 0;
    int64_t m_expectedTime = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int maxSteps = 50;
    velto_fuzz::CountFFmpegMessages();
    fakes::LogRecorder::Instance().Clear();
    Input input(data, size);
    Session session;
    for (int step = 0; step < maxSteps && !input.IsEmpty(); ++step) {
        session.Step(input);
    }
    return 0;
}
