// The platform's AAC encoder, as this module calls it: PCM frames in, raw AAC-LC access units out.
#pragma once

#include <cstdint>
#include <memory>

#include "codec/audio_frame.h"
#include "codec/av_encode_packet.h"
#include "codec/encode_param.h"

// Used by one thread at a time. No call throws.
class AACEncoder {
public:
    AACEncoder();
    ~AACEncoder();
    AACEncoder(const AACEncoder &) = delete;
    AACEncoder &operator=(const AACEncoder &) = delete;

    // Opens the encoder, closing the one before. Gives the samples per channel of a frame and the
    // most bytes that a packet can have. False for parameters that it cannot encode, with a log
    // line that names the field; then the encoder is closed and the outputs are 0.
    bool Initialize(const EncodeParam &param, uint32_t &frameLength, uint32_t &maxPacketSize);

    // Encodes a frame's `fillCount` samples; a null frame drains what is buffered. Returns 0 when
    // no packet is ready (while draining: when no more will come), else the bytes of the one put
    // into `packet`, which needs a buffer of the maximum packet size; below 0 is an error.
    //
    // Packets are raw access units, without ADTS headers. Their time stamps count samples; the
    // first packet, which comes with the second frame, holds what the encoder puts before the
    // sound and is at minus one frame length.
    //
    // A frame may be shorter than the frame length only as the last one. Errors, after which the
    // encoder goes on with the next frame: a frame without samples, of another number of channels,
    // or longer than its buffer or the frame length; no packet or one with too small a buffer; a
    // packet that grew beyond the maximum and is dropped. Errors that stay: no open encoder, a
    // frame after a short one or after draining began.
    //
    // Allocates nothing itself; FFmpeg's framework makes some short-lived blocks with each packet.
    int32_t Encode(const AudioFrame *frame, AVEncodePacket *packet);

    // Copies the decoder's configuration (the AudioSpecificConfig of ISO/IEC 14496-3) and gives its
    // length. False, with a length of 0, when no encoder is open or `capacity` is too small.
    bool GetDecoderSpecificInfo(uint8_t *config, uint32_t capacity, uint32_t &length) const;

    // Forgets what is still buffered. Can be repeated.
    void Close();

private:
    struct State;
    std::unique_ptr<State> m_state;
};
