// Everything that a host and the system may do to the module, all at once. What each call returns
// and what is left afterwards is judged; the sanitizers watch the rest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "aac_frames.h"
#include "capture_fixture.h"
#include "handler/speaker_track.h"
#include "velto/audio_handler.h"
#include "reset.h"

extern "C" int32_t VELTOGetAudioHandler(AudioHandlerTable *table);

namespace {

using namespace velto_test;
using namespace std::chrono_literals;

constexpr DWORD idleMs = 240000;
constexpr int idleReleases = 12;
constexpr int deviceChanges = 60;
constexpr int recordings = 12;
constexpr int callsOfAThread = 400;

const std::array<std::wstring, 2> loudspeakers{L"speakers", L"headphones"};
const std::array<std::wstring, 2> microphones{L"microphone", L"headset"};

// The seed of a storm that failed, in VELTO_STORM_SEED, draws the same calls again; how the threads
// meet is up to the system.
uint32_t Seed()
{
    const char *given = std::getenv("VELTO_STORM_SEED");
    return given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10))
                            : std::random_device{}();
}

// What one thread of the storm draws its decisions from.
class Dice {
public:
    explicit Dice(uint32_t seed) : m_engine(seed) {}
    uint32_t Below(uint32_t bound) { return std::uniform_int_distribution<uint32_t>(0, bound - 1)(m_engine); }
    bool OneIn(uint32_t bound) { return Below(bound) == 0; }
    void Pause() { std::this_thread::sleep_for(std::chrono::microseconds(Below(400))); }

private:
    std::mt19937 m_engine;
};

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
        RunQuietCycle();
        m_handlesAtRest = fakewin::LiveHandles();
    }

    // One thread of the storm, with dice of its own.
    template <typename Body>
    void Start(Body body)
    {
        m_threads.emplace_back(
            [this, body, dice = Dice(m_seed + static_cast<uint32_t>(m_threads.size()))]() mutable {
                body(dice);
            });
    }

    void JoinAll()
    {
        for (std::thread &thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

    // Drives the clock until the watchdog has released the speakers and every thread has ended.
    bool ReleaseSpeakers()
    {
        return Eventually([this] {
            fakewin::AdvanceClock(idleMs);
            std::this_thread::sleep_for(2ms);
            return velto::DeviceState == velto::DEVICE_NOT_INITIALISED &&
                   fakewin::ModuleReferences(fakewin::ThisModule()) == m_earlierReferences;
        });
    }

    // Opens both speakers and releases them. What the renderers keep is left: their events,
    // enumerators and devices.
    void RunQuietCycle()
    {
        StreamFrame none{};
        table.WriteStreamBuffer("speaker1", 8, nullptr, &none);
        EXPECT_TRUE(ReleaseSpeakers());
    }

    void ExpectNothingLeft()
    {
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
        EXPECT_EQ(fakewin::LiveHandles(), m_handlesAtRest);
        EXPECT_EQ(fakewin::OpenApartments(), 0);
        EXPECT_EQ(audio.RegisteredCallbacks(), 0);
        // Each of the two renderers keeps its enumerator and its device.
        EXPECT_EQ(audio.LiveObjects(), 4);
    }

    void Write(Dice &dice, const std::string &id);
    void SetParameters(Dice &dice);
    void CloseTrack(Dice &dice);
    void AskCapabilities() const;
    void Record(Dice &dice);
    void Read(Dice &dice);
    void ChangeDevices(Dice &dice);

    AudioHandlerTable table{};
    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    const std::vector<AacFrame> frames = EncodeTone(20);
    std::atomic<bool> recordingsOver{false};

private:
    const uint32_t m_seed = Announced(Seed());
    int m_handlesAtRest = 0;
    int m_earlierReferences = 0;
    std::vector<std::thread> m_threads;

    static uint32_t Announced(uint32_t seed)
    {
        std::cout << "VELTO_STORM_SEED=" << seed << std::endl;
        return seed;
    }
};

uint32_t Length(const std::string &id)
{
    return static_cast<uint32_t>(id.size());
}

// Mostly good frames; damaged bytes, a wrong length of the id, no frame and no header among them.
void Storm::Write(Dice &dice, const std::string &id)
{
    AacFrame bytes = frames[dice.Below(static_cast<uint32_t>(frames.size()))];
    if (dice.OneIn(10)) {
        bytes[dice.Below(static_cast<uint32_t>(bytes.size()))] ^= static_cast<uint8_t>(1 + dice.Below(255));
    }
    StreamFrameHeader header{static_cast<int32_t>(dice.Below(4)), static_cast<uint32_t>(bytes.size()), 0};
    StreamFrame frame{bytes.data(), {}, &header};
    const bool rightLength = !dice.OneIn(12);
    if (dice.OneIn(12)) {
        frame.header = nullptr;
    }
    const int32_t result =
        table.WriteStreamBuffer(id.c_str(), Length(id) + (rightLength ? 0 : 1), nullptr, &frame);
    if (rightLength && frame.header != nullptr) {
        EXPECT_EQ(result, VELTO_OK);
    } else {
        // A frame that meets another writer's start is dropped before anybody looks at it.
        EXPECT_THAT(result, ::testing::AnyOf(VELTO_OK, VELTO_ERROR_INVALID));
    }
}

void Storm::SetParameters(Dice &dice)
{
    const std::string id = dice.OneIn(2) ? "speaker1" : "ModemSpeaker1";
    const std::array<AudioProfileEntry, 3> entries{
        {{VELTO_KEY_SAMPLE_RATE, 10, dice.OneIn(2) ? 48000U : 44100U},
         {VELTO_KEY_CHANNEL, 7, VELTO_CHANNEL_STEREO},
         {VELTO_KEY_FORMAT, 6, VELTO_FORMAT_S16}}};
    const uint32_t count = dice.Below(4);
    const AudioProfileList list{count, 0, entries.data()};
    EXPECT_EQ(table.SetAudioParameter(id.c_str(), Length(id), nullptr, nullptr, &list),
              count == 0 ? VELTO_ERROR_INVALID : VELTO_OK);
}

void Storm::CloseTrack(Dice &dice)
{
    const std::string id = dice.OneIn(2) ? "speaker1" : "ModemSpeaker1";
    const bool right = !dice.OneIn(8);
    EXPECT_EQ(table.CloseAudioTrack(id.c_str(), Length(id) - (right ? 0 : 1)),
              right ? VELTO_OK : VELTO_ERROR_INVALID);
}

void Storm::AskCapabilities() const
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(table.GetAudioCapability(&list, &count), VELTO_OK);
    EXPECT_EQ(count, 4U);
    EXPECT_STREQ(list[0].name, "speaker1");
    table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
}

