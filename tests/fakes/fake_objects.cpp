#include "tests/fakes/fake_objects.h"

#include <ks.h>
#include <ksmedia.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>

#include "tests/fakes/journal.h"

namespace fakes {
namespace {

constexpr auto wrongEndpointType = static_cast<HRESULT>(0x88890003); // AUDCLNT_E_WRONG_ENDPOINT_TYPE

// Returns a zero-terminated copy allocated with CoTaskMemAlloc.
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
    const size_t bytes =
        (mix.extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX)) + mix.furtherBytes;
    auto *format = static_cast<WAVEFORMATEX *>(fakewin::CoTaskMemAlloc(bytes));
    if (format == nullptr) {
        return nullptr;
    }
    format->wFormatTag = mix.extensible ? WAVE_FORMAT_EXTENSIBLE : WAVE_FORMAT_PCM;
    format->nChannels = mix.channels;
    format->nSamplesPerSec = mix.rateHz;
    format->nBlockAlign = mix.FrameBytes();
    format->nAvgBytesPerSec = mix.bytesPerSecond.value_or(mix.rateHz * mix.FrameBytes());
    format->wBitsPerSample = mix.bits;
    format->cbSize = static_cast<WORD>(bytes - sizeof(WAVEFORMATEX));
    if (mix.extensible) {
        auto *extensible = reinterpret_cast<WAVEFORMATEXTENSIBLE *>(format);
        extensible->Samples.wValidBitsPerSample = mix.validBits.value_or(mix.bits);
        extensible->dwChannelMask = mix.channelMask;
        extensible->SubFormat = mix.IsFloat() ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
    }
    return format;
}

// True if the samples are of a type that an engine mixes: integers of 8, 16, 24 or 32 bits of which some may
// be unused, or floats of 32 bits.
bool HasMixableSamples(const WAVEFORMATEX &format)
{
    bool isFloat = format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    WORD validBits = format.wBitsPerSample;
    if (format.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        const auto &extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE &>(format);
        isFloat = IsEqualGUID(extensible.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
        if (!isFloat && !IsEqualGUID(extensible.SubFormat, KSDATAFORMAT_SUBTYPE_PCM)) {
            return false;
        }
        validBits = extensible.Samples.wValidBitsPerSample;
    } else if (format.wFormatTag != WAVE_FORMAT_PCM && !isFloat) {
        return false;
    }
    if (isFloat) {
        return format.wBitsPerSample == 32 && validBits == 32;
    }
    constexpr std::array<WORD, 4> sampleBits{8, 16, 24, 32};
    return std::find(sampleBits.begin(), sampleBits.end(), format.wBitsPerSample) != sampleBits.end() &&
           validBits > 0 && validBits <= format.wBitsPerSample;
}

// Returns the result of Initialize for a format in shared mode: E_POINTER for null, E_INVALIDARG for an
// inconsistent description, AUDCLNT_E_UNSUPPORTED_FORMAT for a valid description that the engine does not
// support. An engine converts sample types, but neither rates nor channels.
// https://learn.microsoft.com/windows/win32/api/audioclient/nf-audioclient-iaudioclient-initialize
HRESULT CheckFormat(const WAVEFORMATEX *format, const MixFormat &mix)
{
    if (format == nullptr) {
        return E_POINTER;
    }
    const uint64_t frameBits = uint64_t{format->nChannels} * format->wBitsPerSample;
    const uint64_t bytesPerSecond = uint64_t{format->nSamplesPerSec} * format->nBlockAlign;
    if (frameBits == 0 || bytesPerSecond == 0 || frameBits != uint64_t{format->nBlockAlign} * 8 ||
        bytesPerSecond != format->nAvgBytesPerSec ||
        (format->wFormatTag == WAVE_FORMAT_EXTENSIBLE &&
         format->cbSize < sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX))) {
        return E_INVALIDARG;
    }
    const bool isMixed = format->nSamplesPerSec == mix.rateHz && format->nChannels == mix.channels;
    return isMixed && HasMixableSamples(*format) ? S_OK : AUDCLNT_E_UNSUPPORTED_FORMAT;
}

