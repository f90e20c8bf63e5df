// The COM objects of the fake endpoints. Not for tests.
#pragma once

#include <thread>

#include <endpointvolume.h>

#include "tests/fakes/endpoint_volume_stubs.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_windows.h"

namespace fakes {

// How the script changes a method.
struct Scripted {
    std::optional<HRESULT> failure; // returned at once
    HRESULT success = S_OK;         // returned once the method has done its work
    bool null = false;              // return a null pointer instead of an object
    bool badPointer = false;        // store a pointer that must not be used
    std::optional<UINT32> size;     // store this size
    bool acceptsAnyFormat = false;  // make Initialize of this client accept any format
};

// Base of all objects: reference count and checks of COM's rules.
class FakeObject {
public:
    virtual ~FakeObject() = default;
    bool IsAlive() const { return m_references > 0; }

protected:
    FakeObject(AudioSystem &system, const IID &iid) : m_system(system), m_iid(iid) {}

    HRESULT Query(IUnknown *self, REFIID iid, void **object);
    ULONG Add();
    ULONG Drop();
    // Called first by every method, with the system's mutex locked: checks the caller and counts the call.
    Scripted Enter(Method method);
    // Reports a violation if the object may not be used now. `operation` starts the message.
    void CheckUsable(const char *operation) const;

    AudioSystem &m_system;

private:
    virtual void OnLastRelease() {}

    const IID m_iid;
    ULONG m_references = 1;
    const std::thread::id m_thread = std::this_thread::get_id();
    const int m_unloadsAtCreation = fakewin::ImplementationUnloads();
};

// IUnknown for every interface.
template <typename Interface>
class FakeUnknown : public Interface, public FakeObject {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override
    {
        return Query(this, iid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return Add(); }
    ULONG STDMETHODCALLTYPE Release() override { return Drop(); }

protected:
    explicit FakeUnknown(AudioSystem &system) : FakeObject(system, __uuidof(Interface)) {}
};

class FakeEnumerator final : public FakeUnknown<IMMDeviceEnumerator> {
public:
    explicit FakeEnumerator(AudioSystem &system);

    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow, DWORD, IMMDeviceCollection **) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                      IMMDevice **device) override;
    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR, IMMDevice **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient *client) override;
    HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient *client) override;
};

class FakeDevice final : public FakeUnknown<IMMDevice> {
public:
    FakeDevice(AudioSystem &system, std::shared_ptr<Endpoint> endpoint, EDataFlow flow)
        : FakeUnknown(system), m_endpoint(std::move(endpoint)), m_flow(flow)
    {
    }

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT *parameters,
                                       void **object) override;
    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetId(LPWSTR *id) override;
    HRESULT STDMETHODCALLTYPE GetState(DWORD *state) override;

private:
    std::shared_ptr<Endpoint> m_endpoint;
    const EDataFlow m_flow;
};

class FakeAudioClient final : public FakeUnknown<IAudioClient> {
public:
    FakeAudioClient(AudioSystem &system, std::shared_ptr<Endpoint> endpoint, EDataFlow flow);

    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME bufferDuration,
                                         REFERENCE_TIME periodicity, const WAVEFORMATEX *format,
                                         LPCGUID session) override;
    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32 *frames) override;
    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32 *frames) override;
    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX *,
                                                WAVEFORMATEX **) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX **format) override;
    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME *, REFERENCE_TIME *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Start() override;
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) override;
    HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void **service) override;

    // For the render and capture clients.
    Endpoint &TheEndpoint() { return *m_endpoint; }
    uint16_t FrameBytes() const { return m_frameBytes; }
    UINT32 FreeFrames() const { return m_endpoint->bufferFrames - m_reportedPadding; }
    std::optional<HRESULT> Invalidated() const;

private:
    void OnLastRelease() override { m_record->alive = false; }
    // Also fails if the client is invalidated.
    Scripted Enter(Method method);

    std::shared_ptr<Endpoint> m_endpoint;
    const EDataFlow m_flow;
    std::shared_ptr<ClientRecord> m_record;
    const int m_invalidationsAtCreation;
    bool m_initialized = false;
    bool m_acceptsAnyFormat = false; // by script; Endpoint::acceptsAnyFormat has the same effect
    uint16_t m_frameBytes = 0;
    UINT32 m_reportedPadding = 0;
};

class FakeCaptureClient final : public FakeUnknown<IAudioCaptureClient> {
public:
    FakeCaptureClient(AudioSystem &system, FakeAudioClient &client) : FakeUnknown(system), m_client(client) {}

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags, UINT64 *devicePosition,
                                        UINT64 *counterPosition) override;
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override;
    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) override;

private:
    void OnLastRelease() override;
    bool Refill();

    FakeAudioClient &m_client; // AudioSystem keeps it in memory
    std::optional<CapturedPacket> m_obtained;
};

class FakeEndpointVolume final : public EndpointVolumeStubs<FakeUnknown<IAudioEndpointVolume>> {
public:
    FakeEndpointVolume(AudioSystem &system, std::shared_ptr<Endpoint> endpoint)
        : EndpointVolumeStubs(system), m_endpoint(std::move(endpoint))
    {
    }

    HRESULT STDMETHODCALLTYPE GetMute(BOOL *muted) override;

private:
    std::shared_ptr<Endpoint> m_endpoint;
};

class FakeRenderClient final : public FakeUnknown<IAudioRenderClient> {
public:
    FakeRenderClient(AudioSystem &system, FakeAudioClient &client) : FakeUnknown(system), m_client(client) {}

    HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 frames, BYTE **data) override;
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames, DWORD flags) override;

private:
    void OnLastRelease() override;

    FakeAudioClient &m_client; // AudioSystem keeps it in memory
    std::optional<UINT32> m_obtainedFrames;
    std::vector<BYTE> m_buffer;
};

} // namespace fakes
