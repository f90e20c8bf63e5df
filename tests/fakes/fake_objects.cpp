#include "tests/fakes/fake_objects.h"

#include <ks.h>
#include <ksmedia.h>

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace fakes {
namespace {

// A zero-terminated copy in COM's memory.
LPWSTR CopyText(const std::wstring &text)
{
    const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    auto *copy = static_cast<LPWSTR>(fakewin::CoTaskMemAlloc(bytes));
    if (copy != nullptr) {
        std::memcpy(copy, text.c_str(), bytes);
    }
    return copy;
}

WAVEFORMATEX *MakeWaveFormat(const MixFormat &mix)
{
    const size_t bytes = mix.extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX);
    auto *format = static_cast<WAVEFORMATEX *>(fakewin::CoTaskMemAlloc(bytes));
    if (format == nullptr) {
        return nullptr;
    }
    format->wFormatTag = mix.extensible ? WAVE_FORMAT_EXTENSIBLE : WAVE_FORMAT_PCM;
    format->nChannels = mix.channels;
    format->nSamplesPerSec = mix.rateHz;
    format->nBlockAlign = mix.FrameBytes();
    format->nAvgBytesPerSec = mix.rateHz * mix.FrameBytes();
    format->wBitsPerSample = mix.bits;
    format->cbSize = static_cast<WORD>(bytes - sizeof(WAVEFORMATEX));
    if (mix.extensible) {
        auto *extensible = reinterpret_cast<WAVEFORMATEXTENSIBLE *>(format);
        extensible->Samples.wValidBitsPerSample = mix.bits;
        extensible->dwChannelMask = mix.channelMask;
        extensible->SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    }
    return format;
}

} // namespace

// --- What all objects share ------------------------------------------------------------------

HRESULT FakeObject::Query(IUnknown *self, REFIID iid, void **object)
{
    if (!IsEqualIID(iid, m_iid) && !IsEqualIID(iid, IID_IUnknown)) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    *object = self;
    Add();
    return S_OK;
}

void FakeObject::Check(const char *what) const
{
    if (!IsAlive()) {
        fakewin::AddViolation(std::string(what) + " on an object that was released");
    }
    if (fakewin::ImplementationUnloads() != m_unloadsAtCreation) {
        fakewin::AddViolation(std::string(what) + " on an object whose DLL is gone");
    }
    if (fakewin::InNotification()) {
        fakewin::AddViolation(std::string(what) + " inside a notification");
    }
}

ULONG FakeObject::Add()
{
    const std::lock_guard lock(m_system.m_mutex);
    Check("AddRef");
    return ++m_references;
}

ULONG FakeObject::Drop()
{
    const std::lock_guard lock(m_system.m_mutex);
    Check("Release");
    if (m_references == 0) {
        return 0;
    }
    if (--m_references == 0) {
        OnLastRelease();
    }
    return m_references;
}

std::optional<int64_t> FakeObject::Enter(Method method)
{
    Check("a call");
    const bool isUnregistration = method == Method::UnregisterCallback; // which destruction may make, too
    if (!isUnregistration && m_thread != std::this_thread::get_id()) {
        fakewin::AddViolation("a call on another thread than the object's own");
    }
    if (!isUnregistration && fakewin::ApartmentDepth() == 0) {
        fakewin::AddViolation("a call outside an apartment");
    }
    return m_system.m_script.Next(method);
}

// --- Enumerator ------------------------------------------------------------------------------

FakeEnumerator::FakeEnumerator(AudioSystem &system) : FakeUnknown(system)
{
    IMMDeviceEnumerator *self = this;
    fakewin::DeclareImplementation((*reinterpret_cast<void ***>(self))[0]);
}

HRESULT FakeEnumerator::GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice **device)
{
    const std::lock_guard lock(m_system.m_mutex);
    m_system.m_requestedRoles.push_back(role);
    m_system.m_requestedFlows.push_back(flow);
    const auto fault = Enter(Method::GetDefaultAudioEndpoint);
    *device = nullptr;
    if (fault && *fault != nullResult) {
        return static_cast<HRESULT>(*fault);
    }
    const std::wstring &id = flow == eCapture ? m_system.m_defaultMicrophone : m_system.m_defaults[role];
    if (id.empty()) {
        return E_NOTFOUND;
    }
    for (const auto &endpoint : m_system.m_endpoints) {
        if (endpoint->id == id) {
            auto object = std::make_unique<FakeDevice>(m_system, endpoint);
            *device = object.get();
            m_system.m_objects.push_back(std::move(object));
            return S_OK;
        }
    }
    return E_NOTFOUND;
}

