// The microphone and the converter.
#include "capture/audio_capture.h"
#include "capture/capture_format.h"
#include "capture/hresult_text.h"
#include "handler/log.h"
#include "support/com.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace velto {
namespace {

constexpr char micTag[] = "AudioCapture::GetDefaultMicAudioClient";
constexpr char openTag[] = "AudioCapture::GetLoopBackAudioCapture";
constexpr char swrTag[] = "AudioCapture::InitSwr";
constexpr REFERENCE_TIME bufferDuration100ns = 5000000; // 500 ms

// True when a call succeeded and gave an object; logs it otherwise.
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
            SafeRelease(microphone);
            return nullptr;
        }
    }
    if (device != nullptr) {
        *device = microphone;
    } else {
        SafeRelease(microphone);
    }
    return client;
}

// Opens the default microphone, not a loopback of the speaker: the name is part of the log contract
// of this version, which has it as a tag.
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
    volume = nullptr;
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
    m_captureSampleRateHz = mixFormat.nSamplesPerSec;
    m_captureChannels = mixFormat.nChannels;
    m_sampleFormat = CaptureSampleFormat(mixFormat.wBitsPerSample);
    if (m_sampleFormat == AV_SAMPLE_FMT_NONE || !InitSwr()) {
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
    AVChannelLayout output{};
    AVChannelLayout input{};
    av_channel_layout_default(&output, static_cast<int>(m_targetChannels));
    av_channel_layout_default(&input, static_cast<int>(m_captureChannels));
    const auto format = static_cast<AVSampleFormat>(m_sampleFormat);
    swr_free(&m_resampler);
    const bool ready =
        swr_alloc_set_opts2(&m_resampler, &output, format, static_cast<int>(m_targetSampleRateHz), &input,
                            format, static_cast<int>(m_captureSampleRateHz), 0, nullptr) >= 0 &&
        swr_init(m_resampler) >= 0;
    av_channel_layout_uninit(&output);
    av_channel_layout_uninit(&input);
    if (!ready) {
        LogError(swrTag, "Failed to initialize the resampling context");
    }
    return ready;
}

} // namespace velto
