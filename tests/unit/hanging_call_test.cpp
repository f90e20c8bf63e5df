// A call to the system that does not return for a while: whom it keeps waiting, and whom not.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "capture_fixture.h"
#include "microphone_road.h"
#include "table_road.h"

namespace {

using namespace velto_test;
using namespace std::chrono_literals;

// Holds a call until it is opened, or for ten seconds.
class Gate {
public:
    void Hold()
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
    // True when the call was still held.
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

// Makes the host's calls while `call` hangs on another thread.
void CallWhileItHangs(const std::string &call, MakeRoad makeRoad, const std::function<void()> &provoke)
{
    SCOPED_TRACE(call);
    const auto road = makeRoad();
    road->Take(opening);
    const auto gate = std::make_shared<Gate>();
    FaultyCallNamed(call).before([gate] { gate->Hold(); }, 1);
    provoke();
    road->Take(hostCalls);
    EXPECT_TRUE(gate->AwaitReached());
    road->Take(hostCalls);
    EXPECT_TRUE(gate->Open()) << "a call of the host waited";
    EXPECT_TRUE(road->SoundFlows());
    road->Finish();
}

TEST(HangingCall, DoesNotBlockWritesWhileRendering)
{
    for (const char *call : {"IAudioClient::GetCurrentPadding", "IAudioRenderClient::GetBuffer",
                             "IAudioRenderClient::ReleaseBuffer"}) {
        CallWhileItHangs(call, MakeTableRoad, [] {});
    }
}

TEST(HangingCall, DoesNotBlockWritesDuringEndpointChange)
{
    for (const char *call : {"IMMDeviceEnumerator::GetDefaultAudioEndpoint", "IMMDevice::Activate",
                             "IAudioClient::Initialize", "IAudioClient::Stop"}) {
        CallWhileItHangs(call, MakeTableRoad, [] {
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
        CallWhileItHangs(call, MakeMicrophoneRoad, [] {});
    }
}

} // namespace
