// AacReader with valid, damaged and unsupported files.
#include "velto-host/portable/aac_reader.h"

#include <cstring>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velto-host/portable/aac_format.h"
#include "velto-host/portable/ffmpeg.h"
#include "sample_file.h"

namespace velto::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using velto_test::SampleFile;
using velto_test::Tone;
using velto_test::WriteTone;

struct Counts {
    int frames = 0;
    int damaged = 0;
    int missing = 0;
    int undecodable = 0;
};

class AacReader : public testing::Test {
protected:
    void SetUp() override { av_log_set_level(AV_LOG_QUIET); }

    // Reads to the end, decodes each unit and counts the outcomes.
    static Counts ReadAll(host::AacReader &reader)
    {
        Counts counts;
        LevelMeter meter(reader.Stream());
        std::vector<uint8_t> frame;
        for (;;) {
            switch (reader.Read(frame)) {
            case host::AacReader::Outcome::UNIT:
                ++counts.frames;
                counts.undecodable += meter.PeakDb(frame) ? 0 : 1;
                break;
            case host::AacReader::Outcome::DAMAGED:
                ++counts.damaged;
                break;
            case host::AacReader::Outcome::MISSING:
                ++counts.missing;
                break;
            case host::AacReader::Outcome::END:
                return counts;
            }
        }
    }

    static std::string WhyRefused(const SampleFile &file)
    {
        try {
            host::AacReader reader(file.Utf8Path());
        } catch (const AacFileError &error) {
            return error.what();
        }
        return "not refused";
    }
};

TEST_F(AacReader, ReadsAdtsUnitsWithoutTheirHeaders)
{
    const SampleFile file(u8"tone.aac");
    WriteTone(file, "adts", Tone{.units = 40});
    host::AacReader reader(file.Utf8Path());
    EXPECT_TRUE(reader.Stream().isAdts);
    EXPECT_EQ(reader.Stream().sampleRateHz, 48000u);
    EXPECT_EQ(reader.Stream().channels, 2u);
    EXPECT_EQ(reader.Stream().objectType, 2u);

    // Parsing the headers by hand gives the same units in the same order.
    const std::vector<uint8_t> bytes = file.Bytes();
    std::span<const uint8_t> rest(bytes);
    std::vector<uint8_t> frame;
    for (int unit = 0; unit < 40; ++unit) {
        const auto header = ParseAdtsHeader(rest);
        ASSERT_TRUE(header.has_value()) << "unit " << unit;
        ASSERT_EQ(reader.Read(frame), host::AacReader::Outcome::UNIT) << "unit " << unit;
        const auto payload = rest.subspan(header->headerBytes, header->frameBytes - header->headerBytes);
        EXPECT_TRUE(std::equal(frame.begin(), frame.end(), payload.begin(), payload.end()))
            << "unit " << unit;
        rest = rest.subspan(header->frameBytes);
    }
    EXPECT_EQ(reader.Read(frame), host::AacReader::Outcome::END);
    EXPECT_TRUE(rest.empty());
}

TEST_F(AacReader, ReadsSameUnitsFromMp4AsFromAdts)
{
    const SampleFile adts(u8"tone.aac");
    WriteTone(adts, "adts", Tone{.units = 40});
    host::AacReader expected(adts.Utf8Path());
    for (const char *muxer : {"ipod", "mp4"}) {
        const SampleFile file(u8"tone.m4a");
        WriteTone(file, muxer, Tone{.units = 40});
        host::AacReader reader(file.Utf8Path());
        EXPECT_FALSE(reader.Stream().isAdts);
        EXPECT_EQ(reader.Stream().sampleRateHz, 48000u);
        EXPECT_NEAR(reader.Stream().durationSeconds, 40 * 1024 / 48000.0, 0.03);
        host::AacReader same(adts.Utf8Path());
        std::vector<uint8_t> frame;
        std::vector<uint8_t> other;
        for (int unit = 0; unit < 40; ++unit) {
            ASSERT_EQ(reader.Read(frame), host::AacReader::Outcome::UNIT) << muxer << " unit " << unit;
            ASSERT_EQ(same.Read(other), host::AacReader::Outcome::UNIT);
            EXPECT_EQ(frame, other) << muxer << " unit " << unit;
        }
        EXPECT_EQ(reader.Read(frame), host::AacReader::Outcome::END);
    }
}