HRESULT FakeEnumerator::RegisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto fault = Enter(Method::RegisterCallback)) {
        return static_cast<HRESULT>(*fault);
    }
    client->AddRef();
    m_system.m_callbacks.push_back(client);
    return S_OK;
}

HRESULT FakeEnumerator::UnregisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    const std::lock_guard noneIsCalled(m_system.m_notifyMutex);
    const std::lock_guard lock(m_system.m_mutex);
    Enter(Method::UnregisterCallback);
    if (std::erase(m_system.m_callbacks, client) == 0) {
        return E_NOTFOUND;
    }
    client->Release();
    return S_OK;
}

// --- Device ----------------------------------------------------------------------------------

HRESULT FakeDevice::Activate(REFIID iid, DWORD context, PROPVARIANT *parameters, void **object)
{
    const std::lock_guard lock(m_system.m_mutex);
    const auto fault = Enter(Method::Activate);
    *object = nullptr;
    if (fault) {
        return *fault == nullResult ? S_OK : static_cast<HRESULT>(*fault);
    }
    if (context != CLSCTX_ALL || parameters != nullptr) {
        return E_INVALIDARG;
    }
    if (IsEqualIID(iid, __uuidof(IAudioEndpointVolume))) {
        auto volume = std::make_unique<FakeEndpointVolume>(m_system, m_endpoint);
        *object = static_cast<IAudioEndpointVolume *>(volume.get());
        m_system.m_objects.push_back(std::move(volume));
        return S_OK;
    }
    if (!IsEqualIID(iid, IID_IAudioClient)) {
        return E_NOINTERFACE;
    }
    auto client = std::make_unique<FakeAudioClient>(m_system, m_endpoint);
    *object = static_cast<IAudioClient *>(client.get());
    m_system.m_objects.push_back(std::move(client));
    return S_OK;
}

HRESULT FakeDevice::GetId(LPWSTR *id)
{
    const std::lock_guard lock(m_system.m_mutex);
    const auto fault = Enter(Method::GetId);
    *id = nullptr;
    if (fault) {
        return *fault == nullResult ? S_OK : static_cast<HRESULT>(*fault);
    }
    *id = CopyText(m_endpoint->id);
    return S_OK;
}

HRESULT FakeDevice::GetState(DWORD *state)
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto fault = Enter(Method::GetState)) {
        return static_cast<HRESULT>(*fault);
    }
    *state = m_endpoint->state;
    return S_OK;
}

// --- Client ----------------------------------------------------------------------------------

FakeAudioClient::FakeAudioClient(AudioSystem &system, std::shared_ptr<Endpoint> endpoint)
    : FakeUnknown(system),
      m_endpoint(std::move(endpoint)),
      m_record(std::make_shared<ClientRecord>()),
      m_invalidationsAtCreation(m_endpoint->invalidations)
{
    m_record->endpoint = m_endpoint->id;
    m_system.m_clients.push_back(m_record);
}

std::optional<HRESULT> FakeAudioClient::Invalidated() const
{
    if (m_endpoint->invalidations != m_invalidationsAtCreation) {
        return AUDCLNT_E_DEVICE_INVALIDATED;
    }
    return std::nullopt;
}

std::optional<HRESULT> FakeAudioClient::Enter(Method method)
{
    if (const auto fault = FakeObject::Enter(method)) {
        return *fault == nullResult ? S_OK : static_cast<HRESULT>(*fault);
    }
    return Invalidated();
}

HRESULT FakeAudioClient::Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME bufferDuration,
                                    REFERENCE_TIME periodicity, const WAVEFORMATEX *format, LPCGUID session)
{
    const std::lock_guard lock(m_system.m_mutex);
    m_record->mode = mode;
    m_record->flags = flags;
    m_record->bufferDuration = bufferDuration;
    m_record->periodicity = periodicity;
    const auto *bytes = reinterpret_cast<const uint8_t *>(format);
    m_record->format.assign(bytes, bytes + sizeof(WAVEFORMATEX) + format->cbSize);
    m_record->hasSession = session != nullptr;
    if (const auto result = Enter(Method::Initialize)) {
        return *result;
    }
    if (m_initialized) {
        return AUDCLNT_E_ALREADY_INITIALIZED;
    }
    m_initialized = true;
    m_frameBytes = format->nBlockAlign;
    m_endpoint->queuedFrames = 0;
    return S_OK;
}

HRESULT FakeAudioClient::GetBufferSize(UINT32 *frames)
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto result = Enter(Method::GetBufferSize)) {
        return *result;
    }
    if (!m_initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    *frames = m_endpoint->bufferFrames;
    return S_OK;
}

