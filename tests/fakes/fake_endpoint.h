// Core Audio endpoints for unit tests. Calls can be scripted and are counted; the sound written to an
// endpoint is recorded.
//
// The objects check COM's rules. A call on a released object, on an object whose DLL was unloaded, outside an
// apartment, inside a notification or on a thread that did not obtain the object is a violation
// (fakewin::Violations).
#pragma once

#include <windows.h>
#include <mmreg.h>
#include <audioclient.h>
#include <mmdeviceapi.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/fakes/fault_script.h"

namespace fakes {

enum class Method {
    GetDefaultAudioEndpoint,
    RegisterCallback,
    UnregisterCallback,
    Activate,
    GetId,
    GetState,
    Initialize,
    GetBufferSize,
    GetCurrentPadding,
    GetMixFormat,
    Start,
    Stop,
    SetEventHandle,
    GetService,
    GetBuffer,
    ReleaseBuffer,
    CaptureGetBuffer,
    CaptureReleaseBuffer,
    GetNextPacketSize,
    GetMute,
};

// The format that GetMixFormat returns.
struct MixFormat {
    uint16_t channels = 2;
    uint16_t bits = 32;
    uint32_t rateHz = 48000;
    bool extensible = true;
    uint32_t channelMask = 0x3;
    std::optional<bool> isFloat = std::nullopt;       // by default, 32 bits are floats and others integers
    std::optional<uint16_t> validBits = std::nullopt; // by default, all bits; fewer only for integers
    // If set, returned instead of the value computed from the other fields.
    std::optional<uint16_t> blockAlign = std::nullopt;
    std::optional<uint32_t> bytesPerSecond = std::nullopt;
    uint16_t furtherBytes = 0; // after the known fields

    bool IsFloat() const { return isFloat.value_or(bits == 32); }
    uint16_t FrameBytes() const
    {
        return blockAlign.value_or(static_cast<uint16_t>(uint32_t{channels} * bits / 8));
    }
};

// How a client was initialised and used.
struct ClientRecord {
    std::wstring endpoint;
    AUDCLNT_SHAREMODE mode = AUDCLNT_SHAREMODE_EXCLUSIVE;
    DWORD flags = 0;
    REFERENCE_TIME bufferDuration = 0;
    REFERENCE_TIME periodicity = -1;
    std::vector<uint8_t> format; // the bytes of the wave format, extension included
    bool hasSession = true;
    HANDLE event = nullptr;
    int starts = 0;
    int stops = 0;
    bool alive = true;
};

// One packet of a capture client.
struct CapturedPacket {
    std::vector<uint8_t> data; // empty: silence for all frames
    UINT32 frames = 0;
    DWORD flags = 0;
};

// What the system does when notifications are registered and unregistered. Versions of Windows and of its
// documentation differ in it, so the module must not rely on any of it.
struct RegistrationRules {
    bool addsReference = true;   // a registration has a reference to the callback
    bool unregisterWaits = true; // unregistering waits until no callback runs
};

// One endpoint. A test may change it only before the module's threads use it.
struct Endpoint {
    std::wstring id;
    DWORD state = DEVICE_STATE_ACTIVE;
    MixFormat mixFormat;
    // True: Initialize accepts formats that an audio engine refuses. False: it refuses them as documented.
    bool acceptsAnyFormat = false;
    UINT32 bufferFrames = 14400;

    // GetCurrentPadding returns the values of the script first. After that it returns, if drainFrames is set,
    // the frames not played yet, where each call plays drainFrames while the client runs; otherwise the
    // constant.
    std::deque<UINT32> paddingScript;
    std::optional<UINT32> drainFrames;
    UINT32 constantPadding = 480;
    std::optional<UINT32> paddingOfFailure; // if set, a failing GetCurrentPadding stores this value

    UINT32 queuedFrames = 0;
    std::vector<uint8_t> written;      // the bytes of all released buffers
    std::vector<UINT32> writtenFrames; // the frames of each released buffer
    int invalidations = 0;

    // A microphone delivers these packets, then those of the source until it returns none.
    std::deque<CapturedPacket> packets;
    std::function<std::optional<CapturedPacket>()> source;
    std::vector<UINT32> releasedFrames; // the argument of each ReleaseBuffer
    BOOL muted = FALSE;
};

// All endpoints. After Reset, CoCreateInstance(CLSID_MMDeviceEnumerator) returns their enumerator. Any
// thread.
class AudioSystem {
public:
    static AudioSystem &Instance();

    // Removes all endpoints, then adds "speakers" and "microphone", each the default of its flow for all
    // roles, and installs the class factory. Call Reset after fakewin::Reset, which removes the factory.
    // Objects that the module still references stay usable.
    void Reset();

