// The capture follows changes of the default microphone.
#include "capture_fixture.h"

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace {

using namespace velto_test;
using namespace velto;

constexpr char changedTag[] = "AudioCapture::OnAudioStateChanged";

class CaptureRestart : public CaptureTest {
protected:
    int ClientsOf(const std::wstring &endpoint) const
    {
        int count = 0;
        for (const fakes::ClientRecord &client : audio.Clients()) {
            count += client.endpoint == endpoint && client.starts == 1 ? 1 : 0;
        }
        return count;
    }
    void NotifyChange() { audio.NotifyDefaultChanged(eCapture, eConsole, L"headset"); }
    // The restart waits in Start, where it holds no lock, until restartMayEnd.
    void OpenAndBlockRestart()
    {
        Open();
        ASSERT_TRUE(AwaitLoop());
        audio.Before(Method::RegisterCallback, [this] {
            restartRuns = true;
            Eventually([this] { return restartMayEnd.load(); });
        });
        NotifyChange();
        ASSERT_TRUE(Eventually([this] { return restartRuns.load(); }));
    }

    std::atomic<bool> restartRuns{false};
    std::atomic<bool> restartMayEnd{false};
};

TEST_F(CaptureRestart, IgnoresOtherFlowsAndRoles)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    for (const EDataFlow flow : {eRender, eCapture, eAll}) {
        for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
            if (flow != eCapture || role != eConsole) {
                audio.NotifyDefaultChanged(flow, role, L"headset");
            }
        }
    }
    EXPECT_TRUE(LogOf(changedTag).empty());
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 2);
    EXPECT_FALSE(probe.Stopped());
}

TEST_F(CaptureRestart, MovesToNewDefaultMicrophone)
{
    audio.Add(L"headset").source = [] { return QuietPacket(1024); };
    Open();
    ASSERT_TRUE(AwaitLoop());
    audio.SetDefaultMicrophone(L"headset");
    NotifyChange();
    ExpectLine(errorLevel, L"OnAudioStateChanged", changedTag);
    EXPECT_EQ(LogOf(changedTag).size(), 1U) << "no error";
    EXPECT_GT(ReadPacket(), 0U);
    EXPECT_EQ(ClientsOf(L"headset"), 1);
    EXPECT_EQ(probe.State(), 0);
    EXPECT_TRUE(Eventually([&] { return audio.RegisteredCallbacks() == 1; }));
}

TEST_F(CaptureRestart, ClearsPacketsOfOldMicrophone)
{
    for (int packet = 0; packet < 10; ++packet) {
        audio.Deliver(QuietPacket(1024));
    }
    Open();
    ASSERT_TRUE(Eventually([&] { return probe.Packets().DataCount() == 9; }));
    audio.Add(L"headset");
    audio.SetDefaultMicrophone(L"headset");
    NotifyChange();
    EXPECT_TRUE(Eventually([&] { return ClientsOf(L"headset") == 1; }));
    EXPECT_EQ(probe.Packets().DataCount(), 0);
}

TEST_F(CaptureRestart, ReadLogsErrorAndKeepsSizeDuringRestart)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    uint32_t size = 3840;
    // Prepare creates its event after the restart has torn down the old capture.
    fakewin::Before(fakewin::Call::CreateEventW, [&] { probe.Read(buffer.data(), size); });
    NotifyChange();
    EXPECT_TRUE(AwaitLine(L"m_bAtomStop is stop", "AudioCapture::GetAudioData"));
    EXPECT_TRUE(Eventually([&] { return !probe.Stopped(); }));
    EXPECT_EQ(size, 3840U);
}

TEST_F(CaptureRestart, StartsOnFirstMicrophoneThatAppears)
{
    audio.SetDefaultMicrophone(L"");
    EXPECT_EQ(capture->Prepare(), -103);
    EXPECT_TRUE(Eventually([&] { return probe.State() == -10000; }));
    EXPECT_EQ(capture->Start(), -10000);
    audio.Add(L"headset").source = [] { return QuietPacket(1024); };
    audio.SetDefaultMicrophone(L"headset");
    NotifyChange();
    EXPECT_GT(ReadPacket(), 0U);
}

TEST_F(CaptureRestart, KeepsCaptureStartedAfterRestart)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    NotifyChange();
    EXPECT_TRUE(Eventually([&] { return ClientsOf(L"microphone") == 2; }));
    EXPECT_TRUE(probe.Started());
    EXPECT_EQ(capture->Start(), -10001);
}

TEST_F(CaptureRestart, KeepsCapturingWhenThreadCannotBeCreated)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    fakewin::Fail(fakewin::Call::CreateThread, 8);
    NotifyChange();
    ExpectLine(errorLevel, L"Create restart thread failed, err=8", changedTag);
    EXPECT_FALSE(probe.Stopped());
}

