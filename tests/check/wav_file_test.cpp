#include "check/portable/wav_file.h"

#include <bit>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::check {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Bytes = std::vector<uint8_t>;

void Append(Bytes &bytes, const std::string &text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void Append(Bytes &bytes, uint32_t number, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
    }
}

// A stereo file at 44100 Hz with one other part before the sound.
Bytes WavFile(uint32_t format, uint32_t bits, const Bytes &data, bool isExtensible = false)
{
    Bytes file;
    Append(file, "RIFF");
    Append(file, 0, 4); // not read
    Append(file, "WAVEfmt ");
    Append(file, isExtensible ? 40 : 16, 4);
    Append(file, isExtensible ? 0xFFFE : format, 2);
    Append(file, 2, 2);
    Append(file, 44100, 4);
    Append(file, 44100 * 2 * bits / 8, 4);
    Append(file, 2 * bits / 8, 2);
    Append(file, bits, 2);
    if (isExtensible) {
        Append(file, 0, 8);
        Append(file, format, 2);
        Append(file, 0, 14);
    }
    Append(file, "LIST");
    Append(file, 3, 4);
    Append(file, "odd");
    Append(file, 0, 1); // parts have an even length
    Append(file, "data");
    Append(file, static_cast<uint32_t>(data.size()), 4);
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

TEST(WavFile, ReadsSixteenBits)
{
    const WavSound sound = ParseWav(WavFile(1, 16, {0, 0x40, 0, 0x80}));
    EXPECT_EQ(sound.rateHz, 44100U);
    EXPECT_EQ(sound.channels, 2U);
    EXPECT_THAT(sound.interleaved, ElementsAre(0.5F, -1.0F));
}

TEST(WavFile, ReadsThirtyTwoBits)
{
    EXPECT_THAT(ParseWav(WavFile(1, 32, {0, 0, 0, 0x40, 0, 0, 0, 0x80})).interleaved,
                ElementsAre(0.5F, -1.0F));
}

TEST(WavFile, ReadsFloat)
{
    Bytes data;
    Append(data, std::bit_cast<uint32_t>(0.25F), 4);
    Append(data, std::bit_cast<uint32_t>(-0.125F), 4);
    EXPECT_THAT(ParseWav(WavFile(3, 32, data)).interleaved, ElementsAre(0.25F, -0.125F));
    EXPECT_THAT(ParseWav(WavFile(3, 32, data, true)).interleaved, ElementsAre(0.25F, -0.125F));
}

TEST(WavFile, ReadsWholeFramesOfUnfinishedFile)
{
    Bytes file = WavFile(1, 16, Bytes(12, 0x20));
    file.resize(file.size() - 2);
    EXPECT_THAT(ParseWav(file).interleaved, SizeIs(4));
    EXPECT_THAT(ParseWav(WavFile(1, 16, {})).interleaved, IsEmpty());
}

TEST(WavFile, RefusesOtherFormats)
{
    EXPECT_THROW(ParseWav(WavFile(1, 8, {})), std::runtime_error);
    EXPECT_THROW(ParseWav(WavFile(2, 16, {})), std::runtime_error);
    EXPECT_THROW(ParseWav(WavFile(3, 64, {})), std::runtime_error);
    EXPECT_THROW(ParseWav(Bytes(100)), std::runtime_error);
    EXPECT_THROW(ParseWav({}), std::runtime_error);
}

// Each beginning of a file is refused, or read without touching memory behind it.
TEST(WavFile, ReadsNothingBehindEndOfTruncatedFile)
{
    const Bytes file = WavFile(1, 16, {0, 0x40, 0, 0x80}, true);
    for (size_t size = 0; size < file.size() - 12; ++size) {
        EXPECT_THROW(ParseWav(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size))),
                     std::runtime_error)
            << size;
    }
}

TEST(WavFile, NamesFileThatCannotBeOpened)
{
    EXPECT_THROW(ReadWavFile("no-such-folder/no-such-file.wav"), std::runtime_error);
}

} // namespace
} // namespace velto::check
