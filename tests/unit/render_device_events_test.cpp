#include "render/wasapi_device_events.h"

#include <atomic>
#include <future>

#include "polling.h"
#include "recording_player.h"
#include "render_fixture.h"

namespace {

using namespace velto_test;

class RenderDeviceEvents : public RenderTest {};

TEST_F(RenderDeviceEvents, RaisesDeviceFlagOnlyForMultimediaRenderDefault)
{
    EXPECT_TRUE(Open());
    for (const EDataFlow flow : {eRender, eCapture, eAll}) {
        for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
            player->SetDeviceChanged(false);
            audio.NotifyDefaultChanged(flow, role, L"speakers");
            EXPECT_EQ(probe.DeviceChanged(), flow == eRender && role == eMultimedia) << flow << " " << role;
        }
    }
    EXPECT_FALSE(probe.PropertyChanged());
}

TEST_F(RenderDeviceEvents, RaisesPropertyFlagForAnyPropertyOfAnyDevice)
{
    EXPECT_TRUE(Open());
    audio.NotifyPropertyChanged(L"some microphone");
    EXPECT_TRUE(probe.PropertyChanged());
    EXPECT_FALSE(probe.DeviceChanged());
}

TEST_F(RenderDeviceEvents, IgnoresStateChangesAdditionsAndRemovals)
{
    EXPECT_TRUE(Open());
    ClearLog();
    audio.NotifyStateChanged(L"speakers", DEVICE_STATE_UNPLUGGED);
    audio.NotifyAdded(L"headset");
    audio.NotifyRemoved(L"speakers");
    EXPECT_FALSE(probe.DeviceChanged());
    EXPECT_FALSE(probe.PropertyChanged());
    EXPECT_TRUE(Log().empty());
}

TEST_F(RenderDeviceEvents, ReturnsSuccessForEveryNotification)
{
    velto::WasapiDeviceEvents events(player.get());
    EXPECT_EQ(events.OnDeviceStateChanged(L"id", DEVICE_STATE_DISABLED), S_OK);
    EXPECT_EQ(events.OnDeviceAdded(L"id"), S_OK);
    EXPECT_EQ(events.OnDeviceRemoved(L"id"), S_OK);
    EXPECT_EQ(events.OnDefaultDeviceChanged(eCapture, eConsole, nullptr), S_OK);
    EXPECT_EQ(events.OnDefaultDeviceChanged(eRender, eMultimedia, nullptr), S_OK);
    EXPECT_EQ(events.OnPropertyValueChanged(nullptr, PROPERTYKEY{}), S_OK);
}

TEST_F(RenderDeviceEvents, LogsErrorAndReturnsSuccessWithoutRenderer)
{
    velto::WasapiDeviceEvents events(nullptr);
    EXPECT_EQ(events.OnDefaultDeviceChanged(eRender, eMultimedia, L"id"), S_OK);
    EXPECT_EQ(events.OnDefaultDeviceChanged(eCapture, eConsole, L"id"), S_OK);
    EXPECT_EQ(events.OnPropertyValueChanged(L"id", PROPERTYKEY{}), S_OK);
    const std::wstring text = L"WasapiDeviceEvents playerWas is nullptr";
    ExpectLine(errorLevel, text, "WasapiDeviceEvents::OnDefaultDeviceChanged", 2);
    ExpectLine(errorLevel, text, "WasapiDeviceEvents::OnPropertyValueChanged", 1);
}

TEST_F(RenderDeviceEvents, DoesNotCountReferences)
{
    velto::WasapiDeviceEvents events(player.get());
    EXPECT_EQ(events.AddRef(), 0u);
    EXPECT_EQ(events.AddRef(), 0u);
    EXPECT_EQ(events.Release(), 0u);
    EXPECT_EQ(events.Release(), 0u);
    EXPECT_EQ(events.Release(), 0u);
}

TEST_F(RenderDeviceEvents, ReturnsOnlyOwnInterfaces)
{
    velto::WasapiDeviceEvents events(player.get());
    void *object = nullptr;
    EXPECT_EQ(events.QueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(object, &events);
    object = nullptr;
    EXPECT_EQ(events.QueryInterface(__uuidof(IMMNotificationClient), &object), S_OK);
    EXPECT_EQ(object, &events);
    EXPECT_EQ(events.QueryInterface(__uuidof(IMMDevice), &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(events.QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(RenderDeviceEvents, RaisesFlagsWithoutSystemOrEndpointCalls)
{
    EXPECT_TRUE(Open());
    const int systemCalls = fakewin::TotalCalls();
    const int endpointCalls = audio.TotalCalls();
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    audio.NotifyPropertyChanged(L"speakers");
    EXPECT_TRUE(probe.DeviceChanged());
    EXPECT_TRUE(probe.PropertyChanged());
    EXPECT_EQ(fakewin::TotalCalls(), systemCalls);
    EXPECT_EQ(audio.TotalCalls(), endpointCalls);
}

// Stays inside the notification until the test ends it.
class BlockingPlayer : public RecordingPlayer {
public:
    using RecordingPlayer::RecordingPlayer;
    void SetDeviceChanged(bool) override
    {
        isNotified = true;
        fakes::Eventually([this] { return mayEnd.load(); });
    }
    void SetPropertyChanged(bool changed) override { SetDeviceChanged(changed); }

    std::atomic<bool> isNotified{false};
    std::atomic<bool> mayEnd{false};
};

// True: a changed property. False: a changed default endpoint.
class RenderNotification : public RenderDeviceEvents, public ::testing::WithParamInterface<bool> {
protected:
    static void Notify(velto::WasapiDeviceEvents &events)
    {
        if (GetParam()) {
            events.OnPropertyValueChanged(L"speakers", PROPERTYKEY{});
        } else {
            events.OnDefaultDeviceChanged(eRender, eMultimedia, L"speakers");
        }
    }
};

INSTANTIATE_TEST_SUITE_P(, RenderNotification, ::testing::Bool(), [](const auto &isProperty) {
    return isProperty.param ? "OfPropertyChange" : "OfDefaultChange";
});

// The call to the loader may wait for a thread that waits for the end of its notification.
TEST_P(RenderNotification, EndsWhileAbandonReferencesModule)
{
    velto::WasapiDeviceEvents events(player.get());
    std::future<void> notifying;
    auto status = std::future_status::deferred;
    fakewin::Before(fakewin::Call::GetModuleHandleExW, [&] {
        notifying = std::async(std::launch::async, [&] { Notify(events); });
        status = notifying.wait_for(std::chrono::seconds(20));
    });
    events.Abandon();
    EXPECT_EQ(status, std::future_status::ready);
    fakewin::FreeLibrary(fakewin::ThisModule()); // stands for the end of the process
}

TEST_P(RenderNotification, IsAwaitedByAbandon)
{
    RecordingPlayer::Record record;
    BlockingPlayer notified(record);
    velto::WasapiDeviceEvents events(&notified);
    const auto notify = [&events] { Notify(events); };
    auto notifying = std::async(std::launch::async, notify);
    EXPECT_TRUE(fakes::Eventually([&] { return notified.isNotified.load(); }));
    auto abandoning = std::async(std::launch::async, [&] { events.Abandon(); });
    EXPECT_EQ(abandoning.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    notified.mayEnd = true;
    notifying.get();
    abandoning.get();
    notified.isNotified = false;
    notify();
    EXPECT_FALSE(notified.isNotified);
    fakewin::FreeLibrary(fakewin::ThisModule()); // stands for the end of the process
}

} // namespace