// Returns the result of Initialize for its other arguments.
HRESULT CheckStream(EDataFlow flow, AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME bufferDuration,
                    REFERENCE_TIME periodicity)
{
    constexpr DWORD knownFlags = 0xF81F0000; // AUDCLNT_STREAMFLAGS_* and AUDCLNT_SESSIONFLAGS_*
    if (mode != AUDCLNT_SHAREMODE_SHARED) {
        return static_cast<HRESULT>(0x8889000E); // AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED
    }
    if ((flags & ~knownFlags) != 0 || bufferDuration < 0 || periodicity != 0) {
        return E_INVALIDARG;
    }
    if ((flags & AUDCLNT_STREAMFLAGS_LOOPBACK) != 0 && flow == eCapture) {
        return wrongEndpointType;
    }
    return S_OK;
}

} // namespace

// --- Base of all objects ---------------------------------------------------------------------

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

void FakeObject::CheckUsable(const char *operation) const
{
    if (!IsAlive()) {
        fakewin::AddViolation(std::string(operation) + " on a released object");
    }
    if (fakewin::ImplementationUnloads() != m_unloadsAtCreation) {
        fakewin::AddViolation(std::string(operation) + " on an object whose DLL was unloaded");
    }
    if (fakewin::InNotification()) {
        fakewin::AddViolation(std::string(operation) + " inside a notification");
    }
}

ULONG FakeObject::Add()
{
    const std::lock_guard lock(m_system.m_mutex);
    CheckUsable("AddRef");
    return ++m_references;
}

ULONG FakeObject::Drop()
{
    const std::lock_guard lock(m_system.m_mutex);
    CheckUsable("Release");
    if (m_references == 0) {
        return 0;
    }
    if (--m_references == 0) {
        m_system.m_releasedObjects.push_back(m_iid);
        OnLastRelease();
        NoteRelease(m_iid, this);
    }
    return m_references;
}

Scripted FakeObject::Enter(Method method)
{
    CheckUsable("a call");
    const bool isUnregistration = method == Method::UnregisterCallback; // may come from a destructor
    if (!isUnregistration && m_thread != std::this_thread::get_id()) {
        fakewin::AddViolation("a call on a thread that did not obtain the object");
    }
    if (!isUnregistration && fakewin::ApartmentDepth() == 0) {
        fakewin::AddViolation("a call outside an apartment");
    }
    fakewin::CountCallOfThread();
    Scripted scripted;
    m_system.m_mutex.unlock(); // a scripted action may wait for another thread that needs the mutex
    const auto result = m_system.m_script.Next(method);
    m_system.m_mutex.lock();
    if (!result) {
        return scripted;
    }
    if (HasBadPointer(*result)) {
        scripted.failure = static_cast<HRESULT>(static_cast<uint32_t>(*result));
        scripted.badPointer = true;
    } else if (*result == nullResult) {
        scripted.null = true;
    } else if (*result >= SizeResult(0)) {
        scripted.size = static_cast<UINT32>(*result);
        scripted.acceptsAnyFormat = *result >= AcceptedFormatResult(0);
    } else if (SUCCEEDED(*result)) {
        scripted.success = static_cast<HRESULT>(*result);
    } else {
        scripted.failure = static_cast<HRESULT>(*result);
    }
    return scripted;
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
    const Scripted scripted = Enter(Method::GetDefaultAudioEndpoint);
    *device = nullptr;
    if (scripted.badPointer) {
        StoreBadPointer(device);
    }
    if (scripted.failure || scripted.null) {
        return scripted.failure.value_or(S_OK);
    }
    const std::wstring &id = flow == eCapture ? m_system.m_defaultMicrophone : m_system.m_defaults[role];
    if (id.empty()) {
        return E_NOTFOUND;
    }
    for (const auto &endpoint : m_system.m_endpoints) {
        if (endpoint->id == id) {
            *device = m_system.Create<FakeDevice>(endpoint, flow);
            return scripted.success;
        }
    }
    return E_NOTFOUND;
}

HRESULT FakeEnumerator::RegisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::RegisterCallback);
    if (scripted.failure) {
        return *scripted.failure;
    }
    if (client == nullptr) {
        return E_POINTER;
    }
    if (m_system.m_rules.addsReference) {
        client->AddRef();
    }
    m_system.m_callbacks.push_back(client);
    return scripted.success;
}

HRESULT FakeEnumerator::UnregisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    std::unique_lock notRunning(m_system.m_notifyMutex, std::defer_lock);
    if (m_system.UnregisterWaits()) {
        notRunning.lock();
    }
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::UnregisterCallback);
    if (scripted.failure && *scripted.failure != E_NOTFOUND) {
        ++m_system.m_failedUnregistrations;
        return *scripted.failure;
    }
    if (std::erase(m_system.m_callbacks, client) == 0) {
        return E_NOTFOUND;
    }
    if (m_system.m_rules.addsReference) {
        client->Release();
    }
    return scripted.failure.value_or(scripted.success);
}

