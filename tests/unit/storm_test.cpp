// Calls the whole function table and changes devices from many threads at the same time. Checks the results
// and that nothing leaks; the sanitizers check memory and races.
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

#include "aac_units.h"
#include "capture_fixture.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "reset.h"

namespace {

using namespace velto_test;
using namespace std::chrono_literals;

constexpr int idleReleases = 12;
constexpr int deviceChanges = 60;
constexpr int recordings = 12;
constexpr int callsPerThread = 400;

const std::array<std::wstring, 2> loudspeakers{L"speakers", L"headphones"};
const std::array<std::wstring, 2> microphones{L"microphone", L"headset"};

// VELTO_STORM_SEED repeats the calls of a failed run. The scheduling of the threads still differs.
uint32_t Seed()
{
    const char *seed = std::getenv("VELTO_STORM_SEED");
    return seed != nullptr ? static_cast<uint32_t>(std::strtoul(seed, nullptr, 10)) : std::random_device{}();
}

// The random choices of one thread.
class RandomChoices {
public:
    explicit RandomChoices(uint32_t seed) : m_engine(seed) {}
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
        OpenAndReleaseSpeakers();
        m_handlesWhenIdle = fakewin::LiveHandles();
    }

    // Starts a thread with its own random choices.
    template <typename Body>
    void Start(Body body)
    {
        m_threads.emplace_back(
            [this, body, random = RandomChoices(m_seed + static_cast<uint32_t>(m_threads.size()))]() mutable {
                body(random);
            });
    }

