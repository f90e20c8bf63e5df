// AacReader splits an AAC file into the raw access units that the module decodes; LevelMeter measures the
// level of a unit.
//
// Reads ADTS (.aac), whose headers it removes, and MP4 (.m4a, .mp4), which stores the units without headers.
// Throws AacFileError for a file that cannot be played. After a damaged unit, which Read reports, reading
// continues with the next one.
//
// One thread for each object. Portable.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velto-host/portable/aac_format.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace velto::host {

class AacReader {
public:
    enum class Outcome {
        UNIT,    // one raw access unit
        DAMAGED, // one unit that is incomplete or not AAC; Damage() has the reason
        MISSING, // the file lacks the bytes of a unit that it lists; Damage() has the reason
        END,
    };

    // Opens the file (path in UTF-8) and reads the format of the stream.
    explicit AacReader(const std::string &path);
    ~AacReader();
    AacReader(const AacReader &) = delete;
    AacReader &operator=(const AacReader &) = delete;

    const AacStream &Stream() const { return m_stream; }

    // Reads the next unit into `unit`, which changes only if the outcome is UNIT.
    Outcome Read(std::vector<uint8_t> &unit);

    // Why the last unit was DAMAGED or MISSING.
    const std::string &Damage() const { return m_damage; }

private:
    void Open(const std::string &path);
    void Describe();
    Outcome TakeUnit(std::vector<uint8_t> &unit);
    Outcome Fail(Outcome outcome, std::string damage);

    struct FormatCloser {
        void operator()(AVFormatContext *context) const;
    };
    struct PacketCloser {
        void operator()(AVPacket *packet) const;
    };

    std::unique_ptr<AVFormatContext, FormatCloser> m_format;
    std::unique_ptr<AVPacket, PacketCloser> m_packet;
    int m_index = -1; // of the audio stream in the file
    int m_failuresInARow = 0;
    AacStream m_stream;
    std::string m_damage;
};

inline constexpr double silenceDb = -90.0; // the lowest level that is shown

// Decodes raw access units to measure their level.
class LevelMeter {
public:
    explicit LevelMeter(const AacStream &stream);
    ~LevelMeter();
    LevelMeter(const LevelMeter &) = delete;
    LevelMeter &operator=(const LevelMeter &) = delete;

    // False if there is no decoder for this stream. PeakDb then returns silenceDb for every unit.
    bool IsAvailable() const { return m_decoder != nullptr; }

    // The unit's peak in dBFS, at least silenceDb; a little above 0 is possible. Empty if the decoder rejects
    // the unit.
    std::optional<double> PeakDb(const std::vector<uint8_t> &unit);

private:
    struct Closer {
        void operator()(AVCodecContext *decoder) const;
        void operator()(AVPacket *packet) const;
        void operator()(AVFrame *frame) const;
    };

    std::unique_ptr<AVCodecContext, Closer> m_decoder;
    std::unique_ptr<AVPacket, Closer> m_packet;
    std::unique_ptr<AVFrame, Closer> m_frame;
};

} // namespace velto::host
