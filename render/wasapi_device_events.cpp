#include "render/wasapi_device_events.h"

#include "handler/log.h"
#include "support/module_reference.h"

namespace velto {
namespace {

bool PlayerPresent(const char *tag, const IAudioPlayer *player)
{
    if (player == nullptr) {
        LogError(tag, "WasapiDeviceEvents ", "playerWas is nullptr");
    }
    return player != nullptr;
}

} // namespace

HRESULT WasapiDeviceEvents::QueryInterface(REFIID iid, void **object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, __uuidof(IMMNotificationClient))) {
        *object = this;
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT WasapiDeviceEvents::OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR)
{
    const std::lock_guard lock(m_mutex);
    if (PlayerPresent("WasapiDeviceEvents::OnDefaultDeviceChanged", m_player) && flow == eRender &&
        role == eMultimedia) {
        m_player->SetDeviceChanged(true);
    }
    return S_OK;
}

HRESULT WasapiDeviceEvents::OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY)
{
    const std::lock_guard lock(m_mutex);
    if (PlayerPresent("WasapiDeviceEvents::OnPropertyValueChanged", m_player)) {
        m_player->SetPropertyChanged(true);
    }
    return S_OK;
}

void WasapiDeviceEvents::Abandon()
{
    {
        const std::lock_guard lock(m_mutex);
        m_player = nullptr;
    }
    static constexpr char inThisModule = 0;
    KeepModuleMapped(&inThisModule);
}

} // namespace velto
