#include "render/endpoint_client.h"

#include <algorithm>

#include "render/call_log.h"
#include "support/checked_copy.h"
#include "support/com.h"

namespace velto {
namespace {

constexpr DWORD bufferWaitMs = 10;

// KSDATAFORMAT_SUBTYPE_PCM. ksmedia.h declares it, but not every SDK has a library that defines it.
constexpr GUID pcmSubFormat{0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

void LogWriteFailure(const char *tag, HRESULT result, int line)
{
    LogPlayerError(tag, "Rend fail with ", result, ". Just return. Line:", line);
}

} // namespace

void EndpointClient::CreateBufferEvent()
{
    SafeCloseHandle(m_bufferEvent);
    m_bufferEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
}

bool EndpointClient::Activate(IMMDevice &device, const ActivationLines &lines)
{
    const auto activate = [&] {
        return device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                               reinterpret_cast<void **>(&m_audioClient));
    };
    return CallSucceeded(lines.tag, lines.activate, activate) &&
           PointerPresent(lines.tag, lines.activate, m_audioClient) &&
           CallSucceeded(lines.tag, lines.mixFormat,
                         [this] { return m_audioClient->GetMixFormat(&m_mixFormat); });
}

// Relabels the mix format as PCM: the engine's 32-bit float becomes 32-bit integer, the converter's output.
bool EndpointClient::Initialize(const ActivationLines &lines)
{
    m_frameBytes = m_mixFormat->nBlockAlign;
    if (m_mixFormat->cbSize >= sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX)) {
        reinterpret_cast<WAVEFORMATEXTENSIBLE *>(m_mixFormat)->SubFormat = pcmSubFormat;
    }
    return CallSucceeded(lines.tag, lines.initialize, [this] {
        return m_audioClient->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK,
                                         bufferDuration100ns, 0, m_mixFormat, nullptr);
    });
}

bool EndpointClient::Bind(const ActivationLines &lines)
{
    const auto getService = [this] {
        return m_audioClient->GetService(__uuidof(IAudioRenderClient),
                                         reinterpret_cast<void **>(&m_renderClient));
    };
    return CallSucceeded(lines.tag, lines.eventHandle,
                         [this] { return m_audioClient->SetEventHandle(m_bufferEvent); }) &&
           CallSucceeded(lines.tag, lines.bufferSize,
                         [this] { return m_audioClient->GetBufferSize(&m_bufferFrames); }) &&
           CallSucceeded(lines.tag, lines.service, getService) &&
           PointerPresent(lines.tag, lines.service, m_renderClient);
}

void EndpointClient::Start()
{
    if (m_audioClient != nullptr) {
        m_audioClient->Start();
    }
}

void EndpointClient::Stop()
{
    if (m_audioClient != nullptr) {
        m_audioClient->Stop();
    }
}

void EndpointClient::Release()
{
    SafeRelease(m_audioClient);
    SafeRelease(m_renderClient);
}

void EndpointClient::ReleaseAudioClient()
{
    SafeRelease(m_audioClient);
}

void EndpointClient::FreeMixFormat()
{
    SafeCoTaskMemFree(m_mixFormat);
}

void EndpointClient::CloseBufferEvent()
{
    SafeCloseHandle(m_bufferEvent);
}

bool EndpointClient::IsUsable() const
{
    UINT32 frames = 0;
    return m_audioClient != nullptr && m_audioClient->GetBufferSize(&frames) != AUDCLNT_E_DEVICE_INVALIDATED;
}

uint64_t EndpointClient::Write(const char *tag, const uint8_t *samples, uint64_t bytes, uint32_t freeFrames)
{
    // A re-activation after the padding query may have failed, or found a format without a frame size.
    if (m_renderClient == nullptr || m_frameBytes == 0) {
        return 0;
    }
    const uint64_t done = std::min(bytes, uint64_t{m_frameBytes} * freeFrames);
    return WriteFrames(tag, samples, static_cast<uint32_t>(done / m_frameBytes)) ? done : 0;
}

bool EndpointClient::WriteFrames(const char *tag, const uint8_t *samples, uint32_t frames)
{
    BYTE *buffer = nullptr;
    const auto getBuffer = [&] { return m_renderClient->GetBuffer(frames, &buffer); };
    const auto releaseBuffer = [&] { return m_renderClient->ReleaseBuffer(frames, 0); };
    const auto releaseUnused = [&] { m_renderClient->ReleaseBuffer(0, 0); };

    if (getBuffer() < 0) {
        const HRESULT shown = ResultOfSecondCall(getBuffer, releaseUnused);
        LogWriteFailure(tag, shown, 458);
        if (shown == AUDCLNT_E_OUT_OF_ORDER) {
            releaseUnused(); // releases an earlier buffer whose ReleaseBuffer call failed
        }
        return false;
    }
    const size_t bytes = size_t{m_frameBytes} * frames;
    if (CheckedCopy(buffer, bytes, samples, bytes) != 0) {
        releaseUnused();
        return false;
    }
    if (releaseBuffer() < 0) {
        LogWriteFailure(tag, ResultOfSecondCall(releaseBuffer), 464);
        return false;
    }
    return true;
}

void EndpointClient::WaitForRoom() const
{
    WaitForSingleObject(m_bufferEvent, bufferWaitMs);
}

} // namespace velto