TEST_F(CaptureRestart, StartsOneThreadPerChange)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    AudioDeviceNotify *notifier = probe.Notifier();
    notifier->AddRef(); // the first restart releases it
    for (int change = 0; change < 5; ++change) {
        capture->OnAudioStateChanged(eCapture, eConsole, L"headset");
    }
    ExpectLine(errorLevel, L"OnAudioStateChanged", changedTag, 5);
    EXPECT_TRUE(Eventually([&] { return ClientsOf(L"microphone") == 6; }));
    // Two threads for each capture, one for each restart.
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 2 * 6 + 5);
    EXPECT_TRUE(Eventually([&] { return audio.RegisteredCallbacks() == 1; }));
    notifier->Release();
}

TEST_F(CaptureRestart, StartsNoThreadAfterEndRestarts)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    capture->EndRestarts();
    NotifyChange();
    ExpectLine(errorLevel, L"OnAudioStateChanged", changedTag);
    EXPECT_EQ(LogOf(changedTag).size(), 1U) << "no error";
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 2);
}

// ThreadSanitizer checks the locks.
TEST_F(CaptureRestart, ClosingCanBeginWhileRestartBegins)
{
    for (int round = 0; round < 10; ++round) {
        AudioCapture closing;
        closing.OnAudioStateChanged(eCapture, eConsole, L"headset");
        closing.EndRestarts();
        closing.Stop();
        closing.WaitInitThread();
        EXPECT_EQ(AudioCaptureProbe(closing).State(), -10000);
    }
}

TEST_F(CaptureRestart, CloseWaitsForRunningRestart)
{
    ASSERT_NO_FATAL_FAILURE(OpenAndBlockRestart());
    auto closing = std::async(std::launch::async, [&] { Close(); });
    EXPECT_TRUE(Eventually([&] { return probe.RestartsOver(); }));
    EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    EXPECT_FALSE(probe.Stopped()) << "closing stops the capture only when no restart runs";
    restartMayEnd = true;
    closing.get();
    EXPECT_EQ(probe.State(), -10000);
    EXPECT_TRUE(probe.Stopped());
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

TEST_F(CaptureRestart, DestructionWaitsForRunningRestart)
{
    ASSERT_NO_FATAL_FAILURE(OpenAndBlockRestart());
    auto destroying = std::async(std::launch::async, [&] {
        capture->Stop();
        capture.reset();
    });
    EXPECT_EQ(destroying.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    restartMayEnd = true;
    destroying.get();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

TEST_F(CaptureRestart, WaitingRestartDoesNothingOnceClosingBegan)
{
    Open();
    ASSERT_TRUE(AwaitLoop());
    std::atomic<bool> firstRuns{false};
    std::atomic<bool> firstMayEnd{false};
    fakewin::Before(fakewin::Call::CreateEventW, [&] {
        firstRuns = true;
        Eventually([&] { return firstMayEnd.load(); });
    });
    capture->OnAudioStateChanged(eCapture, eConsole, L"headset");
    ASSERT_TRUE(Eventually([&] { return firstRuns.load(); }));
    capture->OnAudioStateChanged(eCapture, eConsole, L"headset"); // waits for its turn
    std::thread closing([&] { Close(); });
    EXPECT_TRUE(Eventually([&] { return probe.RestartsOver(); }));
    firstMayEnd = true;
    closing.join();
    // Init and capture thread of the opening and of the first restart, and two restart threads.
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 2 + 2 + 2);
    EXPECT_EQ(probe.State(), -10000);
}

TEST_F(CaptureRestart, SurvivesHundredChangesWhileHostOpensReadsAndCloses)
{
    Microphone().source = [] { return QuietPacket(480); };
    std::atomic<bool> changesDone{false};
    std::thread notifications([&] {
        for (int change = 0; change < 100; ++change) {
            NotifyChange();
        }
        changesDone = true;
    });
    std::thread reader([&] {
        while (!changesDone) {
            uint32_t size = 3840;
            AudioCapture::GetAudioData(buffer.data(), size);
        }
    });
    while (!changesDone) {
        auto *opened = new AudioCapture;
        AudioCapture::SetCurrent(opened);
        opened->SetTarget(48000, 2, 1);
        opened->Prepare();
        opened->Start();
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        opened->EndRestarts();
        opened->Stop();
        opened->WaitInitThread();
        AudioCapture::DeleteTaken(AudioCapture::TakeCurrent());
    }
    notifications.join();
    reader.join();
    EXPECT_EQ(AudioCapture::Current(), nullptr);
}

TEST_F(CaptureRestart, KeepsCapturingAfterHundredChanges)
{
    Microphone().source = [] { return QuietPacket(480); };
    Open();
    for (int change = 0; change < 100; ++change) {
        NotifyChange();
    }
    EXPECT_GT(ReadPacket(), 0U);
    EXPECT_TRUE(Eventually([&] { return audio.RegisteredCallbacks() == 1 && !probe.Stopped(); }));
}

// Start creates the notifier on the host's thread while the capture thread fails.
TEST_F(CaptureRestart, LeaksNoNotifierWhenCaptureFailsDuringStart)
{
    for (int round = 0; round < 20; ++round) {
        audio.Fail(Method::Start, AUDCLNT_E_SERVICE_NOT_RUNNING);
        Open();
        Close();
        EXPECT_EQ(audio.RegisteredCallbacks(), 0);
        EXPECT_EQ(probe.Notifier(), nullptr);
    }
}

} // namespace
