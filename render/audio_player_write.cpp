// From a converted block into the endpoint buffer.
#include "render/audio_player_was.h"

#include <algorithm>
#include <utility>

#include "handler/log.h"
#include "render/call_log.h"
#include "support/checked_copy.h"

namespace velto {
namespace {

constexpr char playTag[] = "AudioPlayerWas::PlayAudio";
constexpr char writeTag[] = "AudioPlayerWas::AudioWriteToWasClient";

constexpr DWORD bufferWaitMs = 10;
constexpr uint32_t maxFullBufferPasses = 8;

void LogRenderFailure(HRESULT result, int line)
{
    LogError(writeTag, "AudioPlayerWas ", "Rend fail with ", result, ". Just return. Line:", line);
}

} // namespace

void AudioPlayerWas::PlayAudio(const uint8_t *data, int64_t size)
{
    // The buffer size of a released client is kept for the log line, so the render client is checked, too.
    if (CheckDeviceChanged() != 0 || m_device == nullptr || m_bufferFrames == 0 ||
        m_renderClient == nullptr) {
        LogError(playTag, "AudioPlayerWas ", "CheckDeviceChanged failed audioBufferSize=", m_bufferFrames);
        return;
    }
    if (Resample(data, static_cast<uint64_t>(size)) < 0) {
        LogError(playTag, "AudioPlayerWas ", "dstFrames < 0");
        return;
    }
    AudioWriteToWasClient();
}

void AudioPlayerWas::AudioWriteToWasClient()
{
    if (!m_isOpen) {
        return;
    }
    // The block is owned here until it is written: a re-activation in mid-block may allocate a new output
    // buffer. If it does not, this one is used again.
    SampleBuffer block = std::move(m_outputBuffer);
    WriteBlock(block.Samples(), static_cast<uint64_t>(m_outputBytes));
    if (!m_outputBuffer.HasPlanes()) {
        m_outputBuffer = std::move(block);
    }
}

// Writes until the block is in the endpoint buffer, the retries are used up or a call fails. A
// re-activation may change the frame size in mid-block: each pass writes whole frames of the
// current size out of what remains, so it never reads past the block.
void AudioPlayerWas::WriteBlock(const uint8_t *cursor, uint64_t remaining)
{
    uint32_t fullBufferPasses = 0;
    while (cursor != nullptr && remaining != 0 && m_frameBytes != 0 && m_renderClient != nullptr) {
        uint32_t padding = m_bufferFrames;
        if (!QueryPadding(padding)) {
            return;
        }
        // After a re-activation the padding is the old client's and may exceed the new buffer: the unsigned
        // difference then offers more room than the block needs.
        const uint32_t freeFrames = m_bufferFrames - padding;
        if (padding == 0) {
            LogError(writeTag, "AudioPlayerWas ", "padding = 0 ");
        }
        if (freeFrames != 0) {
            // A re-activation in this pass may have failed, or have found a format without a frame size.
            if (m_renderClient == nullptr || m_frameBytes == 0) {
                return;
            }
            const uint64_t bytes = std::min(remaining, uint64_t{m_frameBytes} * freeFrames);
            if (!WriteFrames(cursor, static_cast<uint32_t>(bytes / m_frameBytes))) {
                return;
            }
            cursor += bytes;
            remaining -= bytes;
            if (remaining != 0) {
                WaitForSingleObject(m_bufferEvent, bufferWaitMs);
            }
        } else {
            LogError(writeTag, "AudioPlayerWas ", "audioRetryCount=", fullBufferPasses);
            Sleep(1);
            WaitForSingleObject(m_bufferEvent, bufferWaitMs);
            if (++fullBufferPasses > maxFullBufferPasses) {
                return;
            }
        }
        if (!m_isOpen) {
            return;
        }
    }
}

// Queries the padding, which the caller presets, as a failed query may not write it. Re-activates a
// client that the system has invalidated. False when the rest of the block is to be dropped.
bool AudioPlayerWas::QueryPadding(uint32_t &padding)
{
    const HRESULT result = m_audioClient->GetCurrentPadding(&padding);
    if (result >= 0 && padding <= m_bufferFrames) {
        return true;
    }
    LogError(writeTag, "AudioPlayerWas ", "Unable to get padding with ", result, " padding=", padding);
    if (result != AUDCLNT_E_DEVICE_INVALIDATED) {
        return false;
    }
    OnAudioPropertyValueChanged();
    return true;
}

// Copies `frames` frames into the endpoint buffer. False when the rest of the block is to be
// dropped.
bool AudioPlayerWas::WriteFrames(const uint8_t *cursor, uint32_t frames)
{
    BYTE *buffer = nullptr;
    const auto getBuffer = [&] { return m_renderClient->GetBuffer(frames, &buffer); };
    const auto releaseBuffer = [&] { return m_renderClient->ReleaseBuffer(frames, 0); };
    const auto releaseUnused = [&] { m_renderClient->ReleaseBuffer(0, 0); };

    if (getBuffer() < 0) {
        const HRESULT shown = ResultOfSecondCall(getBuffer, releaseUnused);
        LogRenderFailure(shown, 458);
        if (shown == AUDCLNT_E_OUT_OF_ORDER) {
            releaseUnused(); // an earlier buffer, whose release has failed
        }
        return false;
    }
    const size_t bytes = size_t{m_frameBytes} * frames;
    if (CheckedCopy(buffer, bytes, cursor, bytes) != 0) {
        releaseUnused();
        return false;
    }
    if (releaseBuffer() < 0) {
        LogRenderFailure(ResultOfSecondCall(releaseBuffer), 464);
        return false;
    }
    return true;
}

} // namespace velto
