// The notifier relies on nothing in which versions of Windows and of its documentation differ: whether a
// registration has a reference, whether unregistering waits for callbacks, whether it succeeds.
#include "capture/audio_device_notify.h"

#include <atomic>
#include <thread>

#include "capture_fixture.h"

namespace {

using namespace velto_test;
using velto::AudioDeviceNotify;

int References()
{
    return fakewin::ModuleReferences(fakewin::ThisModule());
}

class CaptureRegistration : public CaptureTest {
protected:
    CaptureRegistration() { notifier->AddRef(); }

    AudioDeviceNotify *notifier = new AudioDeviceNotify; // each test releases it
};

TEST_F(CaptureRegistration, NotifierSurvivesNotificationAfterFailedUnregistration)
{
    const int references = References();
    for (const bool addsReference : {true, false}) {
        audio.SetRegistrationRules({addsReference, true});
        audio.Fail(Method::UnregisterCallback, E_POINTER);
        ASSERT_EQ(notifier->Initialize(), S_OK);
        notifier->UnInitialize();
        notifier->Release();
        EXPECT_EQ(audio.RegisteredCallbacks(), 1);
        EXPECT_EQ(References(), references + 1) << "the callback's code stays mapped";
        EXPECT_EQ(audio.LiveObjects(), 0);
        ClearLog();
        audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone");
        ExpectLine(infoLevel, L"OnDefaultDeviceChanged", "AudioDeviceNotify::OnDefaultDeviceChanged");
        audio.Reset();
        fakewin::FreeLibrary(fakewin::ThisModule()); // stands for the end of the process
        fakewin::FreeLibrary(fakewin::ImplementationModule());
        notifier = new AudioDeviceNotify;
        notifier->AddRef();
    }
    notifier->Release();
}

// The result says that the system does not know the callback, so it cannot call it any more.
TEST_F(CaptureRegistration, NotifierReleasesModulesWhenSystemDoesNotKnowIt)
{
    const int references = References();
    audio.Fail(Method::UnregisterCallback, E_NOTFOUND);
    ASSERT_EQ(notifier->Initialize(), S_OK);
    notifier->UnInitialize();
    EXPECT_EQ(References(), references);
    EXPECT_EQ(notifier->Release(), 0U);
}

TEST_F(CaptureRegistration, UnregisteredNotifierReleasesModulesWhateverUnregistrationReturns)
{
    const int references = fakewin::ModuleReferences(fakewin::ImplementationModule());
    audio.Fail(Method::RegisterCallback, E_OUTOFMEMORY);
    audio.Fail(Method::UnregisterCallback, E_POINTER);
    EXPECT_EQ(notifier->Initialize(), E_OUTOFMEMORY);
    notifier->UnInitialize();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), references);
    EXPECT_EQ(notifier->Release(), 0U);
}

TEST_F(CaptureRegistration, NotifierIsFreedOnceWithoutReferenceOfSystem)
{
    audio.SetRegistrationRules({false, true});
    ASSERT_EQ(notifier->Initialize(), S_OK);
    EXPECT_EQ(notifier->AddRef(), 2U) << "the system has no reference";
    EXPECT_EQ(notifier->Release(), 1U);
    audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone");
    notifier->UnInitialize();
    EXPECT_EQ(notifier->Release(), 0U); // LeakSanitizer and AddressSanitizer check the rest
}

TEST_F(CaptureRegistration, RecordingMovesAndEndsWithoutReferenceOfSystem)
{
    audio.SetRegistrationRules({false, true});
    audio.Get(L"headset").source = [] { return QuietPacket(1024); };
    Microphone().source = [] { return QuietPacket(1024); };
    Open();
    EXPECT_NE(ReadPacket(), 0U);
    audio.ChangeDefaultMicrophone(L"headset");
    EXPECT_TRUE(Eventually([&] { return audio.Clients().back().endpoint == L"headset"; }));
    EXPECT_NE(ReadPacket(), 0U);
    Close();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    notifier->Release();
}

// Stays inside the notification until the test ends it.
class BlockingListener : public velto::IAudioDeviceNotifyListener {
public:
    void OnAudioStateChanged(EDataFlow, ERole, LPCWSTR) override
    {
        isNotified = true;
        EXPECT_TRUE(Eventually([this] { return mayReturn.load(); }));
    }
    std::atomic<bool> isNotified{false}, mayReturn{false};
};

// The documentation does not say that unregistering waits for running callbacks.
TEST_F(CaptureRegistration, NotifierOutlivesCallbackThatRunsDuringUnregistration)
{
    audio.SetRegistrationRules({true, false});
    ASSERT_EQ(notifier->Initialize(), S_OK);
    BlockingListener listener;
    notifier->AddListener(&listener);
    std::thread system([this] { audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone"); });
    EXPECT_TRUE(Eventually([&] { return listener.isNotified.load(); }));
    notifier->UnInitialize();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(notifier->Release(), 1U) << "the running callback's reference";
    listener.mayReturn = true;
    system.join(); // the callback unlocks the notifier's mutex, then the system releases the notifier
}

TEST_F(CaptureRegistration, CaptureIgnoresDefaultWithNullId)
{
    Microphone().source = [] { return QuietPacket(1024); };
    Open();
    EXPECT_NE(ReadPacket(), 0U);
    audio.ChangeDefaultMicrophone(L""); // no microphone is left
    EXPECT_TRUE(Eventually([&] { return probe.Stopped() && !probe.Restarting(); }));
    audio.ChangeDefaultMicrophone(L"microphone");
    EXPECT_NE(ReadPacket(), 0U) << "the next microphone is followed";
    notifier->Release();
}

} // namespace