TEST_F(AacReader, ReportsRateChannelsAndUnitDurationOf22050HzMono)
{
    for (const char *muxer : {"adts", "ipod"}) {
        const SampleFile file(u8"tone");
        WriteTone(file, muxer, Tone{.units = 20, .sampleRateHz = 22050, .channels = 1});
        host::AacReader reader(file.Utf8Path());
        EXPECT_EQ(reader.Stream().sampleRateHz, 22050u) << muxer;
        EXPECT_EQ(reader.Stream().channels, 1u) << muxer;
        EXPECT_DOUBLE_EQ(reader.Stream().UnitSeconds(), 1024 / 22050.0) << muxer;
        const Counts counts = ReadAll(reader);
        EXPECT_EQ(counts.frames, 20) << muxer;
        EXPECT_EQ(counts.undecodable, 0) << muxer;
    }
}

TEST_F(AacReader, OpensFileWithNonAsciiName)
{
    const SampleFile file(u8"\u00FCn\u00EF \u65E5\u672C.aac");
    WriteTone(file, "adts", Tone{.units = 5});
    host::AacReader reader(file.Utf8Path());
    EXPECT_EQ(ReadAll(reader).frames, 5);
}

TEST_F(AacReader, NamesMissingFileInError)
{
    const SampleFile file(u8"missing.aac");
    EXPECT_THAT(WhyRefused(file), AllOf(HasSubstr("missing.aac"), HasSubstr("No such file")));
}

TEST_F(AacReader, RefusesEmptyFile)
{
    const SampleFile file(u8"empty.aac");
    file.Write({});
    EXPECT_THAT(WhyRefused(file), HasSubstr("neither an ADTS"));
}

TEST_F(AacReader, RefusesWavFile)
{
    const SampleFile file(u8"sound.wav");
    file.Write(velto_test::WavBytes());
    // FFmpeg builds with a WAV demuxer report the format; other builds do not recognise the file.
    EXPECT_THAT(WhyRefused(file), testing::AnyOf(HasSubstr("format \"wav\""), HasSubstr("neither an ADTS")));
}

TEST_F(AacReader, RefusesPlaylistBeforeOpeningItsFiles)
{
    const SampleFile file(u8"list.aac");
    const std::string list = "ffconcat version 1.0\nfile 'nowhere.aac'\n";
    file.Write({list.begin(), list.end()});
    EXPECT_THAT(WhyRefused(file),
                testing::AnyOf(HasSubstr("format \"concat\""), HasSubstr("neither an ADTS")));
}

TEST_F(AacReader, RefusesWavContentNamedAac)
{
    const SampleFile file(u8"sound.aac");
    file.Write(velto_test::WavBytes());
    EXPECT_THAT(WhyRefused(file), testing::AnyOf(HasSubstr("format \"wav\""), HasSubstr("no AAC unit"),
                                                 HasSubstr("neither an ADTS")));
}

TEST_F(AacReader, RefusesNoiseNamedAac)
{
    const SampleFile file(u8"noise.aac");
    std::mt19937 random(1);
    std::vector<uint8_t> bytes(50000);
    for (uint8_t &byte : bytes) {
        byte = static_cast<uint8_t>(random() & 0x7F); // no sync word can occur
    }
    file.Write(bytes);
    EXPECT_THAT(WhyRefused(file), testing::AnyOf(HasSubstr("no AAC unit"), HasSubstr("neither an ADTS"),
                                                 HasSubstr("of format")));
}

TEST_F(AacReader, LosesOnlyLastUnitOfTruncatedAdts)
{
    const SampleFile file(u8"cut.aac");
    WriteTone(file, "adts", Tone{.units = 40});
    std::vector<uint8_t> bytes = file.Bytes();
    bytes.resize(bytes.size() - 20);
    file.Write(bytes);
    host::AacReader reader(file.Utf8Path());
    const Counts counts = ReadAll(reader);
    EXPECT_EQ(counts.frames, 39);
    EXPECT_EQ(counts.damaged, 1);
    EXPECT_EQ(counts.undecodable, 0);
}

TEST_F(AacReader, ReadsTruncatedMp4UpToCut)
{
    const SampleFile file(u8"cut.m4a");
    WriteTone(file, "ipod", Tone{.units = 100}, true);
    std::vector<uint8_t> bytes = file.Bytes();
    bytes.resize(bytes.size() * 2 / 3);
    file.Write(bytes);
    host::AacReader reader(file.Utf8Path());
    const Counts counts = ReadAll(reader);
    EXPECT_GT(counts.frames, 50);
    EXPECT_LT(counts.frames, 75);
    EXPECT_EQ(counts.undecodable, 0);
    EXPECT_GE(counts.damaged + counts.missing, 1);
    EXPECT_GT(reader.Stream().durationSeconds, 2.0); // the index still describes the whole file
}

