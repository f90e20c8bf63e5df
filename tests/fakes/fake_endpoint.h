// Core Audio endpoints for unit tests: scripted, counted, recording what is written to them.
//
// Objects follow COM's rules and report (as fakewin violations) what breaks them: a call on an
// object that was released or whose DLL is gone, outside an apartment, inside a notification, or
// on another thread than the one that activated the client.
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

// What GetMixFormat reports.
struct MixFormat {
    uint16_t channels = 2;
    uint16_t bits = 32;
    uint32_t rateHz = 48000;
    bool extensible = true;
    uint32_t channelMask = 0x3;
    // Set: reported in place of what the other fields give.
    std::optional<uint16_t> blockAlign = std::nullopt;
    std::optional<uint32_t> bytesPerSecond = std::nullopt;

    uint16_t FrameBytes() const
    {
        return blockAlign.value_or(static_cast<uint16_t>(uint32_t{channels} * bits / 8));
    }
};

// What a client was initialised with.
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

// What GetBuffer of a capture client hands out at once.
struct CapturedPacket {
    std::vector<uint8_t> data; // empty: as much silence as the frames need
    UINT32 frames = 0;
    DWORD flags = 0;
};

// One endpoint; a test changes it before the module's threads see it.
struct Endpoint {
    std::wstring id;
    DWORD state = DEVICE_STATE_ACTIVE;
    MixFormat mixFormat;
    // Initialize accepts formats that no audio engine takes. Otherwise it refuses them as documented.
    bool acceptsAnyFormat = false;
    UINT32 bufferFrames = 14400;

    // What GetCurrentPadding reports: the script's values first; then, with a drain, what was
    // written minus so many frames each time, while the client runs; else the constant.
    std::deque<UINT32> paddingScript;
    std::optional<UINT32> drainFrames;
    UINT32 constantPadding = 480;
    std::optional<UINT32> paddingOfFailure; // what a failing GetCurrentPadding writes all the same

    UINT32 queuedFrames = 0;
    std::vector<uint8_t> written;      // all bytes given to ReleaseBuffer
    std::vector<UINT32> writtenFrames; // of each ReleaseBuffer
    int invalidations = 0;

    // What a microphone delivers: these packets, then what the source makes, as long as it makes any.
    std::deque<CapturedPacket> packets;
    std::function<std::optional<CapturedPacket>()> source;
    std::vector<UINT32> releasedFrames; // of each ReleaseBuffer
    BOOL muted = FALSE;
};

// All endpoints, behind CoCreateInstance(CLSID_MMDeviceEnumerator) from Reset on. Any thread.
class AudioSystem {
public:
    static AudioSystem &Instance();

    // Back to the endpoints "speakers" and "microphone", each the default of its flow for all roles;
    // installs the class factory. Call it after fakewin::Reset. Objects that the module still holds stay
    // usable.
    void Reset();

    Endpoint &Add(const std::wstring &id);
    Endpoint &Get(const std::wstring &id = L"speakers");
    void SetDefault(ERole role, const std::wstring &id);
    void SetDefaultForAllRoles(const std::wstring &id); // empty: there is none
    void SetDefaultMicrophone(const std::wstring &id);  // for all roles; empty: there is none
    // Puts packets to the end of what a microphone delivers.
    void Deliver(const CapturedPacket &packet, const std::wstring &id = L"microphone");
    // The clients of an endpoint, as they are now, are told that the device is gone.
    void Invalidate(const std::wstring &id);

    void Fail(Method method, int64_t result, int nth = 1, int times = 1);
    void Before(Method method, std::function<void()> action, int nth = 1);
    void Heal(); // no method fails any more
    int Count(Method method) const;
    int TotalCalls() const;

    // The flow, the role or the frame count of each call.
    std::vector<EDataFlow> RequestedFlows() const;
    std::vector<ERole> RequestedRoles() const;
    std::vector<UINT32> RequestedFrames() const;
    std::vector<ClientRecord> Clients() const; // in the order of their activation
    std::vector<uint8_t> Written(const std::wstring &id) const;
    std::vector<UINT32> ReleasedFrames() const; // of each ReleaseBuffer of the microphone
    int LiveObjects() const;                    // of those made since the last Reset
    int RegisteredCallbacks() const;

    // Deliver a notification to every registered callback on a thread of their own, and wait.
    void NotifyDefaultChanged(EDataFlow flow, ERole role, const std::wstring &id);
    void NotifyPropertyChanged(const std::wstring &id);
    // The other three.
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

    AudioSystem() = default;
    void Notify(const std::function<void(IMMNotificationClient &)> &deliver);

    std::recursive_mutex m_notifyMutex;   // held while callbacks are called, and to take one out
    mutable std::recursive_mutex m_mutex; // guards all below
    FaultScript<Method> m_script;
    std::vector<std::shared_ptr<Endpoint>> m_endpoints;
    std::wstring m_defaults[ERole_enum_count];
    std::wstring m_defaultMicrophone;
    std::vector<EDataFlow> m_requestedFlows;
    std::vector<ERole> m_requestedRoles;
    std::vector<UINT32> m_requestedFrames;
    std::vector<std::shared_ptr<ClientRecord>> m_clients;
    std::vector<IMMNotificationClient *> m_callbacks;
    std::vector<std::unique_ptr<class FakeObject>> m_objects; // also those that were released
    size_t m_earlierObjects = 0;                              // objects that the last Reset found still held
};

} // namespace fakes
