// The platform's AAC encoder, as this module calls it: PCM frames in, raw AAC-LC access units out.
#pragma once

#include <cstdint>
#include <memory>

#include "codec/audio_frame.h"
#include "codec/av_encode_packet.h"
#include "codec/encode_param.h"

// One thread at a time. No call throws.
class AACEncoder {
public:
    AACEncoder();
    ~AACEncoder();
    AACEncoder(const AACEncoder &) = delete;
    AACEncoder &operator=(const AACEncoder &) = delete;

    // Closes the encoder and opens it with `param`. Returns the frame length in samples per channel and the
    // maximum packet size in bytes. On failure, writes a log line (for an unsupported parameter, with the
    // field's name), returns false, leaves the encoder closed and sets both outputs to 0.
    bool Initialize(const EncodeParam &param, uint32_t &frameLength, uint32_t &maxPacketSize);

    // Encodes the `fillCount` samples of a frame; a null frame drains the encoder. Returns the size of the
    // packet in bytes, 0 if no packet is ready (while draining: if there are no more packets), or a negative
    // error. `packet` needs a buffer of the maximum packet size.
    //
    // Packets are raw access units, without ADTS headers. Time stamps count samples. The first packet is
    // returned for the second frame; it contains the encoder's priming samples, and its time stamp is minus
    // one frame length.
    //
    // Only the last frame may be shorter than the frame length.
    //
    // Errors that affect only this call: a null packet, or one with too small a buffer; a frame without
    // samples, with another number of channels, or longer than its buffer or the frame length; a packet
    // larger than the maximum, which is dropped. Errors until the next Initialize: the encoder is not open; a
    // frame after a short frame, or after draining began.
    //
    // Allocates nothing itself; FFmpeg allocates a few short-lived blocks per packet.
    int32_t Encode(const AudioFrame *frame, AVEncodePacket *packet);

    // Copies the decoder's configuration (the AudioSpecificConfig of ISO/IEC 14496-3) and returns its length
    // in bytes. Returns false, with a length of 0, if the encoder is not open or `capacity` is too small.
    bool GetDecoderSpecificInfo(uint8_t *config, uint32_t capacity, uint32_t &length) const;

    // Closes the encoder and discards its buffered samples. Can be called on a closed encoder.
    void Close();

private:
    struct State;
    std::unique_ptr<State> m_state;
};
