#include "tests/fakes/fake_endpoint.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iterator>

#include "tests/fakes/fake_objects.h"
#include "tests/fakes/fake_windows.h"

namespace fakes {

AudioSystem &AudioSystem::Instance()
{
    static auto *system = new AudioSystem; // outlives the module's static objects
    return *system;
}

void AudioSystem::Reset()
{
    const std::lock_guard lock(m_mutex);
    m_script.Reset();
    m_endpoints.clear();
    m_requestedRoles.clear();
    m_requestedFlows.clear();
    m_requestedFrames.clear();
    m_clients.clear();
    m_releasedObjects.clear();
    m_rules = {};
    m_lostCallbacks.insert(m_lostCallbacks.end(), m_callbacks.begin(), m_callbacks.end());
    m_callbacks.clear();
    m_failedUnregistrations = 0;
    std::erase_if(m_objects, [](const auto &object) { return !object->IsAlive(); });
    m_objectsBeforeReset = m_objects.size();
    Add(L"speakers");
    SetDefaultForAllRoles(L"speakers");
    Add(L"microphone");
    SetDefaultMicrophone(L"microphone");
    fakewin::SetClassFactory([this](REFCLSID classId, REFIID iid, void **object) -> HRESULT {
        if (!IsEqualCLSID(classId, CLSID_MMDeviceEnumerator) || !IsEqualIID(iid, IID_IMMDeviceEnumerator)) {
            return REGDB_E_CLASSNOTREG;
        }
        const std::lock_guard factoryLock(m_mutex);
        *object = static_cast<IMMDeviceEnumerator *>(Create<FakeEnumerator>());
        return S_OK;
    });
}

Endpoint &AudioSystem::Add(const std::wstring &id)
{
    const std::lock_guard lock(m_mutex);
    m_endpoints.push_back(std::make_shared<Endpoint>());
    m_endpoints.back()->id = id;
    return *m_endpoints.back();
}

Endpoint &AudioSystem::Get(const std::wstring &id)
{
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_endpoints.begin(), m_endpoints.end(),
                                    [&](const auto &endpoint) { return endpoint->id == id; });
    return found != m_endpoints.end() ? **found : Add(id);
}

void AudioSystem::SetDefault(ERole role, const std::wstring &id)
{
    const std::lock_guard lock(m_mutex);
    m_defaults[role] = id;
}

void AudioSystem::SetDefaultForAllRoles(const std::wstring &id)
{
    for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
        SetDefault(role, id);
    }
}

void AudioSystem::SetDefaultMicrophone(const std::wstring &id)
{
    const std::lock_guard lock(m_mutex);
    m_defaultMicrophone = id;
}

void AudioSystem::ChangeDefaultSpeaker(const std::wstring &id)
{
    SetDefaultForAllRoles(id);
    NotifyDefaultChangedForAllRoles(eRender, id);
}

void AudioSystem::ChangeDefaultMicrophone(const std::wstring &id)
{
    SetDefaultMicrophone(id);
    NotifyDefaultChangedForAllRoles(eCapture, id);
}

void AudioSystem::Deliver(const CapturedPacket &packet, const std::wstring &id)
{
    const std::lock_guard lock(m_mutex);
    Get(id).packets.push_back(packet);
}

void AudioSystem::Invalidate(const std::wstring &id)
{
    const std::lock_guard lock(m_mutex);
    ++Get(id).invalidations;
}

void AudioSystem::Fail(Method method, int64_t result, int nth, int times)
{
    m_script.Fail(method, result, nth, times);
}

void AudioSystem::Before(Method method, std::function<void()> action, int nth)
{
    m_script.Before(method, std::move(action), nth);
}

void AudioSystem::ClearFaults()
{
    m_script.ClearFaults();
}

int AudioSystem::Count(Method method) const
{
    return m_script.Count(method);
}

int AudioSystem::TotalCalls() const
{
    return m_script.TotalCount();
}

std::vector<ERole> AudioSystem::RequestedRoles() const
{
    const std::lock_guard lock(m_mutex);
    return m_requestedRoles;
}

std::vector<EDataFlow> AudioSystem::RequestedFlows() const
{
    const std::lock_guard lock(m_mutex);
    return m_requestedFlows;
}

std::vector<UINT32> AudioSystem::RequestedFrames() const
{
    const std::lock_guard lock(m_mutex);
    return m_requestedFrames;
}

