#include "velto-host/portable/aac_reader.h"

#include <gtest/gtest.h>

#include "velto-host/portable/ffmpeg.h"
#include "sample_file.h"
#include "velto/audio_handler.h"

namespace velto::host {
namespace {

using velto_test::SampleFile;
using velto_test::Tone;
using velto_test::WriteTone;

class LevelMeter : public testing::Test {
protected:
    void SetUp() override { av_log_set_level(AV_LOG_QUIET); }

    // Returns the level of the tenth unit, well after the encoder's priming.
    static std::optional<double> LevelOf(const Tone &tone)
    {
        const SampleFile file(u8"tone.aac");
        WriteTone(file, "adts", tone);
        AacReader reader(file.Utf8Path());
        host::LevelMeter meter(reader.Stream());
        std::vector<uint8_t> frame;
        std::optional<double> level;
        for (int unit = 0; unit < 10 && reader.Read(frame) == AacReader::Outcome::UNIT; ++unit) {
            level = meter.PeakDb(frame);
        }
        return level;
    }
};

TEST_F(LevelMeter, MeasuresPeakOfTone)
{
    EXPECT_NEAR(LevelOf({.amplitude = 0.5}).value(), -6.0, 0.7);
    EXPECT_NEAR(LevelOf({.amplitude = 0.05}).value(), -26.0, 0.7);
    EXPECT_NEAR(LevelOf({.sampleRateHz = 22050, .channels = 1, .amplitude = 0.5}).value(), -6.0, 0.7);
}

TEST_F(LevelMeter, ReturnsFloorForSilence)
{
    EXPECT_DOUBLE_EQ(LevelOf({.amplitude = 0.0}).value(), silenceDb);
}

TEST_F(LevelMeter, ReachesFloorOnSecondSilentUnit)
{
    const SampleFile file(u8"tone.aac");
    WriteTone(file, "adts", {.units = 10, .amplitude = 0.5});
    AacReader reader(file.Utf8Path());
    host::LevelMeter meter(reader.Stream());
    std::vector<uint8_t> frame;
    for (int unit = 0; unit < 9; ++unit) {
        ASSERT_EQ(reader.Read(frame), AacReader::Outcome::UNIT);
        ASSERT_TRUE(meter.PeakDb(frame).has_value());
    }
    const std::vector<uint8_t> silentUnit = VELTO_SILENT_UNIT;
    EXPECT_GT(meter.PeakDb(silentUnit).value(), -20.0) << "the second half of the tone's last unit";
    for (int unit = 1; unit < VELTO_CUSHION_UNITS; ++unit) {
        EXPECT_DOUBLE_EQ(meter.PeakDb(silentUnit).value(), silenceDb) << "unit " << unit;
    }
}

TEST_F(LevelMeter, RefusesInvalidAac)
{
    host::LevelMeter meter(
        AacStream{.sampleRateHz = 48000, .channels = 2, .objectType = 2, .specificConfig = {0x11, 0x90}});
    ASSERT_TRUE(meter.IsAvailable());
    EXPECT_FALSE(meter.PeakDb(std::vector<uint8_t>(100, 0xFF)).has_value());
}

TEST_F(LevelMeter, ContinuesAfterRefusedUnit)
{
    const SampleFile file(u8"tone.aac");
    WriteTone(file, "adts", {.units = 12});
    AacReader reader(file.Utf8Path());
    host::LevelMeter meter(reader.Stream());
    std::vector<uint8_t> frame;
    for (int unit = 0; unit < 12; ++unit) {
        ASSERT_EQ(reader.Read(frame), AacReader::Outcome::UNIT);
        EXPECT_FALSE(meter.PeakDb(std::vector<uint8_t>(50, 0xFF)).has_value()) << "unit " << unit;
        EXPECT_TRUE(meter.PeakDb(frame).has_value()) << "unit " << unit;
    }
}

TEST_F(LevelMeter, ReturnsFloorWithoutDecoder)
{
    host::LevelMeter meter(
        AacStream{.sampleRateHz = 48000, .channels = 2, .objectType = 2, .specificConfig = {}});
    EXPECT_FALSE(meter.IsAvailable());
    EXPECT_DOUBLE_EQ(meter.PeakDb({1, 2, 3}).value(), silenceDb);
}

} // namespace
} // namespace velto::host
