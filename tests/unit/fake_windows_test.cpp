// The fake Windows must be as strict as Windows. Otherwise tests that break its rules would pass.
#include "tests/fakes/fake_windows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "reset.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/polling.h"

namespace {

using namespace std::chrono_literals;
using fakewin::Call;
using Texts = std::vector<std::string>;

class FakeWindows : public ::testing::Test {
protected:
    FakeWindows() { fakes::ResetAll(); }
};

TEST_F(FakeWindows, ChangesLastErrorOnSuccess)
{
    fakewin::SetLastError(ERROR_FILE_NOT_FOUND);
    const HANDLE event = fakewin::CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_NE(fakewin::GetLastError(), ERROR_FILE_NOT_FOUND);
    fakewin::SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(fakewin::WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_NE(fakewin::GetLastError(), ERROR_FILE_NOT_FOUND);
    fakewin::CloseHandle(event);
}

TEST_F(FakeWindows, StoresErrorOfFailure)
{
    fakewin::Fail(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(fakewin::CreateEventW(nullptr, TRUE, TRUE, nullptr), nullptr);
    EXPECT_EQ(fakewin::GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
}

TEST_F(FakeWindows, TalliesCallsAndWaitsOfEachThread)
{
    const HANDLE thread = fakewin::CreateThread(
        nullptr, 0,
        [](void *) -> DWORD {
            fakewin::Sleep(7);
            fakewin::Sleep(8);
            return 0;
        },
        nullptr, 0, nullptr);
    fakewin::WaitForSingleObject(thread, INFINITE);
    fakewin::CloseHandle(thread);
    const auto tallies = fakewin::ThreadTallies();
    ASSERT_EQ(tallies.size(), 2U);
    const bool testIsFirst = tallies[0].waitedMs == 0;
    const auto &test = tallies[testIsFirst ? 0 : 1];
    const auto &other = tallies[testIsFirst ? 1 : 0];
    EXPECT_EQ(test.calls, 3U);
    EXPECT_EQ(test.waitedMs, 0U);
    EXPECT_EQ(other.calls, 2U);
    EXPECT_EQ(other.waitedMs, 15U);
}

TEST_F(FakeWindows, RunsCallHookBeforeCounting)
{
    std::vector<int> counts;
    fakewin::SetCallHook([&](Call call) { counts.push_back(fakewin::Count(call)); });
    fakewin::Sleep(1);
    fakewin::Sleep(1);
    EXPECT_EQ(counts, (std::vector{0, 1}));
    fakewin::Reset();
    fakewin::Sleep(1);
    EXPECT_EQ(counts.size(), 2U);
}

#ifndef _WIN32 // MinGW runs these destructors after freeing the storage
std::atomic<bool> hasDestroyedThreadLocal{false};

TEST_F(FakeWindows, HasLiveThreadUntilThreadLocalDestructorsHaveRun)
{
    struct SlowObject {
        ~SlowObject()
        {
            std::this_thread::sleep_for(50ms);
            hasDestroyedThreadLocal = true;
        }
    };
    const LPTHREAD_START_ROUTINE run = [](LPVOID) -> DWORD {
        thread_local SlowObject object;
        return 0;
    };
    fakewin::CloseHandle(fakewin::CreateThread(nullptr, 0, run, nullptr, 0, nullptr));
    EXPECT_TRUE(fakes::Eventually([] { return fakewin::LiveThreads() == 0; }));
    EXPECT_TRUE(hasDestroyedThreadLocal);
}
#endif

// A client that starts a thread in a notification, as the module does.
class ThreadStarter : public IMMNotificationClient {
public:
    explicit ThreadStarter(bool awaitsCall) : m_awaitsCall(awaitsCall) {}
    // The threads that it has started use it.
    ~ThreadStarter()
    {
        EXPECT_TRUE(fakes::Eventually([] { return fakewin::LiveThreads() == 0; }));
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole role, LPCWSTR deviceId) override
    {
        roles.push_back(role);
        hasId = deviceId != nullptr;
        if (role != eConsole) {
            return S_OK;
        }
        const HANDLE thread = fakewin::CreateThread(nullptr, 0, Run, this, 0, nullptr);
        fakewin::CloseHandle(thread);
        EXPECT_TRUE(
            fakes::Eventually([this] { return m_awaitsCall ? hasCalled.load() : hasStarted.load(); }));
        return S_OK;
    }

    std::vector<ERole> roles;
    bool hasId = false;
    std::atomic<bool> hasStarted{false};
    std::atomic<bool> hasCalled{false};

private:
    static DWORD WINAPI Run(void *self)
    {
        auto *client = static_cast<ThreadStarter *>(self);
        EXPECT_EQ(fakewin::ThreadDepth(), 1);
        EXPECT_TRUE(fakewin::StartedByNotification());
        client->hasStarted = true;
        fakewin::Sleep(1);
        client->hasCalled = true;
        return 0;
    }

    const bool m_awaitsCall;
};

class FakeNotification : public FakeWindows {
protected:
    FakeNotification()
    {
        EXPECT_EQ(fakewin::CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        fakewin::CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                  reinterpret_cast<void **>(&m_enumerator));
    }
    ~FakeNotification() override
    {
        m_enumerator->Release();
        fakewin::CoUninitialize();
    }

    // Makes another microphone the default while `client` is registered.
    void Notify(IMMNotificationClient &client, const std::wstring &id)
    {
        EXPECT_EQ(m_enumerator->RegisterEndpointNotificationCallback(&client), S_OK);
        fakes::AudioSystem::Instance().ChangeDefaultMicrophone(id);
        EXPECT_EQ(m_enumerator->UnregisterEndpointNotificationCallback(&client), S_OK);
    }

    IMMDeviceEnumerator *m_enumerator = nullptr;
};

TEST_F(FakeNotification, AllowsToWaitForStartOfThread)
{
    ThreadStarter client(false);
    Notify(client, L"headset");
    EXPECT_TRUE(fakes::Eventually([&] { return client.hasCalled.load(); }));
    EXPECT_EQ(fakewin::Violations(), Texts{});
}

TEST_F(FakeNotification, ReportsWaitForCallOfThread)
{
    fakewin::SetLongestNotification(std::chrono::milliseconds(50));
    ThreadStarter client(true);
    Notify(client, L"headset");
    EXPECT_EQ(fakewin::Violations(), Texts{"a notification waits for more than the start of a thread"});
}

TEST_F(FakeNotification, ComesOnceForEachRoleAndWithoutIdWhenNoDeviceIsLeft)
{
    ThreadStarter client(false);
    Notify(client, L"headset");
    EXPECT_EQ(client.roles, (std::vector{eConsole, eMultimedia, eCommunications}));
    EXPECT_TRUE(client.hasId);
    Notify(client, L"");
    EXPECT_FALSE(client.hasId);
}

TEST_F(FakeNotification, StaysRegisteredAfterFailedUnregistration)
{
    auto &audio = fakes::AudioSystem::Instance();
    ThreadStarter client(false);
    EXPECT_EQ(m_enumerator->RegisterEndpointNotificationCallback(&client), S_OK);
    audio.Fail(fakes::Method::UnregisterCallback, E_POINTER);
    EXPECT_EQ(m_enumerator->UnregisterEndpointNotificationCallback(&client), E_POINTER);
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    EXPECT_EQ(audio.FailedUnregistrations(), 1);
    EXPECT_EQ(m_enumerator->UnregisterEndpointNotificationCallback(&client), S_OK);
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
}

} // namespace