std::vector<ClientRecord> AudioSystem::Clients() const
{
    const std::lock_guard lock(m_mutex);
    std::vector<ClientRecord> records;
    for (const auto &client : m_clients) {
        records.push_back(*client);
    }
    return records;
}

std::vector<IMMNotificationClient *> AudioSystem::Callbacks() const
{
    const std::lock_guard lock(m_mutex);
    return m_callbacks;
}

std::vector<uint8_t> AudioSystem::Written(const std::wstring &id) const
{
    const std::lock_guard lock(m_mutex);
    for (const auto &endpoint : m_endpoints) {
        if (endpoint->id == id) {
            return endpoint->written;
        }
    }
    return {};
}

std::vector<UINT32> AudioSystem::ReleasedFrames() const
{
    const std::lock_guard lock(m_mutex);
    for (const auto &endpoint : m_endpoints) {
        if (endpoint->id == L"microphone") {
            return endpoint->releasedFrames;
        }
    }
    return {};
}

std::vector<IID> AudioSystem::ReleasedObjects() const
{
    const std::lock_guard lock(m_mutex);
    return m_releasedObjects;
}

int AudioSystem::LiveObjects() const
{
    const std::lock_guard lock(m_mutex);
    const auto first = m_objects.begin() + static_cast<std::ptrdiff_t>(m_objectsBeforeReset);
    return static_cast<int>(
        std::count_if(first, m_objects.end(), [](const auto &object) { return object->IsAlive(); }));
}

void AudioSystem::SetRegistrationRules(const RegistrationRules &rules)
{
    const std::lock_guard lock(m_mutex);
    m_rules = rules;
}

int AudioSystem::FailedUnregistrations() const
{
    const std::lock_guard lock(m_mutex);
    return m_failedUnregistrations;
}

int AudioSystem::RegisteredCallbacks() const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_callbacks.size());
}

// --- Notifications ---------------------------------------------------------------------------

void AudioSystem::Deliver(const std::function<void(IMMNotificationClient &)> &deliver)
{
    std::unique_lock notifying(m_notifyMutex, std::defer_lock);
    std::vector<IMMNotificationClient *> callbacks;
    RegistrationRules rules;
    {
        const std::lock_guard lock(m_mutex);
        rules = m_rules;
    }
    if (rules.unregisterWaits) {
        notifying.lock(); // UnregisterEndpointNotificationCallback locks it, too
    }
    {
        const std::lock_guard lock(m_mutex);
        callbacks = m_callbacks;
        for (IMMNotificationClient *callback : callbacks) {
            if (rules.addsReference) {
                callback->AddRef();
            }
        }
    }
    for (IMMNotificationClient *callback : callbacks) {
        {
            const fakewin::NotificationScope scope;
            deliver(*callback);
        }
        if (rules.addsReference) {
            callback->Release();
        }
    }
}

void AudioSystem::Notify(const std::function<void(IMMNotificationClient &)> &deliver)
{
    auto delivered = std::async(std::launch::async, [&] { Deliver(deliver); });
    if (delivered.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        std::fprintf(stderr, "a notification does not return\n");
        std::abort();
    }
}

void AudioSystem::NotifyDefaultChanged(EDataFlow flow, ERole role, const std::wstring &id)
{
    Notify([&](IMMNotificationClient &client) {
        client.OnDefaultDeviceChanged(flow, role, id.empty() ? nullptr : id.c_str());
    });
}

void AudioSystem::NotifyDefaultChangedForAllRoles(EDataFlow flow, const std::wstring &id)
{
    for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
        NotifyDefaultChanged(flow, role, id);
    }
}

void AudioSystem::NotifyPropertyChanged(const std::wstring &id)
{
    Notify([&](IMMNotificationClient &client) { client.OnPropertyValueChanged(id.c_str(), PROPERTYKEY{}); });
}

void AudioSystem::NotifyStateChanged(const std::wstring &id, DWORD state)
{
    Notify([&](IMMNotificationClient &client) { client.OnDeviceStateChanged(id.c_str(), state); });
}

void AudioSystem::NotifyAdded(const std::wstring &id)
{
    Notify([&](IMMNotificationClient &client) { client.OnDeviceAdded(id.c_str()); });
}

void AudioSystem::NotifyRemoved(const std::wstring &id)
{
    Notify([&](IMMNotificationClient &client) { client.OnDeviceRemoved(id.c_str()); });
}

} // namespace fakes
