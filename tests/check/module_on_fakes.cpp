#include "module_on_fakes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "capture/audio_capture.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"

namespace velto_test {
namespace {

using namespace std::chrono_literals;

FakesEnvironment *currentEnvironment = nullptr; // set while a ModuleOnFakes exists
AudioHandlerTable moduleTable;                  // the module's own functions

std::mutex recordingMutex; // an opening and a closing never overlap, so each knows what it replaces
std::vector<velto::AudioCapture *> replacedRecordings;

int32_t OpenRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                   const AudioProfileList *list)
{
    const std::lock_guard lock(recordingMutex);
    velto::AudioCapture *const earlier = velto::AudioCapture::Current();
    const int32_t result = moduleTable.OpenAudioRecord(id, idLength, unused1, unused2, list);
    if (earlier != nullptr && velto::AudioCapture::Current() != earlier) {
        replacedRecordings.push_back(earlier);
    }
    return result;
}

int32_t CloseRecord(const char *id, uint32_t idLength)
{
    const std::lock_guard lock(recordingMutex);
    return moduleTable.CloseAudioRecord(id, idLength);
}

// The longest time that a read of this size waits. The fakes end a wait below a second almost at once, and
// only a notification ends a longer one.
std::chrono::milliseconds SimulatedWait(uint32_t requested)
{
    constexpr int64_t bytesOf20Ms = 3840;
    const auto bytes = static_cast<int32_t>(requested);
    const std::chrono::milliseconds wait((bytes < 1 ? bytesOf20Ms : bytes) * 20 / bytesOf20Ms + 2);
    return wait < 1s ? wait : 0ms;
}

int32_t ReadStream(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const bool hasRecord = frame != nullptr && frame->header != nullptr;
    const uint32_t requested = hasRecord ? frame->header->size : 0;
    const int32_t result = moduleTable.ReadStreamBuffer(id, idLength, unused, frame);
    const bool waited =
        result == VELTO_OK && frame->header->size == 0 && velto::AudioCapture::Current() != nullptr;
    if (waited) {
        currentEnvironment->Elapse(SimulatedWait(requested));
    }
    return result;
}

} // namespace

ModuleOnFakes::ModuleOnFakes(Endpoints endpoints)
    : m_environment(endpoints), m_earlierReferences(fakewin::ModuleReferences(fakewin::ThisModule()))
{
    currentEnvironment = &m_environment;
    EXPECT_EQ(Entry(&m_table), VELTO_OK);
}

ModuleOnFakes::~ModuleOnFakes()
{
    const AudioListener none{nullptr, nullptr};
    m_table.RegisterListener(&none);
    // A check may have left a rate with which the speakers stay silent.
    const AudioProfileEntry rate{VELTO_KEY_SAMPLE_RATE, 10, VELTO_SAMPLE_RATE_HZ};
    const AudioProfileList usual{1, 0, &rate};
    m_table.SetAudioParameter(VELTO_ID_SPEAKER, 8, nullptr, nullptr, &usual);
    CloseRecordings();
    ReleaseSpeakers();
    EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), m_earlierReferences);
    EXPECT_EQ(fakes::AudioSystem::Instance().RegisteredCallbacks(), 0);
    currentEnvironment = nullptr;
}

int32_t ModuleOnFakes::Entry(AudioHandlerTable *table)
{
    const int32_t result = VELTOGetAudioHandler(table);
    if (table != nullptr) {
        moduleTable = *table;
        table->OpenAudioRecord = OpenRecord;
        table->CloseAudioRecord = CloseRecord;
        table->ReadStreamBuffer = ReadStream;
    }
    return result;
}

void ModuleOnFakes::CloseRecordings()
{
    EXPECT_EQ(m_table.CloseAudioRecord(VELTO_ID_MIC, 4), VELTO_OK);
    for (velto::AudioCapture *const replaced : replacedRecordings) {
        velto::AudioCapture::SetCurrent(replaced);
        EXPECT_EQ(m_table.CloseAudioRecord(VELTO_ID_MIC, 4), VELTO_OK);
    }
    replacedRecordings.clear();
}

// Advances the clock repeatedly, because the watchdog may not have reached its next wait yet.
void ModuleOnFakes::ReleaseSpeakers()
{
    EXPECT_TRUE(fakes::Eventually([] {
        fakewin::AdvanceClock(idleMs);
        std::this_thread::sleep_for(1ms);
        return velto::DeviceState == velto::DEVICE_NOT_INITIALISED && fakewin::LiveThreads() == 0;
    }));
}

} // namespace velto_test
