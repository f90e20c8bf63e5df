#include "capture/audio_device_notify.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "capture_fixture.h"
#include "failing_throwing_new.h"

namespace {

using namespace velto_test;
using velto::AudioDeviceNotify;

constexpr char initializeTag[] = "AudioDeviceNotify::Initialize";
constexpr char unInitializeTag[] = "AudioDeviceNotify::UnInitialize";
constexpr char changedTag[] = "AudioDeviceNotify::OnDefaultDeviceChanged";

struct Change {
    EDataFlow flow;
    ERole role;
    std::wstring id;
    bool operator==(const Change &) const = default;
};

class RecordingListener : public velto::IAudioDeviceNotifyListener {
public:
    void OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR deviceId) override
    {
        changes.push_back({flow, role, deviceId});
        if (order != nullptr) {
            order->push_back(this);
        }
    }
    std::vector<Change> changes;
    std::vector<RecordingListener *> *order = nullptr;
};

class CaptureNotifier : public CaptureTest {
protected:
    CaptureNotifier() { notifier->AddRef(); }
    ~CaptureNotifier() override { notifier->Release(); }

    AudioDeviceNotify *notifier = new AudioDeviceNotify;
};

TEST_F(CaptureNotifier, CountsReferencesFromZero)
{
    EXPECT_EQ(notifier->AddRef(), 2U);
    EXPECT_EQ(notifier->Release(), 1U);
    EXPECT_EQ(notifier->AddRef(), 2U);
    EXPECT_EQ(notifier->Release(), 1U);
}

TEST_F(CaptureNotifier, LogsErrorWithoutMemoryForListener)
{
    ASSERT_EQ(notifier->Initialize(), S_OK);
    RecordingListener listener;
    {
        const FailingThrowingNew noMemory(1);
        notifier->AddListener(&listener);
        EXPECT_TRUE(noMemory.HasFailed());
    }
    ExpectLine(errorLevel, L"No memory for a listener, default device changes are not followed!",
               "AudioDeviceNotify::AddListener");
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"mic");
    EXPECT_TRUE(listener.changes.empty());
    notifier->AddListener(&listener);
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"mic");
    EXPECT_EQ(listener.changes.size(), 1U);
    notifier->UnInitialize();
}

TEST_F(CaptureNotifier, SurvivesReleaseBeforeFirstAddRef)
{
    auto *fresh = new AudioDeviceNotify;
    EXPECT_EQ(fresh->Release(), 0xFFFFFFFFU);
    EXPECT_EQ(fresh->AddRef(), 0U);
    EXPECT_EQ(fresh->AddRef(), 1U);
    EXPECT_EQ(fresh->Release(), 0U);
}

TEST_F(CaptureNotifier, ReturnsOwnInterfacesWithReference)
{
    for (const IID &iid : {IID_IUnknown, __uuidof(IMMNotificationClient)}) {
        void *object = nullptr;
        EXPECT_EQ(notifier->QueryInterface(iid, &object), S_OK);
        EXPECT_EQ(object, notifier);
        EXPECT_EQ(notifier->Release(), 1U);
    }
}

TEST_F(CaptureNotifier, RefusesOtherInterfacesWithNullPointer)
{
    void *object = this;
    EXPECT_EQ(notifier->QueryInterface(__uuidof(IAudioClient), &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(notifier->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(notifier->AddRef(), 2U);
    notifier->Release();
}

TEST_F(CaptureNotifier, IgnoresStateAddRemoveAndPropertyNotifications)
{
    ASSERT_EQ(notifier->Initialize(), S_OK);
    RecordingListener listener;
    notifier->AddListener(&listener);
    ClearLog();
    audio.NotifyStateChanged(L"microphone", DEVICE_STATE_DISABLED);
    audio.NotifyAdded(L"microphone");
    audio.NotifyRemoved(L"microphone");
    audio.NotifyPropertyChanged(L"microphone");
    EXPECT_TRUE(listener.changes.empty());
    EXPECT_TRUE(fakes::LogRecorder::Instance().Entries().empty());
    EXPECT_EQ(notifier->OnDeviceStateChanged(L"microphone", DEVICE_STATE_DISABLED), S_OK);
    EXPECT_EQ(notifier->OnDeviceAdded(L"microphone"), S_OK);
    EXPECT_EQ(notifier->OnDeviceRemoved(L"microphone"), S_OK);
    EXPECT_EQ(notifier->OnPropertyValueChanged(L"microphone", PROPERTYKEY{}), S_OK);
    EXPECT_TRUE(listener.changes.empty());
    audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone");
    EXPECT_EQ(listener.changes.size(), 1U) << "the listener is registered";
    notifier->UnInitialize();
}

TEST_F(CaptureNotifier, ForwardsEveryFlowAndRoleInListenerOrder)
{
    std::vector<RecordingListener *> order;
    RecordingListener first;
    RecordingListener second;
    RecordingListener third;
    first.order = second.order = third.order = &order;
    notifier->AddListener(&first);
    notifier->AddListener(nullptr);
    notifier->AddListener(&second);
    notifier->AddListener(&third);
    std::vector<Change> expectedChanges;
    std::vector<RecordingListener *> expectedOrder;
    for (const EDataFlow flow : {eRender, eCapture, eAll}) {
        for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
            EXPECT_EQ(notifier->OnDefaultDeviceChanged(flow, role, L"id"), S_OK);
            expectedChanges.push_back({flow, role, L"id"});
            expectedOrder.insert(expectedOrder.end(), {&first, &second, &third});
        }
    }
    EXPECT_EQ(first.changes, expectedChanges);
    EXPECT_EQ(second.changes, expectedChanges);
    EXPECT_EQ(third.changes, expectedChanges);
    EXPECT_EQ(order, expectedOrder);
    ExpectLine(infoLevel, L"OnDefaultDeviceChanged", changedTag, 9);
}

TEST_F(CaptureNotifier, RemovingListenerKeepsOrderOfOthers)
{
    std::vector<RecordingListener *> order;
    RecordingListener listeners[4];
    for (RecordingListener &listener : listeners) {
        listener.order = &order;
        notifier->AddListener(&listener);
    }
    notifier->RemoveListener(&listeners[1]);
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"id");
    EXPECT_EQ(order, (std::vector{&listeners[0], &listeners[2], &listeners[3]}));
}

TEST_F(CaptureNotifier, IgnoresListenerAddedOrRemovedTwice)
{
    RecordingListener one;
    RecordingListener other;
    notifier->AddListener(&one);
    notifier->AddListener(&one);
    notifier->AddListener(&other);
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"id");
    EXPECT_EQ(one.changes.size(), 1U);
    notifier->RemoveListener(&one);
    notifier->RemoveListener(&one);
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"id");
    EXPECT_EQ(one.changes.size(), 1U);
    EXPECT_EQ(other.changes.size(), 2U);
}

