// While a system call hangs on one of the module's threads, the host's calls must return.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "capture_fixture.h"
#include "microphone_scenario.h"
#include "table_scenario.h"

namespace {

using namespace velto_test;
using namespace std::chrono_literals;

// Blocks a call until the test calls Open, for ten seconds at most.
class Gate {
public:
    void Block()
    {
        std::unique_lock lock(m_mutex);
        m_reached = true;
        m_changed.notify_all();
        m_timedOut = !m_changed.wait_for(lock, 10s, [this] { return m_open; });
    }
    bool AwaitReached()
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, 10s, [this] { return m_reached; });
    }
    // Unblocks the call. False if the call had already timed out.
    bool Open()
    {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
        return !m_timedOut;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_reached = false;
    bool m_open = false;
    bool m_timedOut = false;
};

constexpr int opening = 0;
constexpr int hostCalls = 1;

// Makes the host's calls while `call` hangs on another thread. `trigger` makes the module use `call`.
void MakeHostCallsWhileHanging(const std::string &call, MakeScenario makeScenario,
                               const std::function<void()> &trigger)
{
    SCOPED_TRACE(call);
    const auto scenario = makeScenario();
    scenario->RunStep(opening);
    const auto gate = std::make_shared<Gate>();
    FaultyCallNamed(call).before([gate] { gate->Block(); }, 1);
    trigger();
    scenario->RunStep(hostCalls);
    EXPECT_TRUE(gate->AwaitReached());
    scenario->RunStep(hostCalls);
    EXPECT_TRUE(gate->Open()) << "a call of the host waited for the hanging call";
    EXPECT_TRUE(scenario->HasSound());
    scenario->Finish();
}

TEST(HangingCall, DoesNotBlockWritesWhileRendering)
{
    for (const char *call : {"IAudioClient::GetCurrentPadding", "IAudioRenderClient::GetBuffer",
                             "IAudioRenderClient::ReleaseBuffer"}) {
        MakeHostCallsWhileHanging(call, MakeTableScenario, [] {});
    }
}

TEST(HangingCall, DoesNotBlockWritesDuringEndpointChange)
{
    for (const char *call : {"IMMDeviceEnumerator::GetDefaultAudioEndpoint", "IMMDevice::Activate",
                             "IAudioClient::Initialize", "IAudioClient::Stop"}) {
        MakeHostCallsWhileHanging(call, MakeTableScenario, [] {
            auto &audio = fakes::AudioSystem::Instance();
            audio.NotifyPropertyChanged(L"speakers");
            audio.Invalidate(L"speakers");
            audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
        });
    }
}

TEST(HangingCall, DoesNotBlockReadsWhileCapturing)
{
    for (const char *call : {"IAudioCaptureClient::GetBuffer", "IAudioCaptureClient::ReleaseBuffer",
                             "IAudioCaptureClient::GetNextPacketSize", "IAudioEndpointVolume::GetMute"}) {
        MakeHostCallsWhileHanging(call, MakeMicrophoneDeviceFirst, [] {});
    }
}

} // namespace
