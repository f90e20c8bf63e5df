// The microphone and the converter.
#include "capture/audio_capture.h"
#include "handler/log.h"
#include "support/com.h"

namespace velto {
namespace {

constexpr char micTag[] = "AudioCapture::GetDefaultMicAudioClient";
constexpr char openTag[] = "AudioCapture::GetLoopBackAudioCapture";
constexpr char swrTag[] = "AudioCapture::InitSwr";
constexpr REFERENCE_TIME bufferDuration100ns = 5000000; // 500 ms

// True when a call succeeded and returned an object. Otherwise logs the call's result.
template <typename Object>
bool Obtained(const char *tag, const char *message, HRESULT result, const Object *object)
{
    if (SUCCEEDED(result) && object != nullptr) {
        return true;
    }
    LogError(tag, message, HresultText(result));
    return false;
}

} // namespace

// Returns the audio client of the default microphone, or null. Both outputs are optional. Callers release the
// client and the device, and leak the mix format, by contract: docs/known-leaks.md.
IAudioClient *AudioCapture::GetDefaultMicAudioClient(WAVEFORMATEX **mixFormat, IMMDevice **device)
{
    IMMDeviceEnumerator *enumerator = nullptr;
    HRESULT result = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                      __uuidof(IMMDeviceEnumerator), reinterpret_cast<void **>(&enumerator));
    if (!Obtained(micTag, "Create IMMDeviceEnumerator failed, err=", result, enumerator)) {
        return nullptr;
    }
    IMMDevice *microphone = nullptr;
    result = enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &microphone);
    SafeRelease(enumerator);
    if (!Obtained(micTag, "GetDefaultAudioEndpoint failed, err=", result, microphone)) {
        return nullptr;
    }
    IAudioClient *client = nullptr;
    result =
        microphone->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, reinterpret_cast<void **>(&client));
    if (!Obtained(micTag, "Activate AudioClient failed, err=", result, client)) {
        SafeRelease(microphone);
        return nullptr;
    }
    if (mixFormat != nullptr) {
        result = client->GetMixFormat(mixFormat);
        if (!Obtained(micTag, "Get audio mix format failed, err=", result, *mixFormat)) {
            *mixFormat = nullptr;
            SafeRelease(client);
        }
    }
    if (client == nullptr || device == nullptr) {
        SafeRelease(microphone);
    } else {
        *device = microphone;
    }
    return client;
}

// Opens the default microphone, not a loopback of the loudspeaker. The function has this name because its log
// lines have it as their tag.
bool AudioCapture::GetLoopBackAudioCapture(IAudioClient *&client, IAudioCaptureClient *&captureClient,
                                           IAudioEndpointVolume *&volume)
{
    client = nullptr;
    captureClient = nullptr;
    WAVEFORMATEX *mixFormat = nullptr;
    IMMDevice *device = nullptr;
    client = GetDefaultMicAudioClient(&mixFormat, &device);
    if (client == nullptr) {
        LogError(openTag, "Get default speaker device failed");
        return false;
    }
    const HRESULT result = device->Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr,
                                            reinterpret_cast<void **>(&volume));
    SafeRelease(device);
    if (Obtained(openTag, "Get IAudioEndpointVolume interface failed! Err=", result, volume) &&
        OpenStream(*mixFormat, *client, captureClient)) {
        return true;
    }
    SafeRelease(client);
    SafeRelease(volume);
    return false;
}

bool AudioCapture::OpenStream(const WAVEFORMATEX &mixFormat, IAudioClient &client,
                              IAudioCaptureClient *&captureClient)
{
    m_captured = {mixFormat.nSamplesPerSec, mixFormat.nChannels,
                  CaptureSampleFormat(mixFormat.wBitsPerSample)};
    if (m_captured.sampleFormat == AV_SAMPLE_FMT_NONE || !InitSwr()) {
        LogError(openTag, "InitSwr failed! Err=", -1);
        return false;
    }
    HRESULT result = client.Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_NOPERSIST,
                                       bufferDuration100ns, 0, &mixFormat, nullptr);
    if (FAILED(result)) {
        LogError(openTag, "Initialize audio client failed, err=", HresultText(result));
        return false;
    }
    result = client.GetService(__uuidof(IAudioCaptureClient), reinterpret_cast<void **>(&captureClient));
    return Obtained(openTag, "Get audio capture service failed, err=", result, captureClient);
}

bool AudioCapture::InitSwr()
{
    if (m_converter.Open(m_captured, m_target)) {
        return true;
    }
    LogError(swrTag, "Failed to initialize the resampling context");
    return false;
}

} // namespace velto
