// Writes decoded blocks into the endpoint buffer.
#include "render/audio_player_was.h"

#include <utility>

#include "render/call_log.h"

namespace velto {
namespace {

constexpr char playTag[] = "AudioPlayerWas::PlayAudio";
constexpr char writeTag[] = "AudioPlayerWas::AudioWriteToWasClient";

constexpr uint32_t maxFullBufferRetries = 8;

} // namespace

void AudioPlayerWas::PlayAudio(const uint8_t *data, int64_t size)
{
    // A released client keeps its buffer size for the log line, so the render client is checked, too.
    if (CheckDeviceChanged() != 0 || m_device == nullptr || m_client.BufferFrames() == 0 ||
        !m_client.HasRenderClient()) {
        LogPlayerError(playTag, "CheckDeviceChanged failed audioBufferSize=", m_client.BufferFrames());
        return;
    }
    ConvertedBlock block = Resample(data, static_cast<uint64_t>(size));
    if (block.frames < 0) {
        LogPlayerError(playTag, "dstFrames < 0");
    } else {
        AudioWriteToWasClient(std::move(block));
    }
}

void AudioPlayerWas::AudioWriteToWasClient(ConvertedBlock block)
{
    if (m_isOpen) {
        WriteBlock(block.samples.Samples(), static_cast<uint64_t>(block.bytes));
    }
    m_converter.Recycle(std::move(block));
}

// Writes until the block is in the endpoint buffer, the retries are used up or a call fails. A re-activation
// may change the frame size in the middle of a block: each pass writes whole frames of the current size and
// at most the remaining bytes, so the loop never reads past the block.
void AudioPlayerWas::WriteBlock(const uint8_t *cursor, uint64_t remaining)
{
    uint32_t fullBufferRetries = 0;
    while (cursor != nullptr && remaining != 0 && m_client.FrameBytes() != 0 && m_client.HasRenderClient()) {
        uint32_t padding = m_client.BufferFrames();
        if (!QueryPadding(padding)) {
            return;
        }
        // After a re-activation, `padding` is still that of the old client and may exceed the new buffer. The
        // unsigned difference is then larger than any block, and GetBuffer refuses the request if it does not
        // fit.
        const uint32_t freeFrames = m_client.BufferFrames() - padding;
        if (padding == 0) {
            LogPlayerError(writeTag, "padding = 0 ");
        }
        if (freeFrames != 0) {
            const uint64_t bytes = m_client.Write(writeTag, cursor, remaining, freeFrames);
            if (bytes == 0) {
                return;
            }
            cursor += bytes;
            remaining -= bytes;
            if (remaining != 0) {
                m_client.WaitForRoom();
            }
        } else {
            LogPlayerError(writeTag, "audioRetryCount=", fullBufferRetries);
            Sleep(1);
            m_client.WaitForRoom();
            if (++fullBufferRetries > maxFullBufferRetries) {
                return;
            }
        }
        if (!m_isOpen) {
            return;
        }
    }
}

// Queries the padding, and re-activates a client that the system has invalidated. The caller presets
// `padding`, because a failed query may leave it unwritten. False when the rest of the block must be dropped.
bool AudioPlayerWas::QueryPadding(uint32_t &padding)
{
    const HRESULT result = m_client.QueryPadding(padding);
    if (result >= 0 && padding <= m_client.BufferFrames()) {
        return true;
    }
    LogPlayerError(writeTag, "Unable to get padding with ", result, " padding=", padding);
    if (result != AUDCLNT_E_DEVICE_INVALIDATED) {
        return false;
    }
    OnAudioPropertyValueChanged();
    return true;
}

} // namespace velto