// --- Device ----------------------------------------------------------------------------------

HRESULT FakeDevice::Activate(REFIID iid, DWORD context, PROPVARIANT *parameters, void **object)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::Activate);
    *object = nullptr;
    if (scripted.badPointer) {
        StoreBadPointer(object);
    }
    if (scripted.failure || scripted.null) {
        return scripted.failure.value_or(S_OK);
    }
    if (context != CLSCTX_ALL || parameters != nullptr) {
        return E_INVALIDARG;
    }
    if (IsEqualIID(iid, __uuidof(IAudioEndpointVolume))) {
        *object = static_cast<IAudioEndpointVolume *>(m_system.Create<FakeEndpointVolume>(m_endpoint));
        return scripted.success;
    }
    if (!IsEqualIID(iid, IID_IAudioClient)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IAudioClient *>(m_system.Create<FakeAudioClient>(m_endpoint, m_flow));
    return scripted.success;
}

HRESULT FakeDevice::GetId(LPWSTR *id)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetId);
    *id = nullptr;
    if (scripted.failure || scripted.null) {
        return scripted.failure.value_or(S_OK);
    }
    *id = CopyText(m_endpoint->id);
    return scripted.success;
}

HRESULT FakeDevice::GetState(DWORD *state)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetState);
    if (scripted.failure || scripted.null) {
        return scripted.failure.value_or(S_OK);
    }
    *state = scripted.size.value_or(m_endpoint->state);
    return scripted.success;
}

// --- Client ----------------------------------------------------------------------------------

FakeAudioClient::FakeAudioClient(AudioSystem &system, std::shared_ptr<Endpoint> endpoint, EDataFlow flow)
    : FakeUnknown(system),
      m_endpoint(std::move(endpoint)),
      m_flow(flow),
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

Scripted FakeAudioClient::Enter(Method method)
{
    Scripted scripted = FakeObject::Enter(method);
    if (!scripted.failure) {
        scripted.failure = Invalidated();
    }
    return scripted;
}

HRESULT FakeAudioClient::Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME bufferDuration,
                                    REFERENCE_TIME periodicity, const WAVEFORMATEX *format, LPCGUID session)
{
    const std::lock_guard lock(m_system.m_mutex);
    m_record->mode = mode;
    m_record->flags = flags;
    m_record->bufferDuration = bufferDuration;
    m_record->periodicity = periodicity;
    if (format != nullptr) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(format);
        m_record->format.assign(bytes, bytes + sizeof(WAVEFORMATEX) + format->cbSize);
    }
    m_record->hasSession = session != nullptr;
    const Scripted scripted = Enter(Method::Initialize);
    if (scripted.failure) {
        return *scripted.failure;
    }
    if (m_initialized) {
        return AUDCLNT_E_ALREADY_INITIALIZED;
    }
    const HRESULT stream = CheckStream(m_flow, mode, flags, bufferDuration, periodicity);
    if (stream != S_OK) {
        return stream;
    }
    const HRESULT supported = CheckFormat(format, m_endpoint->mixFormat);
    const bool acceptsAny = m_acceptsAnyFormat || m_endpoint->acceptsAnyFormat;
    if (supported != S_OK && (format == nullptr || !acceptsAny)) {
        return supported;
    }
    m_initialized = true;
    m_frameBytes = format->nBlockAlign;
    m_endpoint->queuedFrames = 0;
    return scripted.success;
}

HRESULT FakeAudioClient::GetBufferSize(UINT32 *frames)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetBufferSize);
    if (scripted.failure) {
        return *scripted.failure;
    }
    if (!m_initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    *frames = scripted.size.value_or(m_endpoint->bufferFrames);
    return scripted.success;
}

