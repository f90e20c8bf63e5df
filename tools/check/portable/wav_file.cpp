#include "check/portable/wav_file.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace velto::check {
namespace {

constexpr size_t riffHeaderBytes = 12;
constexpr size_t chunkHeaderBytes = 8;
constexpr uint32_t integerFormat = 1;
constexpr uint32_t floatFormat = 3;
constexpr uint32_t extensibleFormat = 0xFFFE; // the format's number begins the sub-format
constexpr size_t subFormatAt = 24;

uint32_t Number(std::span<const uint8_t> bytes, size_t at, size_t size)
{
    if (at + size > bytes.size()) {
        throw std::runtime_error("the WAV file is too short");
    }
    uint32_t number = 0;
    for (size_t i = 0; i < size; ++i) {
        number |= uint32_t{bytes[at + i]} << (8 * i);
    }
    return number;
}

bool HasText(std::span<const uint8_t> bytes, size_t at, std::string_view text)
{
    return at + text.size() <= bytes.size() && std::memcmp(bytes.data() + at, text.data(), text.size()) == 0;
}

// The contents of a chunk. A recording that was not finished may state more bytes than the file has.
std::span<const uint8_t> Chunk(std::span<const uint8_t> file, std::string_view name)
{
    size_t at = riffHeaderBytes;
    while (at + chunkHeaderBytes <= file.size()) {
        const size_t begin = at + chunkHeaderBytes;
        const size_t bytes = Number(file, at + 4, 4);
        if (HasText(file, at, name)) {
            return file.subspan(begin, std::min(bytes, file.size() - begin));
        }
        at = begin + bytes + bytes % 2;
    }
    throw std::runtime_error("the WAV file has no part \"" + std::string(name) + "\"");
}

struct SampleFormat {
    uint32_t number;
    uint32_t bits;

    float Value(std::span<const uint8_t> data, size_t sample) const
    {
        if (number == floatFormat) {
            return std::bit_cast<float>(Number(data, sample * 4, 4));
        }
        if (bits == 16) {
            return static_cast<float>(static_cast<int16_t>(Number(data, sample * 2, 2))) / 32768;
        }
        return static_cast<float>(static_cast<int32_t>(Number(data, sample * 4, 4))) / 2147483648.0F;
    }
};

} // namespace

WavSound ParseWav(std::span<const uint8_t> bytes)
{
    if (!HasText(bytes, 0, "RIFF") || !HasText(bytes, 8, "WAVE")) {
        throw std::runtime_error("the file is no WAV file");
    }
    const auto header = Chunk(bytes, "fmt ");
    SampleFormat format{Number(header, 0, 2), Number(header, 14, 2)};
    if (format.number == extensibleFormat) {
        format.number = Number(header, subFormatAt, 2);
    }
    const bool isInteger = format.number == integerFormat && (format.bits == 16 || format.bits == 32);
    if (!isInteger && !(format.number == floatFormat && format.bits == 32)) {
        throw std::runtime_error(
            "the WAV file has another format than 16-bit or 32-bit integers or 32-bit float");
    }
    WavSound sound{Number(header, 4, 4), Number(header, 2, 2), {}};
    if (sound.rateHz == 0 || sound.channels == 0) {
        throw std::runtime_error("the WAV file has no sample rate or no channels");
    }
    const auto data = Chunk(bytes, "data");
    const size_t frames = data.size() / (format.bits / 8) / sound.channels;
    sound.interleaved.reserve(frames * sound.channels);
    for (size_t i = 0; i < frames * sound.channels; ++i) {
        sound.interleaved.push_back(format.Value(data, i));
    }
    return sound;
}

WavSound ReadWavFile(const std::string &path)
{
    const std::u8string utf8(path.begin(), path.end());
    std::ifstream file(std::filesystem::path(utf8), std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot open " + path);
    }
    const std::vector<char> text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return ParseWav(std::span(reinterpret_cast<const uint8_t *>(text.data()), text.size()));
}

} // namespace velto::check
