// The volume of an endpoint.
#pragma once

#include <unknwn.h>
#include <windows.h>

inline constexpr IID IID_IAudioEndpointVolume = {
    0x5CDF2C82, 0x841E, 0x4546, {0x97, 0x22, 0x0C, 0xF7, 0x40, 0x78, 0x22, 0x9A}};

struct IAudioEndpointVolumeCallback;

struct IAudioEndpointVolume : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback *callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterControlChangeNotify(IAudioEndpointVolumeCallback *callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelCount(UINT *count) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(FLOAT levelDb, LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(FLOAT level, LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(FLOAT *levelDb) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(FLOAT *level) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT channel, FLOAT levelDb, LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT channel, FLOAT level,
                                                                  LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT channel, FLOAT *levelDb) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT channel, FLOAT *level) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMute(BOOL mute, LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMute(BOOL *mute) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT *step, UINT *stepCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID context) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD *mask) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVolumeRange(FLOAT *minDb, FLOAT *maxDb, FLOAT *incrementDb) = 0;
};
WIN32_UUID(IAudioEndpointVolume, IID_IAudioEndpointVolume)
