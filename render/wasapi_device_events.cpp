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
    IAudioPlayer *player = m_player;
    if (PlayerPresent("WasapiDeviceEvents::OnDefaultDeviceChanged", player) && flow == eRender &&
        role == eMultimedia) {
        player->SetDeviceChanged(true);
    }
    return S_OK;
}

HRESULT WasapiDeviceEvents::OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY)
{
    IAudioPlayer *player = m_player;
    if (PlayerPresent("WasapiDeviceEvents::OnPropertyValueChanged", player)) {
        player->SetPropertyChanged(true);
    }
    return S_OK;
}

void WasapiDeviceEvents::Abandon()
{
    m_player = nullptr;
    IMMNotificationClient *self = this;
    KeepModuleMapped((*reinterpret_cast<void ***>(self))[0]); // the first function of the table
}

} // namespace velto