    Endpoint &Add(const std::wstring &id);
    Endpoint &Get(const std::wstring &id = L"speakers");
    void SetDefault(ERole role, const std::wstring &id);
    void SetDefaultForAllRoles(const std::wstring &id); // of the speakers; empty: no default
    void SetDefaultMicrophone(const std::wstring &id);  // for all roles; empty: no default
    // Set the default for all roles, then send one notification for each role, as Windows does when a device
    // becomes the default of all of them. Without a default (an empty id), the notifications have a null id.
    void ChangeDefaultSpeaker(const std::wstring &id);
    void ChangeDefaultMicrophone(const std::wstring &id);
    // Appends a packet to those that a microphone delivers.
    void Deliver(const CapturedPacket &packet, const std::wstring &id = L"microphone");
    // Makes all calls of the endpoint's present clients fail with AUDCLNT_E_DEVICE_INVALIDATED.
    void Invalidate(const std::wstring &id);

    // As in FaultScript.
    void Fail(Method method, int64_t result, int nth = 1, int times = 1);
    void Before(Method method, std::function<void()> action, int nth = 1);
    void ClearFaults();
    // Until the next Reset. An unregistration that is scripted to fail leaves the callback registered, unless
    // the result is E_NOTFOUND.
    void SetRegistrationRules(const RegistrationRules &rules);
    int Count(Method method) const;
    int TotalCalls() const;

    // The arguments of each GetDefaultAudioEndpoint, and of each GetBuffer of a render client.
    std::vector<EDataFlow> RequestedFlows() const;
    std::vector<ERole> RequestedRoles() const;
    std::vector<UINT32> RequestedFrames() const;
    std::vector<ClientRecord> Clients() const; // in the order of their activation
    std::vector<uint8_t> Written(const std::wstring &id) const;
    std::vector<UINT32> ReleasedFrames() const; // the argument of each ReleaseBuffer of the microphone
    std::vector<IID> ReleasedObjects() const;   // their interfaces, in the order of release
    int LiveObjects() const;                    // counts only objects created since the last Reset
    int RegisteredCallbacks() const;
    std::vector<IMMNotificationClient *> Callbacks() const; // in the order of their registration
    int FailedUnregistrations() const; // those that left their callback registered, since the last Reset

    // Deliver a notification to every registered callback on a new thread, and wait until all callbacks
    // returned. If one does not return for twenty seconds, the process is aborted with a message.
    void NotifyDefaultChanged(EDataFlow flow, ERole role, const std::wstring &id); // empty: a null id
    void NotifyDefaultChangedForAllRoles(EDataFlow flow, const std::wstring &id);
    void NotifyPropertyChanged(const std::wstring &id);
    void NotifyStateChanged(const std::wstring &id, DWORD state);
    void NotifyAdded(const std::wstring &id);
    void NotifyRemoved(const std::wstring &id);

private:
    friend class FakeObject;
    friend class FakeEnumerator;
    friend class FakeDevice;
    friend class FakeAudioClient;
    friend class FakeRenderClient;
    friend class FakeCaptureClient;
    friend class FakeEndpointVolume;

    // Creates an object that stays in memory after its last Release, so that a late call is reported.
    template <typename Object, typename... Arguments>
    Object *Create(Arguments &&...arguments)
    {
        auto object = std::make_unique<Object>(*this, std::forward<Arguments>(arguments)...);
        Object *created = object.get();
        m_objects.push_back(std::move(object));
        return created;
    }

    AudioSystem() = default;
    bool UnregisterWaits() const
    {
        const std::lock_guard lock(m_mutex);
        return m_rules.unregisterWaits;
    }
    void Notify(const std::function<void(IMMNotificationClient &)> &deliver);
    void Deliver(const std::function<void(IMMNotificationClient &)> &deliver);

    std::recursive_mutex m_notifyMutex;   // locked while callbacks run and while one is unregistered
    mutable std::recursive_mutex m_mutex; // guards all members below
    FaultScript<Method> m_script;
    std::vector<std::shared_ptr<Endpoint>> m_endpoints;
    std::wstring m_defaults[ERole_enum_count];
    std::wstring m_defaultMicrophone;
    std::vector<EDataFlow> m_requestedFlows;
    std::vector<ERole> m_requestedRoles;
    std::vector<UINT32> m_requestedFrames;
    std::vector<std::shared_ptr<ClientRecord>> m_clients;
    RegistrationRules m_rules;
    std::vector<IMMNotificationClient *> m_callbacks;
    std::vector<IID> m_releasedObjects;
    // Callbacks that earlier tests left registered. Kept, because the module must not free them.
    std::vector<IMMNotificationClient *> m_lostCallbacks;
    int m_failedUnregistrations = 0;
    std::vector<std::unique_ptr<class FakeObject>> m_objects; // including released ones, until Reset
    size_t m_objectsBeforeReset = 0;                          // how many objects were alive at the last Reset
};

} // namespace fakes
