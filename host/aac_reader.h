// Takes an AAC file apart into the raw access units that the module decodes, one at a time.
//
// Reads ADTS (.aac), whose headers are stripped, and MP4 (.m4a, .mp4), which stores the units bare.
// What cannot be used is told apart: a file that cannot be played at all throws AacFileError; a unit
// that is damaged is reported as such and reading goes on behind it.
//
// One thread. Portable: no Windows call.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/aac_file_error.h"

struct AVFormatContext;
struct AVPacket;

namespace velto::host {

// What the file says about its sound.
struct AacStream {
    bool isAdts = false;
    uint32_t sampleRateHz = 0;           // of the AAC core: a unit lasts 1024 of its samples
    uint32_t channels = 0;               // as decoded
    uint32_t objectType = 0;             // of MPEG-4 audio: 2 is AAC-LC, 5 HE-AAC, 29 HE-AAC v2
    double durationSeconds = 0;          // 0: not known (ADTS files do not say)
    std::vector<uint8_t> specificConfig; // MPEG-4 AudioSpecificConfig, for a decoder

    double FrameSeconds() const;
};

// "AAC-LC", "HE-AAC", ...; the number for a type without a common name.
std::string ObjectTypeName(uint32_t objectType);

class AacReader {
public:
    enum class Outcome {
        FRAME,   // one raw access unit
        DAMAGED, // one unit that is incomplete or not AAC; Damage() tells why
        MISSING, // the file lacks the bytes of a unit that it lists; Damage() tells why
        END,
    };

    // Opens the file, path in UTF-8, and reads as far as it takes to know the stream.
    explicit AacReader(const std::string &path);
    ~AacReader();
    AacReader(const AacReader &) = delete;
    AacReader &operator=(const AacReader &) = delete;

    const AacStream &Stream() const { return m_stream; }

    // Fetches the next unit into `frame`, which is left alone unless the outcome is FRAME.
    Outcome Read(std::vector<uint8_t> &frame);

    // Why the last unit was DAMAGED or MISSING.
    const std::string &Damage() const { return m_damage; }

private:
    void Open(const std::string &path);
    void Describe();
    Outcome TakeUnit(std::vector<uint8_t> &frame);
    Outcome Fail(Outcome outcome, std::string damage);

    struct FormatCloser {
        void operator()(AVFormatContext *context) const;
    };
    struct PacketCloser {
        void operator()(AVPacket *packet) const;
    };

    std::unique_ptr<AVFormatContext, FormatCloser> m_format;
    std::unique_ptr<AVPacket, PacketCloser> m_packet;
    int m_index = -1; // of the stream with the sound
    int m_failuresInARow = 0;
    AacStream m_stream;
    std::string m_damage;
};

} // namespace velto::host
