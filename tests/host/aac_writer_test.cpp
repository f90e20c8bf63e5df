#include "velto-host/portable/aac_writer.h"

#include <filesystem>
#include <fstream>
#include <numeric>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velto-host/portable/aac_reader.h"
#include "velto-host/portable/ffmpeg.h"
#include "sample_file.h"

namespace velto::host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;
using velto_test::SampleFile;
using velto_test::WriteTone;
using Units = std::vector<std::vector<uint8_t>>;

Units ReadUnits(const std::string &path)
{
    AacReader reader(path);
    Units units;
    std::vector<uint8_t> unit;
    while (reader.Read(unit) == AacReader::Outcome::UNIT) {
        units.push_back(unit);
    }
    return units;
}

// Raw units at 48000 Hz in stereo, as the module's microphone delivers them.
Units ToneUnits(int count)
{
    const SampleFile file(u8"tone.aac");
    WriteTone(file, "adts", {.units = count + 10}); // FFmpeg does not recognise a file of a few units as AAC
    Units units = ReadUnits(file.Utf8Path());
    units.resize(static_cast<size_t>(count));
    return units;
}

void WriteAll(const std::string &path, const Units &units)
{
    AacWriter writer(path, {});
    for (const auto &unit : units) {
        writer.Write(unit);
    }
    writer.Finish();
}

