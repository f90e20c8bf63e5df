// IAudioEndpointVolume with stubs for what the module does not call.
#pragma once

#include <windows.h>
#include <endpointvolume.h>

namespace fakes {

// Implements all methods but GetMute and those of IUnknown, which `Base` implements.
template <typename Base>
class EndpointVolumeStubs : public Base {
public:
    using Base::Base;

    HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE UnregisterControlChangeNotify(IAudioEndpointVolumeCallback *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetChannelCount(UINT *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(FLOAT, LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(FLOAT, LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(FLOAT *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(FLOAT *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT, FLOAT, LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT, FLOAT, LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT, FLOAT *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT, FLOAT *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMute(BOOL, LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT *, UINT *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetVolumeRange(FLOAT *, FLOAT *, FLOAT *) override { return E_NOTIMPL; }
};

} // namespace fakes
