// Mix formats of 32 bits with other sample types than floats: integers, and 24 valid bits in 32.
#include <cstring>
#include <mmreg.h>

#include "render_fixture.h"

namespace {

using namespace velto_test;

// KSDATAFORMAT_SUBTYPE_PCM, which not every SDK has in a library.
constexpr GUID pcm{0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

struct SampleType {
    const char *name;
    bool isFloat;
    uint16_t validBits;
};

class RenderSampleTypes : public RenderTest, public ::testing::WithParamInterface<SampleType> {
protected:
    RenderSampleTypes()
    {
        Speakers().mixFormat.isFloat = GetParam().isFloat;
        Speakers().mixFormat.validBits = GetParam().validBits;
    }

    // Expects that the newest client was initialised with integers of the mix format's valid bits.
    void ExpectIntegers()
    {
        const std::vector<uint8_t> bytes = audio.Clients().back().format;
        WAVEFORMATEXTENSIBLE format;
        ASSERT_EQ(bytes.size(), sizeof format);
        std::memcpy(&format, bytes.data(), sizeof format);
        EXPECT_TRUE(IsEqualGUID(format.SubFormat, pcm));
        EXPECT_EQ(format.Format.wBitsPerSample, 32);
        EXPECT_EQ(format.Samples.wValidBitsPerSample, GetParam().validBits);
    }
};

TEST_P(RenderSampleTypes, PlaysIntegersOf32Bits)
{
    EXPECT_TRUE(Open());
    const auto block = MakeBlock();
    Play(block);
    ExpectIntegers();
    EXPECT_EQ(audio.Written(L"speakers"), Widened(block));
}

TEST_P(RenderSampleTypes, PlaysIntegersOf32BitsAfterReactivation)
{
    EXPECT_TRUE(Open());
    InvalidateSpeakers();
    const auto block = MakeBlock();
    Play(block);
    ASSERT_EQ(audio.Clients().size(), 2U);
    ExpectIntegers();
    EXPECT_EQ(audio.Written(L"speakers"), Widened(block));
}

INSTANTIATE_TEST_SUITE_P(, RenderSampleTypes,
                         ::testing::Values(SampleType{"Floats", true, 32}, SampleType{"Integers", false, 32},
                                           SampleType{"TwentyFourValidBits", false, 24}),
                         [](const auto &type) { return type.param.name; });

} // namespace