TEST_F(AacReader, RefusesMp4WithoutIndex)
{
    const SampleFile file(u8"no_index.m4a");
    WriteTone(file, "ipod", Tone{.units = 100});
    std::vector<uint8_t> bytes = file.Bytes();
    bytes.resize(bytes.size() / 2);
    file.Write(bytes);
    EXPECT_THAT(WhyRefused(file), HasSubstr("neither an ADTS"));
}

TEST_F(AacReader, LosesAtMostTwoUnitsToGarbageInAdts)
{
    const SampleFile file(u8"garbage.aac");
    WriteTone(file, "adts", Tone{.units = 60});
    std::vector<uint8_t> bytes = file.Bytes();
    size_t middle = 0;
    for (int unit = 0; unit < 30; ++unit) {
        middle += ParseAdtsHeader(std::span(bytes).subspan(middle))->frameBytes;
    }
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(middle), 500, 0x55);
    file.Write(bytes);
    host::AacReader reader(file.Utf8Path());
    const Counts counts = ReadAll(reader);
    EXPECT_GE(counts.frames - counts.undecodable, 58);
    EXPECT_LE(counts.frames, 60);
}

TEST_F(AacReader, ReadsMostAdtsUnitsDespiteFlippedBits)
{
    const SampleFile file(u8"flipped.aac");
    WriteTone(file, "adts", Tone{.units = 100});
    const std::vector<uint8_t> intact = file.Bytes();
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::vector<uint8_t> bytes = intact;
        for (int flip = 0; flip < 10; ++flip) {
            // After the first units, from which FFmpeg detects the stream's format.
            const size_t at = 4000 + random() % (bytes.size() - 4000);
            bytes[at] = static_cast<uint8_t>(bytes[at] ^ (1u << random() % 8));
        }
        file.Write(bytes);
        host::AacReader reader(file.Utf8Path());
        const Counts counts = ReadAll(reader);
        EXPECT_GE(counts.frames - counts.undecodable, 70) << "seed " << seed;
        EXPECT_LE(counts.frames, 100) << "seed " << seed;
    }
}

TEST_F(AacReader, ReadsMp4WithFlippedBitsOrNamesFileInError)
{
    const SampleFile file(u8"flipped.m4a");
    WriteTone(file, "ipod", Tone{.units = 60}, true);
    const std::vector<uint8_t> intact = file.Bytes();
    int played = 0;
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        std::vector<uint8_t> bytes = intact;
        for (int flip = 0; flip < 5; ++flip) {
            const size_t at = random() % bytes.size();
            bytes[at] = static_cast<uint8_t>(bytes[at] ^ (1u << random() % 8));
        }
        file.Write(bytes);
        try {
            host::AacReader reader(file.Utf8Path());
            played += ReadAll(reader).frames > 0 ? 1 : 0;
        } catch (const AacFileError &error) {
            EXPECT_THAT(error.what(), HasSubstr("flipped.m4a: "));
        }
    }
    EXPECT_GT(played, 20);
}

TEST_F(AacReader, DerivesSameConfigFromAdtsAsMp4Stores)
{
    const SampleFile adts(u8"tone.aac");
    const SampleFile mp4(u8"tone.m4a");
    WriteTone(adts, "adts", Tone{.sampleRateHz = 44100, .channels = 1});
    WriteTone(mp4, "ipod", Tone{.sampleRateHz = 44100, .channels = 1});
    const std::vector<uint8_t> derived = host::AacReader(adts.Utf8Path()).Stream().specificConfig;
    const std::vector<uint8_t> stored = host::AacReader(mp4.Utf8Path()).Stream().specificConfig;
    ASSERT_EQ(derived.size(), 2u);
    ASSERT_GE(stored.size(), 2u); // FFmpeg appends an extension that signals no SBR
    EXPECT_TRUE(std::equal(derived.begin(), derived.end(), stored.begin()));
}

TEST_F(AacReader, NamesCommonObjectTypesAndNumbersOthers)
{
    EXPECT_EQ(ObjectTypeName(2), "AAC-LC");
    EXPECT_EQ(ObjectTypeName(5), "HE-AAC");
    EXPECT_EQ(ObjectTypeName(23), "MPEG-4 audio object type 23");
}

} // namespace
} // namespace velto::host