// Returns the names of all files in the folder of `file`.
std::vector<std::string> FileNamesNextTo(const SampleFile &file)
{
    std::vector<std::string> names;
    const std::string path = file.Utf8Path();
    for (const auto &entry : std::filesystem::directory_iterator(
             std::filesystem::path(std::u8string(path.begin(), path.end())).parent_path())) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

// The properties that a player reads when it opens a file.
struct Played {
    explicit Played(const std::string &path)
    {
        AVFormatContext *format = nullptr;
        if (avformat_open_input(&format, ("file:" + path).c_str(), nullptr, nullptr) < 0) {
            throw std::runtime_error("cannot be opened");
        }
        avformat_find_stream_info(format, nullptr);
        const AVStream *stream = format->streams[0];
        seconds = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
        startSeconds = static_cast<double>(format->start_time) / AV_TIME_BASE;
        config.assign(stream->codecpar->extradata,
                      stream->codecpar->extradata + stream->codecpar->extradata_size);
        bitRate = stream->codecpar->bit_rate;
        AVPacket *packet = av_packet_alloc();
        av_read_frame(format, packet);
        firstPacketSeconds = static_cast<double>(packet->pts) * av_q2d(stream->time_base);
        av_packet_free(&packet);
        avformat_close_input(&format);
    }

    double seconds = 0;
    double startSeconds = -1;
    double firstPacketSeconds = 0;
    int64_t bitRate = 0;
    std::vector<uint8_t> config;
};

class AacWriter : public testing::Test {
protected:
    void SetUp() override { av_log_set_level(AV_LOG_QUIET); }
};

TEST_F(AacWriter, WritesUnitsUnchangedToAdts)
{
    const Units units = ToneUnits(30);
    const SampleFile file(u8"recorded.aac");
    WriteAll(file.Utf8Path(), units);
    EXPECT_EQ(ReadUnits(file.Utf8Path()), units);
    EXPECT_EQ(file.Bytes()[0], 0xFF);
}

TEST_F(AacWriter, WritesUnitsUnchangedToMp4)
{
    const Units units = ToneUnits(30);
    for (const char8_t *name : {u8"recorded.m4a", u8"recorded.mp4", u8"RECORDED.M4A"}) {
        const SampleFile file(name);
        WriteAll(file.Utf8Path(), units);
        EXPECT_EQ(ReadUnits(file.Utf8Path()), units);
    }
}

TEST_F(AacWriter, StoresConfigAndBitRateInMp4)
{
    const SampleFile file(u8"recorded.m4a");
    WriteAll(file.Utf8Path(), ToneUnits(30));
    const Played played(file.Utf8Path());
    EXPECT_THAT(played.config, testing::ElementsAre(0x11, 0x90));
    EXPECT_GT(played.bitRate, 10000);
}

TEST_F(AacWriter, StartsMp4TimelineAfterEncoderDelay)
{
    const SampleFile file(u8"recorded.m4a");
    WriteAll(file.Utf8Path(), ToneUnits(48));
    const Played played(file.Utf8Path());
    EXPECT_NEAR(played.firstPacketSeconds, -1024 / 48000.0, 1e-6);
    EXPECT_NEAR(played.startSeconds, 0, 1e-6);
    EXPECT_NEAR(played.seconds, 47 * 1024 / 48000.0, 0.001); // MP4 durations are in milliseconds
}

TEST_F(AacWriter, CountsAllUnitsButExcludesEncoderDelayFromSeconds)
{
    const SampleFile file(u8"recorded.aac");
    host::AacWriter writer(file.Utf8Path(), {});
    EXPECT_EQ(writer.Units(), 0u);
    EXPECT_DOUBLE_EQ(writer.Seconds(), 0.0);
    const Units units = ToneUnits(4);
    writer.Write(units[0]);
    EXPECT_DOUBLE_EQ(writer.Seconds(), 0.0);
    for (size_t i = 1; i < units.size(); ++i) {
        writer.Write(units[i]);
    }
    EXPECT_EQ(writer.Units(), 4u);
    EXPECT_DOUBLE_EQ(writer.Seconds(), 3 * 1024 / 48000.0);
}

TEST_F(AacWriter, UsesFinalNameOnlyForCompleteFile)
{
    const SampleFile file(u8"recorded.m4a");
    host::AacWriter writer(file.Utf8Path(), {});
    writer.Write(ToneUnits(1).front());
    EXPECT_THAT(FileNamesNextTo(file), testing::ElementsAre("recorded.m4a.unfinished"));
    writer.Finish();
    EXPECT_THAT(FileNamesNextTo(file), testing::ElementsAre("recorded.m4a"));
}

TEST_F(AacWriter, LeavesNoFileWithoutUnits)
{
    for (const char8_t *name : {u8"recorded.aac", u8"recorded.m4a"}) {
        const SampleFile file(name);
        host::AacWriter(file.Utf8Path(), {}).Finish();
        EXPECT_THAT(FileNamesNextTo(file), IsEmpty());
    }
}

TEST_F(AacWriter, DeletesAbandonedFile)
{
    const SampleFile file(u8"recorded.m4a");
    {
        host::AacWriter writer(file.Utf8Path(), {});
        writer.Write(ToneUnits(1).front());
    }
    EXPECT_THAT(FileNamesNextTo(file), IsEmpty());
}

TEST_F(AacWriter, ReplacesExistingFileOnlyWithCompleteFile)
{
    const Units units = ToneUnits(20);
    const SampleFile file(u8"recorded.aac");
    file.Write({1, 2, 3});
    host::AacWriter(file.Utf8Path(), {}).Finish();
    EXPECT_EQ(file.Bytes().size(), 3u);
    WriteAll(file.Utf8Path(), units);
    EXPECT_EQ(ReadUnits(file.Utf8Path()), units);
}

TEST_F(AacWriter, WritesFileWithNameOutsideCodePage)
{
    const Units units = ToneUnits(3);
    const SampleFile file(u8"Aufnahme \u00fc\u4e2d\u6587.m4a");
    WriteAll(file.Utf8Path(), units);
    EXPECT_EQ(ReadUnits(file.Utf8Path()), units);
}

TEST_F(AacWriter, RefusesOtherExtensionAndLeavesNoFile)
{
    for (const char8_t *name : {u8"recorded.wav", u8"recorded", u8"recorded.aac.txt"}) {
        const SampleFile file(name);
        EXPECT_THAT([&] { host::AacWriter(file.Utf8Path(), {}); },
                    ThrowsMessage<AacFileError>(HasSubstr("has to end in .aac")));
        EXPECT_THAT(FileNamesNextTo(file), IsEmpty());
    }
}

TEST_F(AacWriter, RefusesUnwritablePathOnConstruction)
{
    const SampleFile file(u8"recorded.aac");
    EXPECT_THAT([&] { host::AacWriter(file.Utf8Path() + "/none/recorded.aac", {}); },
                ThrowsMessage<AacFileError>(HasSubstr("cannot be written")));
}

TEST_F(AacWriter, RefusesPathOfFolder)
{
    const SampleFile file(u8"folder.aac");
    const std::string path = file.Utf8Path();
    std::filesystem::create_directory(std::u8string(path.begin(), path.end()));
    EXPECT_THAT([&] { host::AacWriter(path, {}); }, ThrowsMessage<AacFileError>(HasSubstr("is a folder")));
}

TEST_F(AacWriter, KeepsUnfinishedFileWhenFinalNameIsFolder)
{
    const Units units = ToneUnits(20);
    const SampleFile file(u8"recorded.aac");
    const std::string path = file.Utf8Path();
    {
        host::AacWriter writer(path, {});
        for (const auto &unit : units) {
            writer.Write(unit);
        }
        // No system replaces a folder that is not empty.
        std::filesystem::create_directories(std::u8string(path.begin(), path.end()) + u8"/something");
        EXPECT_THAT([&] { writer.Finish(); },
                    ThrowsMessage<AacFileError>(HasSubstr("recorded.aac.unfinished")));
    }
    EXPECT_EQ(ReadUnits(path + ".unfinished"), units);
}

TEST_F(AacWriter, RefusesEmptyUnitAndContinues)
{
    const Units units = ToneUnits(2);
    const SampleFile file(u8"recorded.m4a");
    host::AacWriter writer(file.Utf8Path(), {});
    writer.Write(units[0]);
    EXPECT_THROW(writer.Write({}), AacFileError);
    writer.Write(units[1]);
    writer.Finish();
    EXPECT_EQ(ReadUnits(file.Utf8Path()), units);
}

} // namespace
} // namespace velto::host