TEST_F(CaptureNotifier, InitializeRegistersCallbackAndClearsListeners)
{
    RecordingListener listener;
    notifier->AddListener(&listener);
    EXPECT_EQ(notifier->Initialize(), S_OK);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
    const auto made = fakewin::Instantiations();
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(made[0].context, static_cast<DWORD>(CLSCTX_ALL));
    ExpectLine(infoLevel, L"deviceEnumerator RegisterEndpointNotificationCallback", initializeTag);
    audio.NotifyDefaultChanged(eCapture, eConsole, L"microphone");
    EXPECT_TRUE(listener.changes.empty());
    notifier->UnInitialize();
}

TEST_F(CaptureNotifier, InitializeChangesNothingWhenComFails)
{
    RecordingListener listener;
    notifier->AddListener(&listener);
    fakewin::Fail(fakewin::Call::CoInitializeEx, E_OUTOFMEMORY);
    EXPECT_EQ(notifier->Initialize(), E_FAIL);
    ExpectLine(errorLevel, L"GetCOMLoadedStatus failed", initializeTag);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CoCreateInstance), 0);
    notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"id");
    EXPECT_EQ(listener.changes.size(), 1U);
}

TEST_F(CaptureNotifier, RegistersOnThreadInSingleThreadedApartment)
{
    fakewin::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    EXPECT_EQ(notifier->Initialize(), S_OK);
    EXPECT_EQ(fakewin::ApartmentDepth(), 1);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    notifier->UnInitialize();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(fakewin::ApartmentDepth(), 1);
    fakewin::CoUninitialize();
}

TEST_F(CaptureNotifier, InitializeLeavesComWhenEnumeratorFails)
{
    fakewin::Fail(fakewin::Call::CoCreateInstance, REGDB_E_CLASSNOTREG);
    EXPECT_EQ(notifier->Initialize(), E_FAIL);
    ExpectLine(errorLevel, L"GetDeviceCount pEnum is null", initializeTag);
    EXPECT_EQ(fakewin::OpenApartments(), 0);
}

TEST_F(CaptureNotifier, HasNoEnumeratorToReleaseWhenItsCreationFails)
{
    for (const int64_t result : {fakes::nullResult, fakes::BadPointerResult(REGDB_E_CLASSNOTREG)}) {
        ClearLog();
        fakewin::Fail(fakewin::Call::CoCreateInstance, result);
        EXPECT_EQ(notifier->Initialize(), E_FAIL);
        ExpectLine(errorLevel, L"GetDeviceCount pEnum is null", initializeTag);
        notifier->UnInitialize();
        EXPECT_EQ(LogOf(unInitializeTag).size(), 1U) << "nothing to unregister";
    }
}

TEST_F(CaptureNotifier, InitializeReturnsFailedRegistrationAndKeepsEnumerator)
{
    audio.Fail(Method::RegisterCallback, E_OUTOFMEMORY);
    EXPECT_EQ(notifier->Initialize(), E_OUTOFMEMORY);
    EXPECT_EQ(audio.LiveObjects(), 1);
    notifier->UnInitialize();
    EXPECT_EQ(audio.LiveObjects(), 0);
}

