// Streams on audio endpoints.
#pragma once

#include <mmreg.h>
#include <unknwn.h>
#include <windows.h>

using REFERENCE_TIME = int64_t; // 100 ns

enum AUDCLNT_SHAREMODE { AUDCLNT_SHAREMODE_SHARED, AUDCLNT_SHAREMODE_EXCLUSIVE };

#define AUDCLNT_STREAMFLAGS_LOOPBACK 0x00020000U
#define AUDCLNT_STREAMFLAGS_EVENTCALLBACK 0x00040000U
#define AUDCLNT_STREAMFLAGS_NOPERSIST 0x00080000U

#define AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY 0x1U
#define AUDCLNT_BUFFERFLAGS_SILENT 0x2U

#define AUDCLNT_ERR(code) static_cast<HRESULT>(0x88890000U | (code))
#define AUDCLNT_SUCCESS(code) static_cast<HRESULT>(0x08890000U | (code))
#define AUDCLNT_E_NOT_INITIALIZED AUDCLNT_ERR(0x1U)
#define AUDCLNT_E_ALREADY_INITIALIZED AUDCLNT_ERR(0x2U)
#define AUDCLNT_E_DEVICE_INVALIDATED AUDCLNT_ERR(0x4U)
#define AUDCLNT_E_NOT_STOPPED AUDCLNT_ERR(0x5U)
#define AUDCLNT_E_BUFFER_TOO_LARGE AUDCLNT_ERR(0x6U)
#define AUDCLNT_E_OUT_OF_ORDER AUDCLNT_ERR(0x7U)
#define AUDCLNT_E_UNSUPPORTED_FORMAT AUDCLNT_ERR(0x8U)
#define AUDCLNT_E_INVALID_SIZE AUDCLNT_ERR(0x9U)
#define AUDCLNT_E_DEVICE_IN_USE AUDCLNT_ERR(0xAU)
#define AUDCLNT_E_SERVICE_NOT_RUNNING AUDCLNT_ERR(0x10U)
#define AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED AUDCLNT_ERR(0x11U)
#define AUDCLNT_E_EVENTHANDLE_NOT_SET AUDCLNT_ERR(0x14U)
#define AUDCLNT_E_BUFFER_ERROR AUDCLNT_ERR(0x18U)
#define AUDCLNT_S_BUFFER_EMPTY AUDCLNT_SUCCESS(0x1U)

inline constexpr IID IID_IAudioClient = {
    0x1CB9AD4C, 0xDBFA, 0x4C32, {0xB1, 0x78, 0xC2, 0xF5, 0x68, 0xA7, 0x03, 0xB2}};
inline constexpr IID IID_IAudioRenderClient = {
    0xF294ACFC, 0x3146, 0x4483, {0xA7, 0xBF, 0xAD, 0xDC, 0xA7, 0xC2, 0x60, 0xE2}};
inline constexpr IID IID_IAudioCaptureClient = {
    0xC8ADBD64, 0xE71E, 0x48A0, {0xA4, 0xDE, 0x18, 0x5C, 0x39, 0x5C, 0xD3, 0x17}};

struct IAudioClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags,
                                                 REFERENCE_TIME bufferDuration, REFERENCE_TIME periodicity,
                                                 const WAVEFORMATEX *format, LPCGUID session) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32 *frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME *latency) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32 *frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE mode, const WAVEFORMATEX *format,
                                                        WAVEFORMATEX **closest) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX **format) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME *standard, REFERENCE_TIME *minimum) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start() = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void **service) = 0;
};
WIN32_UUID(IAudioClient, IID_IAudioClient)

struct IAudioRenderClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 frames, BYTE **data) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames, DWORD flags) = 0;
};
WIN32_UUID(IAudioRenderClient, IID_IAudioRenderClient)

struct IAudioCaptureClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags,
                                                UINT64 *devicePosition, UINT64 *counterPosition) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) = 0;
};
WIN32_UUID(IAudioCaptureClient, IID_IAudioCaptureClient)