void Storm::Record(Dice &dice)
{
    const std::string id = dice.OneIn(2) ? "mic1" : "ModemMic1";
    const AudioProfileList profiles{};
    EXPECT_EQ(table.OpenAudioRecord(id.c_str(), Length(id), nullptr, nullptr, &profiles), VELTO_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(dice.Below(40)));
    EXPECT_EQ(table.CloseAudioRecord(id.c_str(), Length(id)), VELTO_OK);
}

void Storm::Read(Dice &dice)
{
    std::array<uint8_t, 1536> data; // a write past it is the sanitizer's to find
    StreamFrameHeader header{0, dice.OneIn(2) ? 3840U : 200U, 0};
    const uint32_t asked = header.size;
    StreamFrame frame{data.data(), {}, &header};
    if (dice.OneIn(10)) {
        frame.data = nullptr;
        EXPECT_EQ(table.ReadStreamBuffer("mic1", 4, nullptr, &frame), VELTO_ERROR_NULL_POINTER);
        return;
    }
    EXPECT_EQ(table.ReadStreamBuffer("mic1", 4, nullptr, &frame), VELTO_OK);
    EXPECT_TRUE(header.size == asked || header.size <= data.size()) << header.size;
}

void Storm::ChangeDevices(Dice &dice)
{
    const std::wstring &speaker = loudspeakers[dice.Below(2)];
    const std::wstring &microphone = microphones[dice.Below(2)];
    switch (dice.Below(6)) {
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
        audio.SetDefaultMicrophone(microphone);
        audio.NotifyDefaultChanged(eCapture, eConsole, microphone);
        break;
    default:
        audio.SetDefaultForAllRoles(speaker);
        audio.NotifyDefaultChanged(eRender, eMultimedia, speaker);
    }
}

TEST_F(Storm, GetsOnlyDocumentedResultsAndLeaksNothing)
{
    for (const char *id : {"speaker1", "ModemSpeaker1", "speaker1", "ModemSpeaker1"}) {
        Start([this, id](Dice &dice) {
            for (int call = 0; call < callsOfAThread; ++call, dice.Pause()) {
                Write(dice, id);
            }
        });
    }
    Start([this](Dice &dice) {
        for (int call = 0; call < callsOfAThread; ++call, dice.Pause()) {
            SetParameters(dice);
            CloseTrack(dice);
            AskCapabilities();
        }
    });
    Start([this](Dice &dice) {
        for (int recording = 0; recording < recordings; ++recording) {
            Record(dice);
        }
        recordingsOver = true;
    });
    for (int reader = 0; reader < 2; ++reader) {
        Start([this](Dice &dice) {
            while (!recordingsOver) {
                Read(dice);
                dice.Pause();
            }
        });
    }
    Start([this](Dice &dice) {
        for (int change = 0; change < deviceChanges; ++change) {
            ChangeDevices(dice);
            std::this_thread::sleep_for(std::chrono::milliseconds(dice.Below(8)));
        }
    });
    Start([](Dice &dice) {
        for (int release = 0; release < idleReleases; ++release) {
            std::this_thread::sleep_for(std::chrono::milliseconds(dice.Below(40)));
            fakewin::AdvanceClock(idleMs);
        }
    });
    JoinAll();
    ASSERT_TRUE(ReleaseSpeakers());
    const size_t clients = audio.Clients().size();
    RunQuietCycle();
    EXPECT_EQ(audio.Clients().size(), clients + 2) << "both speakers opened again";
    ExpectNothingLeft();
}

} // namespace
