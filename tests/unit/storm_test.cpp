// Makes all calls of a host and all changes of devices at the same time, from many threads. Checks the
// results and that nothing leaks; the sanitizers check memory and races.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "aac_units.h"
#include "capture_fixture.h"
#include "check/portable/call_storm.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "reset.h"

namespace {

using namespace velto_test;
using namespace velto::check;
using namespace std::chrono_literals;

const std::array<std::wstring, 2> loudspeakers{L"speakers", L"headphones"};
const std::array<std::wstring, 2> microphones{L"microphone", L"headset"};

// VELTO_STORM_SEED repeats the calls of a failed run. The scheduling of the threads still differs.
uint32_t Seed()
{
    const char *seed = std::getenv("VELTO_STORM_SEED");
    return seed != nullptr ? static_cast<uint32_t>(std::strtoul(seed, nullptr, 10)) : std::random_device{}();
}

class Storm : public ::testing::Test {
protected:
    Storm()
    {
        fakes::ResetAll();
        for (const std::wstring &id : loudspeakers) {
            audio.Get(id).drainFrames = 4800;
        }
        audio.Get(L"headphones").mixFormat.rateHz = 44100;
        for (const std::wstring &id : microphones) {
            audio.Get(id).source = [] { return QuietPacket(480); };
        }
        EXPECT_EQ(VELTOGetAudioHandler(&table), VELTO_OK);
        m_earlierReferences = fakewin::ModuleReferences(fakewin::ThisModule());
        OpenAndReleaseSpeakers();
        m_handlesWhenIdle = fakewin::LiveHandles();
    }

    // Advances the clock until the watchdog has released the speakers and all threads have ended.
    bool ReleaseSpeakers()
    {
        return Eventually([this] {
            fakewin::AdvanceClock(idleMs);
            std::this_thread::sleep_for(2ms);
            return velto::DeviceState == velto::DEVICE_NOT_INITIALISED &&
                   fakewin::ModuleReferences(fakewin::ThisModule()) == m_earlierReferences;
        });
    }

    // Starts the speakers once and releases them. Their renderers then keep events, enumerators and devices.
    void OpenAndReleaseSpeakers()
    {
        StreamFrame none{};
        table.WriteStreamBuffer("speaker1", 8, nullptr, &none);
        EXPECT_TRUE(ReleaseSpeakers());
    }

    void ExpectNothingLeft()
    {
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
        EXPECT_EQ(fakewin::LiveHandles(), m_handlesWhenIdle);
        EXPECT_EQ(fakewin::OpenApartments(), 0);
        EXPECT_EQ(audio.RegisteredCallbacks(), 0);
        // Each of the two renderers keeps its enumerator and its device.
        EXPECT_EQ(audio.LiveObjects(), 4);
    }

    void ChangeDevices(Random &random);

    AudioHandlerTable table{};
    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    const uint32_t seed = Printed(Seed());

private:
    int m_handlesWhenIdle = 0;
    int m_earlierReferences = 0;

    static uint32_t Printed(uint32_t seed)
    {
        std::cout << "VELTO_STORM_SEED=" << seed << std::endl;
        return seed;
    }
};

void Storm::ChangeDevices(Random &random)
{
    const std::wstring &speaker = loudspeakers[random.Below(2)];
    const std::wstring &microphone = microphones[random.Below(2)];
    switch (random.Below(6)) {
    case 0:
        audio.Invalidate(speaker);
        break;
    case 1:
        audio.Invalidate(microphone);
        break;
    case 2:
        audio.NotifyPropertyChanged(speaker);
        break;
    case 3:
        audio.ChangeDefaultMicrophone(microphone);
        break;
    default:
        audio.ChangeDefaultSpeaker(speaker);
    }
}

TEST_F(Storm, GetsOnlyDocumentedResultsAndLeaksNothing)
{
    const AacUnits units = EncodeTone(20);
    CallStorm storm(table, units, {.seed = seed, .pace = 0.01, .rounds = 12});
    storm.Disturb(5, 800, [this](Random &random) { ChangeDevices(random); });
    storm.Disturb(1, 4000, [](Random &) { fakewin::AdvanceClock(idleMs); });
    storm.Finish();
    EXPECT_EQ(storm.Figures().FromDocumentation(), StormFigures::Differences{});
    ASSERT_TRUE(ReleaseSpeakers());
    const size_t clients = audio.Clients().size();
    OpenAndReleaseSpeakers();
    EXPECT_EQ(audio.Clients().size(), clients + 2) << "both speakers opened again";
    ExpectNothingLeft();
}

} // namespace
