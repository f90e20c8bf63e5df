// Writes raw AAC-LC access units to a file. The name's ending selects ADTS (.aac) or MP4 (.m4a, .mp4).
//
// Until the file is complete, its name has ".unfinished" appended; the destructor deletes such a file.
// Finish() gives the file its name and replaces an older file of that name.
//
// The first unit is the encoder's priming. An MP4 file states this, so that its sound begins with the second
// unit. An ADTS file cannot state it.
//
// One thread. Portable.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "velto-host/portable/aac_format.h"

struct AVFormatContext;
struct AVPacket;

namespace velto::host {

class AacWriter {
public:
    // The encoder's parameters.
    struct Format {
        uint32_t sampleRateHz = 48000;
        uint32_t channels = 2;
        uint32_t bitRate = 128000; // in bit/s; only MP4 states it
    };

    // Creates the file (path in UTF-8). Throws AacFileError if the ending is none of the three, or if the
    // file cannot be written.
    AacWriter(const std::string &path, const Format &format);
    ~AacWriter();
    AacWriter(const AacWriter &) = delete;
    AacWriter &operator=(const AacWriter &) = delete;

    // "ADTS" or "MP4".
    const char *Container() const;
    uint64_t Units() const { return m_units; }
    // Duration of the sound, without the encoder's priming.
    double Seconds() const;

    // Adds a unit. Throws AacFileError.
    void Write(std::span<const uint8_t> unit);

    // Completes the file and gives it its name; deletes it if it has no unit. Throws AacFileError. If only
    // renaming failed, the complete file keeps the unfinished name. This is the last call.
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
    bool m_begun = false;                                    // the unfinished file exists
    uint64_t m_units = 0;
};

} // namespace velto::host
