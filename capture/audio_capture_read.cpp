// The host's side: reading packets of the current capture.
#include "capture/audio_capture.h"

#include <cstring>
#include <shared_mutex>

#include "capture/read_wait.h"
#include "handler/log.h"

namespace velto {
namespace {

constexpr char readTag[] = "AudioCapture::GetAudioData";

std::atomic<AudioCapture *> current{nullptr};
// Held shared by each read for as long as it may use the current capture.
std::shared_mutex currentInUse;

} // namespace

void AudioCapture::SetCurrent(AudioCapture *capture)
{
    current = capture;
}

AudioCapture *AudioCapture::Current()
{
    return current;
}

AudioCapture *AudioCapture::TakeCurrent()
{
    return current.exchange(nullptr);
}

void AudioCapture::DeleteTaken(AudioCapture *capture)
{
    {
        const std::unique_lock allReadsEnded(currentInUse);
    }
    delete capture;
}

void AudioCapture::GetAudioData(uint8_t *buffer, uint32_t &size)
{
    const std::shared_lock lock(currentInUse);
    AudioCapture *capture = current;
    if (capture == nullptr) {
        size = 0;
        return;
    }
    capture->Read(buffer, size);
}

void AudioCapture::Read(uint8_t *buffer, uint32_t &size)
{
    if (m_stop) {
        LogError(readTag, "m_bAtomStop is stop");
        return;
    }
    WaitForData(size);
    // Two readers must not count the same packet, and the buffers must not be released meanwhile.
    const std::lock_guard lock(m_readMutex);
    if (m_packets.DataCount() == 0 || buffer == nullptr) {
        size = 0;
        return;
    }
    AVEncodePacket *packet = m_packets.PopData();
    if (packet == nullptr || packet->data == nullptr) {
        return;
    }
    size = packet->size;
    if (size != 0) {
        std::memcpy(buffer, packet->data, size);
    }
    m_packets.PushFree(packet);
}

// Waits once, for a packet or for the end of capture.
void AudioCapture::WaitForData(uint32_t requestedBytes)
{
    std::unique_lock lock(m_dataMutex);
    if (m_packets.DataCount() == 0 && !m_stop) {
        m_dataCondition.wait_until(lock, std::chrono::steady_clock::now() + ReadWait(requestedBytes));
    }
}

} // namespace velto
