// What the renderer's tests share: one renderer on fake endpoints, and nothing left over after it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio_player_probe.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/log_recorder.h"

namespace velto_test {

using fakes::LogEntry;
using fakes::Method;

constexpr int infoLevel = 3;
constexpr int errorLevel = 4;

// 1024 frames of 16-bit stereo in which no sample is like its neighbours.
std::vector<uint8_t> MakeBlock(uint32_t seed = 1, size_t frames = 1024);
// The same samples with 32 bits, as the converter gives them at equal rate and layout.
std::vector<uint8_t> Widened(const std::vector<uint8_t> &block);

// "AudioPlayerWas function fail with <result>. Release resource. Line:<line>"
std::wstring FunctionFail(int64_t result, int line);
// The same for a null pointer.
std::wstring MemoryFail(int line);

// "AudioPlayerWas CheckDeviceChanged failed audioBufferSize=<frames>", of playTag.
std::wstring DroppedBlock(uint32_t frames);
inline constexpr char playTag[] = "AudioPlayerWas::PlayAudio";

// What is open at a moment, such as what earlier tests have left in the module's own static objects.
struct OpenThings {
    // Nothing was left behind since that moment.
    void ExpectNoMore() const;

    const int handles = fakewin::LiveHandles();
    const int taskBlocks = fakewin::LiveTaskBlocks();
    const int references = fakewin::ModuleReferences(fakewin::ImplementationModule());
};

class RenderTest : public ::testing::Test {
protected:
    RenderTest();
    // Closes and destroys the renderer; whatever it held must be given back.
    ~RenderTest() override;

    bool Open() { return player->Open(16, 2, 48000); }
    // Opens on an endpoint whose mix format is `mix`, forgets the log.
    void OpenWith(const fakes::MixFormat &mix);
    void Play(const std::vector<uint8_t> &block)
    {
        player->PlayAudio(block.data(), static_cast<int64_t>(block.size()));
    }
    // Leaves COM and destroys the renderer.
    void Destroy();
    fakes::Endpoint &Speakers() { return audio.Get(L"speakers"); }

    static std::vector<LogEntry> Log() { return fakes::LogRecorder::Instance().Entries(); }
    static std::vector<LogEntry> LogOf(const std::string &tag)
    {
        return fakes::LogRecorder::Instance().EntriesOf(tag);
    }
    static void ClearLog() { fakes::LogRecorder::Instance().Clear(); }
    static void ExpectLine(int level, const std::wstring &text, const std::string &tag, int times = 1)
    {
        EXPECT_EQ(fakes::LogRecorder::Instance().Count(level, text, tag), times)
            << ::testing::PrintToString(LogEntry{level, text, tag}) << " among "
            << ::testing::PrintToString(Log());
    }

    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioPlayerWas> player;
    velto::AudioPlayerWasProbe probe;
    const OpenThings earlier;

private:
    static std::unique_ptr<velto::AudioPlayerWas> MakePlayer();
};

} // namespace velto_test
