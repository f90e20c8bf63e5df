#include <initguid.h> // first, so that the other headers define the interface ids

#include "check/default_devices.h"

#include <windows.h>

#include <mmdeviceapi.h>
#include <wrl/client.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "velto-host/com_apartment.h"
#include "velto-host/windows_text.h"

namespace velto::check {

using Microsoft::WRL::ComPtr;

namespace {

// IAudioMeterInformation, which the headers of MinGW-w64 only name.
struct PeakMeter : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPeakValue(float *peak) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT *count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 count, float *peaks) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD *support) = 0;
};
constexpr IID peakMeterId{0xC02216F6, 0x8C67, 0x4B5B, {0x9D, 0x00, 0xD0, 0x08, 0xE7, 0x3E, 0x00, 0x64}};

} // namespace

// The calling thread's apartment, and the enumerator.
class DefaultDevices::Com {
public:
    Com()
    {
        const HRESULT result = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                                __uuidof(IMMDeviceEnumerator), &enumerator);
        if (FAILED(result)) {
            throw std::runtime_error("cannot create the device enumerator: " +
                                     host::SystemErrorText(static_cast<uint32_t>(result)));
        }
    }

    const host::ComApartment apartment; // first, because the enumerator needs it
    ComPtr<IMMDeviceEnumerator> enumerator;
};

// Registered while it exists. The owner controls its life, so the reference count has no effect: the system
// releases its references when the registration ends.
class DefaultDevices::Client final : public IMMNotificationClient {
public:
    explicit Client(IMMDeviceEnumerator &enumerator) : m_enumerator(enumerator)
    {
        const HRESULT result = enumerator.RegisterEndpointNotificationCallback(this);
        if (FAILED(result)) {
            throw std::runtime_error("cannot register for changes of the default devices: " +
                                     host::SystemErrorText(static_cast<uint32_t>(result)));
        }
    }
    ~Client() { m_enumerator.UnregisterEndpointNotificationCallback(this); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void **object) override
    {
        const bool isKnown = id == __uuidof(IUnknown) || id == __uuidof(IMMNotificationClient);
        *object = isKnown ? static_cast<IMMNotificationClient *>(this) : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR) override
    {
        loudspeakerChanges += flow == eRender && role == eMultimedia ? 1 : 0;
        microphoneChanges += flow == eCapture && role == eConsole ? 1 : 0;
        return S_OK;
    }

    std::atomic<uint32_t> loudspeakerChanges{0};
    std::atomic<uint32_t> microphoneChanges{0};

private:
    IMMDeviceEnumerator &m_enumerator;
};

DefaultDevices::DefaultDevices()
    : m_com(std::make_unique<Com>()), m_client(std::make_unique<Client>(*m_com->enumerator.Get()))
{
}

DefaultDevices::~DefaultDevices() = default;

uint32_t DefaultDevices::LoudspeakerChanges() const
{
    return m_client->loudspeakerChanges;
}

uint32_t DefaultDevices::MicrophoneChanges() const
{
    return m_client->microphoneChanges;
}

std::optional<float> DefaultDevices::LoudspeakerLevel() const
{
    ComPtr<IMMDevice> device;
    ComPtr<PeakMeter> meter;
    float level = 0;
    if (FAILED(m_com->enumerator->GetDefaultAudioEndpoint(eRender, eMultimedia, &device)) ||
        FAILED(device->Activate(peakMeterId, CLSCTX_ALL, nullptr, &meter)) ||
        FAILED(meter->GetPeakValue(&level))) {
        return std::nullopt;
    }
    return level;
}

} // namespace velto::check
