// Writes raw AAC-LC access units into a file: ADTS (.aac) or MP4 (.m4a, .mp4), as its name ends.
//
// The file appears under its name when it is complete. Until then the bytes stand beside it, in a
// file whose name ends in ".unfinished", which goes away with this object. What stood under the
// name before is replaced.
//
// The first unit is taken to be the encoder's run-up, as every AAC encoder has it: an MP4 file says
// so, and its sound begins with the second unit. ADTS cannot say so.
//
// One thread. Portable: no Windows call.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "host/aac_file_error.h"

struct AVFormatContext;
struct AVPacket;

namespace velto::host {

class AacWriter {
public:
    // What the units were coded with.
    struct Format {
        uint32_t sampleRateHz = 48000;
        uint32_t channels = 2;
        uint32_t bitRate = 128000; // told in an MP4 file
    };

    // Begins the file, path in UTF-8. Throws AacFileError: the ending is none of the three, or the
    // file cannot be written there.
    AacWriter(const std::string &path, const Format &format);
    ~AacWriter();
    AacWriter(const AacWriter &) = delete;
    AacWriter &operator=(const AacWriter &) = delete;

    // "ADTS" or "MP4".
    const char *Container() const;
    uint64_t Units() const { return m_units; }
    // Of sound, the run-up left out.
    double Seconds() const;

    // Adds a unit. Throws AacFileError.
    void Write(std::span<const uint8_t> unit);

    // Completes the file and gives it its name; without a unit there will be none. Throws
    // AacFileError; when only the name is refused, the complete file stays beside it. Last call.
    void Finish();

private:
    struct FormatCloser {
        void operator()(AVFormatContext *context) const;
    };
    struct PacketCloser {
        void operator()(AVPacket *packet) const;
    };

    void Open(const char *muxer);
    void AddStream();
    void Check(int result) const;
    void Discard();

    const std::string m_name;
    const std::filesystem::path m_path;
    const std::filesystem::path m_unfinished;
    const Format m_parameters;
    std::unique_ptr<AVPacket, PacketCloser> m_packet;
    std::unique_ptr<AVFormatContext, FormatCloser> m_format; // null once finished
    bool m_begun = false;                                    // the unfinished file is there
    uint64_t m_units = 0;
};

} // namespace velto::host