    void JoinAll()
    {
        for (std::thread &thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
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

    void Write(RandomChoices &random, const std::string &id);
    void SetParameters(RandomChoices &random);
    void CloseTrack(RandomChoices &random);
    void QueryCapabilities() const;
    void Record(RandomChoices &random);
    void Read(RandomChoices &random);
    void ChangeDevices(RandomChoices &random);

    AudioHandlerTable table{};
    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    const std::vector<AacUnit> units = EncodeTone(20);
    std::atomic<bool> recordingsOver{false};

private:
    const uint32_t m_seed = Printed(Seed());
    int m_handlesWhenIdle = 0;
    int m_earlierReferences = 0;
    std::vector<std::thread> m_threads;

    static uint32_t Printed(uint32_t seed)
    {
        std::cout << "VELTO_STORM_SEED=" << seed << std::endl;
        return seed;
    }
};

// Writes mostly valid units; some writes have a damaged byte, a wrong id length or no header.
void Storm::Write(RandomChoices &random, const std::string &id)
{
    AacUnit bytes = units[random.Below(static_cast<uint32_t>(units.size()))];
    if (random.OneIn(10)) {
        bytes[random.Below(static_cast<uint32_t>(bytes.size()))] ^=
            static_cast<uint8_t>(1 + random.Below(255));
    }
    HostFrame record(bytes, static_cast<int32_t>(random.Below(4)));
    const bool rightLength = !random.OneIn(12);
    if (random.OneIn(12)) {
        record.frame.header = nullptr;
    }
    const int32_t result =
        table.WriteStreamBuffer(id.c_str(), Length(id) + (rightLength ? 0 : 1), nullptr, &record.frame);
    if (rightLength && record.frame.header != nullptr) {
        EXPECT_EQ(result, VELTO_OK);
    } else {
        // While another thread starts the speakers, a write returns 0 without checking its arguments.
        EXPECT_THAT(result, ::testing::AnyOf(VELTO_OK, VELTO_ERROR_INVALID));
    }
}

void Storm::SetParameters(RandomChoices &random)
{
    const std::string id = random.OneIn(2) ? "speaker1" : "ModemSpeaker1";
    const std::array<AudioProfileEntry, 3> entries{
        {{VELTO_KEY_SAMPLE_RATE, 10, random.OneIn(2) ? 48000U : 44100U},
         {VELTO_KEY_CHANNEL, 7, VELTO_CHANNEL_STEREO},
         {VELTO_KEY_FORMAT, 6, VELTO_FORMAT_S16}}};
    const uint32_t count = random.Below(4);
    const AudioProfileList list{count, 0, entries.data()};
    EXPECT_EQ(table.SetAudioParameter(id.c_str(), Length(id), nullptr, nullptr, &list),
              count == 0 ? VELTO_ERROR_INVALID : VELTO_OK);
}

void Storm::CloseTrack(RandomChoices &random)
{
    const std::string id = random.OneIn(2) ? "speaker1" : "ModemSpeaker1";
    const bool rightLength = !random.OneIn(8);
    EXPECT_EQ(table.CloseAudioTrack(id.c_str(), Length(id) - (rightLength ? 0 : 1)),
              rightLength ? VELTO_OK : VELTO_ERROR_INVALID);
}

void Storm::QueryCapabilities() const
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(table.GetAudioCapability(&list, &count), VELTO_OK);
    EXPECT_EQ(count, 4U);
    EXPECT_STREQ(list[0].name, "speaker1");
    table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
}

void Storm::Record(RandomChoices &random)
{
    const std::string id = random.OneIn(2) ? "mic1" : "ModemMic1";
    const AudioProfileList profiles{};
    EXPECT_EQ(table.OpenAudioRecord(id.c_str(), Length(id), nullptr, nullptr, &profiles), VELTO_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(random.Below(40)));
    EXPECT_EQ(table.CloseAudioRecord(id.c_str(), Length(id)), VELTO_OK);
}

void Storm::Read(RandomChoices &random)
{
    std::array<uint8_t, 1536> data; // AddressSanitizer reports a write past the end
    const uint32_t requested = random.OneIn(2) ? 3840U : 200U;
    HostFrame record(data.data(), requested);
    if (random.OneIn(10)) {
        record.frame.data = nullptr;
        EXPECT_EQ(table.ReadStreamBuffer("mic1", 4, nullptr, &record.frame), VELTO_ERROR_NULL_POINTER);
        return;
    }
    EXPECT_EQ(table.ReadStreamBuffer("mic1", 4, nullptr, &record.frame), VELTO_OK);
    EXPECT_TRUE(record.header.size == requested || record.header.size <= data.size()) << record.header.size;
}

void Storm::ChangeDevices(RandomChoices &random)
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
    for (const char *id : {"speaker1", "ModemSpeaker1", "speaker1", "ModemSpeaker1"}) {
        Start([this, id](RandomChoices &random) {
            for (int call = 0; call < callsPerThread; ++call, random.Pause()) {
                Write(random, id);
            }
        });
    }
    Start([this](RandomChoices &random) {
        for (int call = 0; call < callsPerThread; ++call, random.Pause()) {
            SetParameters(random);
            CloseTrack(random);
            QueryCapabilities();
        }
    });
    Start([this](RandomChoices &random) {
        for (int recording = 0; recording < recordings; ++recording) {
            Record(random);
        }
        recordingsOver = true;
    });
    for (int reader = 0; reader < 2; ++reader) {
        Start([this](RandomChoices &random) {
            while (!recordingsOver) {
                Read(random);
                random.Pause();
            }
        });
    }
    Start([this](RandomChoices &random) {
        for (int change = 0; change < deviceChanges; ++change) {
            ChangeDevices(random);
            std::this_thread::sleep_for(std::chrono::milliseconds(random.Below(8)));
        }
    });
    Start([](RandomChoices &random) {
        for (int release = 0; release < idleReleases; ++release) {
            std::this_thread::sleep_for(std::chrono::milliseconds(random.Below(40)));
            fakewin::AdvanceClock(idleMs);
        }
    });
    JoinAll();
    ASSERT_TRUE(ReleaseSpeakers());
    const size_t clients = audio.Clients().size();
    OpenAndReleaseSpeakers();
    EXPECT_EQ(audio.Clients().size(), clients + 2) << "both speakers opened again";
    ExpectNothingLeft();
}

} // namespace
