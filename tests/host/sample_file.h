// AAC files for tests, made with FFmpeg's encoder and muxers. Each file is in a separate temporary folder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velto_test {

// The path of a file in a new temporary folder. The destructor removes the folder.
class SampleFile {
public:
    explicit SampleFile(const std::u8string &name);
    ~SampleFile();
    SampleFile(const SampleFile &) = delete;
    SampleFile &operator=(const SampleFile &) = delete;

    std::string Utf8Path() const;
    std::vector<uint8_t> Bytes() const;
    void Write(const std::vector<uint8_t> &bytes) const;

private:
    std::filesystem::path m_path;
};

struct Tone {
    int units = 50;
    int sampleRateHz = 48000;
    int channels = 2;
    double amplitude = 0.5;
};

// `muxer`: "adts", "ipod" (.m4a) or "mp4". `indexFirst` writes an MP4's index before the sound.
void WriteTone(const SampleFile &file, const std::string &muxer, const Tone &tone, bool indexFirst = false);

// A WAV file of one second of silence, 48000 Hz, 16 bit, stereo.
std::vector<uint8_t> WavBytes();

} // namespace velto_test
