// Fixture of the renderer's tests: one renderer on fake endpoints, with a leak check after each test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio_player_probe.h"
#include "log_lines.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"

namespace velto_test {

using fakes::Method;

// A block of pseudo-random 16-bit stereo samples. Different seeds give different blocks.
std::vector<uint8_t> MakeBlock(uint32_t seed = 1, size_t frames = 1024);
// Returns the samples of a block in 32 bits, as the converter writes them at equal rate and layout.
std::vector<uint8_t> Widened(const std::vector<uint8_t> &block);

// "AudioPlayerWas function fail with <result>. Release resource. Line:<line>"
std::wstring FunctionFail(int64_t result, int line);
// The line for a null pointer: "AudioPlayerWas memory fail with 0. Release resource. Line:<line>"
std::wstring MemoryFail(int line);

// "AudioPlayerWas CheckDeviceChanged failed audioBufferSize=<frames>", with playTag.
std::wstring DroppedBlock(uint32_t frames);
inline constexpr char playTag[] = "AudioPlayerWas::PlayAudio";

// Records the counts of open resources at its construction. They need not be 0: earlier tests leave resources
// in the module's static objects.
struct OpenResources {
    // Expects the counts of the construction, and no objects, apartments, callbacks or violations.
    void ExpectNothingLeaked() const;

    const int handles = fakewin::LiveHandles();
    const int taskBlocks = fakewin::LiveTaskBlocks();
    const int references = fakewin::ModuleReferences(fakewin::ImplementationModule());
};

class RenderTest : public ::testing::Test {
protected:
    RenderTest();
    // Closes and destroys the renderer, then expects that nothing leaked.
    ~RenderTest() override;

    bool Open() { return player->Open(16, 2, 48000); }
    // Opens on an endpoint with this mix format, then clears the log.
    void OpenWith(const fakes::MixFormat &mix);
    void Play(const std::vector<uint8_t> &block)
    {
        player->PlayAudio(block.data(), static_cast<int64_t>(block.size()));
    }
    // Makes the client fail, and notifies the renderer so that the next block creates a new client.
    void InvalidateSpeakers();
    // Closes the renderer if this thread is still in an apartment, then destroys it.
    void Destroy();
    fakes::Endpoint &Speakers() { return audio.Get(L"speakers"); }

    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioPlayerWas> player;
    velto::AudioPlayerWasProbe probe;
    const OpenResources openBefore;

private:
    static std::unique_ptr<velto::AudioPlayerWas> MakePlayer();
};

} // namespace velto_test
