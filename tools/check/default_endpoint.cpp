#include <windows.h>

#include "check/default_endpoint.h"

#include <wrl/client.h>

namespace velto::check {

HRESULT FindDefaultEndpoint(EDataFlow flow, IMMDevice **device)
{
    Microsoft::WRL::ComPtr<IMMDeviceEnumerator> enumerator;
    const HRESULT result = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                            __uuidof(IMMDeviceEnumerator), &enumerator);
    return FAILED(result) ? result : enumerator->GetDefaultAudioEndpoint(flow, eConsole, device);
}

} // namespace velto::check
