#include "render_fixture.h"
#include "reset.h"

#include <cstring>

namespace velto_test {

std::vector<uint8_t> MakeBlock(uint32_t seed, size_t frames)
{
    std::vector<uint8_t> block(frames * 4);
    uint32_t state = seed * 2654435761U + 1;
    for (uint8_t &byte : block) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return block;
}

std::vector<uint8_t> Widened(const std::vector<uint8_t> &block)
{
    std::vector<uint8_t> wide(block.size() * 2);
    for (size_t i = 0; i < block.size(); i += 2) {
        wide[2 * i + 2] = block[i];
        wide[2 * i + 3] = block[i + 1];
    }
    return wide;
}

std::wstring FunctionFail(int64_t result, int line)
{
    return L"AudioPlayerWas function fail with " + std::to_wstring(result) + L". Release resource. Line:" +
           std::to_wstring(line);
}

std::wstring MemoryFail(int line)
{
    return L"AudioPlayerWas memory fail with 0. Release resource. Line:" + std::to_wstring(line);
}

std::wstring DroppedBlock(uint32_t frames)
{
    return L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=" + std::to_wstring(frames);
}

std::unique_ptr<velto::AudioPlayerWas> RenderTest::MakePlayer()
{
    fakes::ResetAll();
    return std::make_unique<velto::AudioPlayerWas>();
}

void OpenResources::ExpectNothingLeaked() const
{
    const fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::LiveHandles(), handles);
    EXPECT_EQ(fakewin::LiveTaskBlocks(), taskBlocks);
    EXPECT_EQ(audio.LiveObjects(), 0);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), audio.FailedUnregistrations());
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), references);
}

RenderTest::RenderTest() : player(MakePlayer()), probe(*player)
{
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

RenderTest::~RenderTest()
{
    Destroy();
    openBefore.ExpectNothingLeaked();
}

void RenderTest::InvalidateSpeakers()
{
    audio.Invalidate(L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
}

void RenderTest::Destroy()
{
    if (player != nullptr && fakewin::ApartmentDepth() > 0) {
        probe.SetOpen(true); // a test may have cleared the flag, and Close would only log a line then
        player->Close();
    }
    player.reset();
}

void RenderTest::OpenWith(const fakes::MixFormat &mix)
{
    Speakers().mixFormat = mix;
    ASSERT_TRUE(Open());
    ASSERT_NE(probe.RenderClient(), nullptr) << ::testing::PrintToString(Log());
    ClearLog();
}

} // namespace velto_test