HRESULT FakeAudioClient::GetCurrentPadding(UINT32 *frames)
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto result = Enter(Method::GetCurrentPadding)) {
        return *result;
    }
    Endpoint &endpoint = *m_endpoint;
    if (!endpoint.paddingScript.empty()) {
        *frames = endpoint.paddingScript.front();
        endpoint.paddingScript.pop_front();
    } else if (endpoint.drainFrames) {
        endpoint.queuedFrames -= std::min(endpoint.queuedFrames, *endpoint.drainFrames);
        *frames = endpoint.queuedFrames;
    } else {
        *frames = endpoint.constantPadding;
    }
    m_reportedPadding = *frames;
    return S_OK;
}

HRESULT FakeAudioClient::GetMixFormat(WAVEFORMATEX **format)
{
    const std::lock_guard lock(m_system.m_mutex);
    const auto result = Enter(Method::GetMixFormat);
    *format = nullptr;
    if (result) {
        return *result;
    }
    *format = MakeWaveFormat(m_endpoint->mixFormat);
    return S_OK;
}

HRESULT FakeAudioClient::Start()
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto result = Enter(Method::Start)) {
        return *result;
    }
    if ((m_record->flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0 && m_record->event == nullptr) {
        return AUDCLNT_E_EVENTHANDLE_NOT_SET;
    }
    ++m_record->starts;
    return S_OK;
}

HRESULT FakeAudioClient::Stop()
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto result = Enter(Method::Stop)) {
        return *result;
    }
    ++m_record->stops;
    return S_OK;
}

HRESULT FakeAudioClient::SetEventHandle(HANDLE event)
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto result = Enter(Method::SetEventHandle)) {
        return *result;
    }
    if (event == nullptr) {
        return E_INVALIDARG;
    }
    m_record->event = event;
    return S_OK;
}

HRESULT FakeAudioClient::GetService(REFIID iid, void **service)
{
    const std::lock_guard lock(m_system.m_mutex);
    const auto result = Enter(Method::GetService);
    *service = nullptr;
    if (result) {
        return *result;
    }
    if (IsEqualIID(iid, IID_IAudioCaptureClient)) {
        auto client = std::make_unique<FakeCaptureClient>(m_system, *this);
        *service = static_cast<IAudioCaptureClient *>(client.get());
        m_system.m_objects.push_back(std::move(client));
        return S_OK;
    }
    if (!IsEqualIID(iid, IID_IAudioRenderClient)) {
        return E_NOINTERFACE;
    }
    auto client = std::make_unique<FakeRenderClient>(m_system, *this);
    *service = static_cast<IAudioRenderClient *>(client.get());
    m_system.m_objects.push_back(std::move(client));
    return S_OK;
}

// --- Render client ---------------------------------------------------------------------------

HRESULT FakeRenderClient::GetBuffer(UINT32 frames, BYTE **data)
{
    const std::lock_guard lock(m_system.m_mutex);
    m_system.m_requestedFrames.push_back(frames);
    const auto fault = Enter(Method::GetBuffer);
    *data = nullptr;
    if (fault && *fault != nullResult) {
        return static_cast<HRESULT>(*fault);
    }
    if (m_obtainedFrames) {
        return AUDCLNT_E_OUT_OF_ORDER;
    }
    if (const auto result = m_client.Invalidated()) {
        return *result;
    }
    if (frames > m_client.FreeFrames()) {
        return AUDCLNT_E_BUFFER_TOO_LARGE;
    }
    m_obtainedFrames = frames;
    if (!fault) {
        m_buffer = std::vector<BYTE>(size_t{frames} * m_client.FrameBytes());
        *data = m_buffer.data();
    }
    return S_OK;
}

HRESULT FakeRenderClient::ReleaseBuffer(UINT32 frames, DWORD flags)
{
    const std::lock_guard lock(m_system.m_mutex);
    if (const auto fault = Enter(Method::ReleaseBuffer)) {
        return static_cast<HRESULT>(*fault);
    }
    if (!m_obtainedFrames) {
        return frames == 0 ? S_OK : AUDCLNT_E_OUT_OF_ORDER;
    }
    if (frames > *m_obtainedFrames || flags != 0) {
        return AUDCLNT_E_INVALID_SIZE;
    }
    m_obtainedFrames.reset();
    if (frames > 0) {
        Endpoint &endpoint = m_client.TheEndpoint();
        endpoint.written.insert(endpoint.written.end(), m_buffer.begin(),
                                m_buffer.begin() +
                                    static_cast<std::ptrdiff_t>(frames) * m_client.FrameBytes());
        endpoint.writtenFrames.push_back(frames);
        endpoint.queuedFrames += frames;
    }
    return S_OK;
}

void FakeRenderClient::OnLastRelease()
{
    if (m_obtainedFrames) {
        fakewin::AddViolation("a render client was released with a buffer that was not given back");
    }
}

} // namespace fakes
