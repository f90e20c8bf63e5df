// The play thread with the real renderer, from the queue to the endpoint.
#include "play_thread_fixture.h"

namespace {

using namespace velto_test;
using velto::AudioPlayBuffer;

class PlayThreadSound : public PlayThread {
protected:
    PlayThreadSound() { audio.Get().mixFormat = {2, 16, 48000}; }

    // The next Open would leak the converter (known leak); freed here for LeakSanitizer.
    void FreeConverter()
    {
        velto::AudioPlayerWasProbe renderer(static_cast<velto::AudioPlayerWas &>(*probe.Player()));
        SwrContext *converter = renderer.TakeResampler();
        swr_free(&converter);
    }

    std::vector<uint8_t> PushBlocks(uint32_t first, uint32_t count)
    {
        std::vector<uint8_t> all;
        for (uint32_t i = first; i < first + count; ++i) {
            const auto block = MakeBlock(i);
            all.insert(all.end(), block.begin(), block.end());
            AudioPlayBuffer *buffer = MakeBuffer(0, 4096);
            std::memcpy(buffer->buf, block.data(), block.size());
            thread->PushBuffer(buffer);
        }
        return all;
    }

    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
};

TEST_F(PlayThreadSound, ReachesEndpointUnchanged)
{
    Start();
    const auto sound = PushBlocks(1, 20);
    EXPECT_TRUE(Eventually([&] { return audio.Written(L"speakers").size() >= sound.size(); }));
    EXPECT_EQ(audio.Written(L"speakers"), sound);
    thread->StopPlayThread();
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

// The default changes while the tenth block is being written and ten more are queued.
TEST_F(PlayThreadSound, LosesNoBlockOnDeviceChange)
{
    audio.Add(L"headset").mixFormat = {2, 16, 48000};
    audio.Before(
        fakes::Method::GetBuffer, [this] { audio.ChangeDefaultSpeaker(L"headset"); }, 10);
    const auto sound = PushBlocks(1, 20);
    Start();
    const auto played = [this] {
        auto all = audio.Written(L"speakers");
        const auto rest = audio.Written(L"headset");
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    };
    EXPECT_TRUE(Eventually([&] { return played().size() >= sound.size(); }));
    EXPECT_EQ(played(), sound);
    EXPECT_EQ(audio.Written(L"speakers").size(), sound.size() / 2);
}

TEST_F(PlayThreadSound, LeaksOnlyConverterOverHundredCycles)
{
    Start();
    thread->StopPlayThread();
    FreeConverter();
    const int handles = fakewin::LiveHandles();
    const int blocks = fakewin::LiveTaskBlocks();
    const int objects = audio.LiveObjects();
    const int references = fakewin::ModuleReferences(fakewin::ImplementationModule());
    std::vector<uint8_t> sound;
    for (uint32_t cycle = 0; cycle < 100; ++cycle) {
        Start();
        const auto part = PushBlocks(cycle * 5, 5);
        sound.insert(sound.end(), part.begin(), part.end());
        ASSERT_TRUE(Eventually([&] { return audio.Written(L"speakers").size() == sound.size(); })) << cycle;
        thread->StopPlayThread();
        FreeConverter();
        ASSERT_EQ(fakewin::LiveHandles(), handles);
        ASSERT_EQ(fakewin::LiveTaskBlocks(), blocks);
        ASSERT_EQ(audio.LiveObjects(), objects);
        ASSERT_EQ(fakewin::OpenApartments(), 0);
        ASSERT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), 0);
        ASSERT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), references);
    }
    EXPECT_EQ(audio.Written(L"speakers"), sound);
}

TEST_F(PlayThreadSound, KeepsEndpointDllLoadedAcrossRestarts)
{
    Start();
    thread->StopPlayThread();
    const int unloads = fakewin::ImplementationUnloads();
    FreeConverter();
    Start();
    thread->StopPlayThread();
    EXPECT_EQ(fakewin::ImplementationUnloads(), unloads) << "the endpoints' DLL was unloaded in between";
}

} // namespace