HRESULT FakeAudioClient::GetCurrentPadding(UINT32 *frames)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetCurrentPadding);
    Endpoint &endpoint = *m_endpoint;
    if (scripted.failure) {
        *frames = endpoint.paddingOfFailure.value_or(*frames);
        return *scripted.failure;
    }
    if (!m_initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    if (scripted.size) {
        *frames = *scripted.size;
        return scripted.success;
    }
    if (!endpoint.paddingScript.empty()) {
        *frames = endpoint.paddingScript.front();
        endpoint.paddingScript.pop_front();
    } else if (endpoint.drainFrames) {
        const UINT32 played = m_record->starts > m_record->stops ? *endpoint.drainFrames : 0;
        endpoint.queuedFrames -= std::min(endpoint.queuedFrames, played);
        *frames = endpoint.queuedFrames;
    } else {
        *frames = endpoint.constantPadding;
    }
    m_reportedPadding = *frames;
    return scripted.success;
}

HRESULT FakeAudioClient::GetMixFormat(WAVEFORMATEX **format)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetMixFormat);
    *format = nullptr;
    if (scripted.badPointer) {
        StoreBadPointer(format);
    }
    if (scripted.failure || scripted.null) {
        return scripted.failure.value_or(S_OK);
    }
    MixFormat mix = m_endpoint->mixFormat;
    if (scripted.size) {
        mix.channels = mix.bits = static_cast<uint16_t>(*scripted.size);
        mix.rateHz = *scripted.size;
        m_acceptsAnyFormat = scripted.acceptsAnyFormat;
    }
    *format = MakeWaveFormat(mix);
    return scripted.success;
}

HRESULT FakeAudioClient::Start()
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::Start);
    if (scripted.failure) {
        return *scripted.failure;
    }
    if (!m_initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    if (m_record->starts > m_record->stops) {
        return AUDCLNT_E_NOT_STOPPED;
    }
    if ((m_record->flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0 && m_record->event == nullptr) {
        return AUDCLNT_E_EVENTHANDLE_NOT_SET;
    }
    ++m_record->starts;
    return scripted.success;
}

HRESULT FakeAudioClient::Stop()
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::Stop);
    if (scripted.failure) {
        return *scripted.failure;
    }
    ++m_record->stops;
    return scripted.success;
}

HRESULT FakeAudioClient::SetEventHandle(HANDLE event)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::SetEventHandle);
    if (scripted.failure) {
        return *scripted.failure;
    }
    if (!m_initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    if ((m_record->flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) == 0) {
        return AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED;
    }
    if (event == nullptr) {
        return E_INVALIDARG;
    }
    m_record->event = event;
    return scripted.success;
}

HRESULT FakeAudioClient::GetService(REFIID iid, void **service)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::GetService);
    *service = nullptr;
    if (scripted.failure || scripted.null) {
        return scripted.failure.value_or(S_OK);
    }
    if (!m_initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    const bool isLoopback = (m_record->flags & AUDCLNT_STREAMFLAGS_LOOPBACK) != 0;
    if (IsEqualIID(iid, IID_IAudioCaptureClient)) {
        if (m_flow != eCapture && !isLoopback) {
            return wrongEndpointType;
        }
        *service = static_cast<IAudioCaptureClient *>(m_system.Create<FakeCaptureClient>(*this));
        return scripted.success;
    }
    if (!IsEqualIID(iid, IID_IAudioRenderClient)) {
        return E_NOINTERFACE;
    }
    if (m_flow != eRender || isLoopback) {
        return wrongEndpointType;
    }
    *service = static_cast<IAudioRenderClient *>(m_system.Create<FakeRenderClient>(*this));
    return scripted.success;
}

// --- Render client ---------------------------------------------------------------------------

HRESULT FakeRenderClient::GetBuffer(UINT32 frames, BYTE **data)
{
    const std::lock_guard lock(m_system.m_mutex);
    m_system.m_requestedFrames.push_back(frames);
    const Scripted scripted = Enter(Method::GetBuffer);
    *data = nullptr;
    if (scripted.failure) {
        return *scripted.failure;
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
    if (!scripted.null) {
        m_buffer = std::vector<BYTE>(size_t{frames} * m_client.FrameBytes());
        *data = m_buffer.data();
    }
    return scripted.success;
}

HRESULT FakeRenderClient::ReleaseBuffer(UINT32 frames, DWORD flags)
{
    const std::lock_guard lock(m_system.m_mutex);
    const Scripted scripted = Enter(Method::ReleaseBuffer);
    if (scripted.failure) {
        return *scripted.failure;
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
    return scripted.success;
}

void FakeRenderClient::OnLastRelease()
{
    if (m_obtainedFrames) {
        fakewin::AddViolation("a render client was released while a buffer was not released");
    }
}

} // namespace fakes