TEST_F(CaptureNotifier, UnInitializeUnregistersOnceAndLogsEachCall)
{
    notifier->Initialize();
    notifier->UnInitialize();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(audio.LiveObjects(), 0);
    notifier->UnInitialize();
    ExpectLine(infoLevel, L"AudioDeviceNotify::UnInitialize()", unInitializeTag, 2);
    ExpectLine(infoLevel, L"deviceEnumerator UnregisterEndpointNotificationCallback", unInitializeTag);
    EXPECT_EQ(audio.Count(Method::UnregisterCallback), 1);
}

// A host may free the module while a recording is open. Notifications must not run unmapped code.
TEST_F(CaptureNotifier, ReferencesModuleFromRegistrationToUnregistration)
{
    const auto references = [] { return fakewin::ModuleReferences(fakewin::ThisModule()); };
    const int others = references();
    std::vector<int> seen;
    for (const Method method : {Method::RegisterCallback, Method::UnregisterCallback}) {
        audio.Before(method, [&] { seen.push_back(references() - others); });
    }
    EXPECT_EQ(notifier->Initialize(), S_OK);
    EXPECT_EQ(references(), others + 1);
    notifier->UnInitialize();
    EXPECT_EQ(references(), others);
    EXPECT_EQ(seen, (std::vector{1, 1})) << "just before each of the two calls";
    notifier->UnInitialize();
    EXPECT_EQ(references(), others);
}

TEST_F(CaptureNotifier, ReleasesModuleReferenceWhenRegistrationFails)
{
    const int others = fakewin::ModuleReferences(fakewin::ThisModule());
    audio.Before(Method::RegisterCallback,
                 [&] { EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), others + 1); });
    audio.Fail(Method::RegisterCallback, E_OUTOFMEMORY);
    EXPECT_EQ(notifier->Initialize(), E_OUTOFMEMORY);
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), others);
    notifier->UnInitialize();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), others);
}

TEST_F(CaptureNotifier, DoesNotRegisterWithoutBothModuleReferences)
{
    const std::wstring lines[] = {
        L"Cannot hold the endpoints' DLL, default device changes are not followed! err=8",
        L"Cannot hold this module, default device changes are not followed! err=8"};
    const int others = fakewin::ModuleReferences(fakewin::ThisModule());
    const int implementation = fakewin::ModuleReferences(fakewin::ImplementationModule());
    for (int nth = 1; nth <= 2; ++nth) {
        ClearLog();
        fakewin::Fail(fakewin::Call::GetModuleHandleExW, ERROR_NOT_ENOUGH_MEMORY, nth);
        EXPECT_EQ(notifier->Initialize(), E_FAIL);
        ExpectLine(errorLevel, lines[nth - 1], initializeTag);
        EXPECT_EQ(fakes::LogRecorder::Instance().Entries().size(), 1U);
        EXPECT_EQ(audio.Count(Method::RegisterCallback), 0);
        EXPECT_EQ(audio.LiveObjects(), 0);
        EXPECT_EQ(fakewin::OpenApartments(), 0);
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ThisModule()), others);
        EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), implementation);
    }
}

// Stays inside OnAudioStateChanged for up to 200 ms, until the test has changed the listeners.
class SlowListener : public velto::IAudioDeviceNotifyListener {
public:
    void OnAudioStateChanged(EDataFlow, ERole, LPCWSTR) override
    {
        isNotified = true;
        for (int i = 0; i < 100 && !hasChanged; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        hasChangedDuringCall = hasChanged.load();
    }
    std::atomic<bool> isNotified{false}, hasChanged{false}, hasChangedDuringCall{false};
};

// The owner may delete a listener once it is removed. The others change the list of listeners, too.
TEST_F(CaptureNotifier, ChangesOfListenersWaitForRunningNotification)
{
    RecordingListener other;
    const std::function<void(SlowListener &)> changes[] = {
        [this](SlowListener &listener) { notifier->RemoveListener(&listener); },
        [this, &other](SlowListener &) { notifier->AddListener(&other); },
        [this](SlowListener &) { EXPECT_EQ(notifier->Initialize(), S_OK); },
    };
    for (const auto &change : changes) {
        SlowListener listener;
        notifier->AddListener(&listener);
        std::thread system([this] { notifier->OnDefaultDeviceChanged(eCapture, eConsole, L"microphone"); });
        EXPECT_TRUE(Eventually([&] { return listener.isNotified.load(); }));
        change(listener);
        listener.hasChanged = true;
        system.join();
        EXPECT_FALSE(listener.hasChangedDuringCall);
        notifier->RemoveListener(&listener);
    }
    notifier->UnInitialize();
}

TEST_F(CaptureNotifier, KeepsEnumeratorDllLoadedPastLastApartment)
{
    // The renderers of earlier tests may reference the DLL, too.
    const int others = fakewin::ModuleReferences(fakewin::ImplementationModule());
    const int unloads = fakewin::ImplementationUnloads();
    notifier->Initialize();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), others + 1);
    fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    fakewin::CoUninitialize();
    EXPECT_EQ(fakewin::ImplementationUnloads(), unloads);
    notifier->UnInitialize();
    EXPECT_EQ(fakewin::ModuleReferences(fakewin::ImplementationModule()), others);
}

} // namespace
