// The host's reads, and the current capture that they read.
#include "capture/audio_capture.h"

#include <shared_mutex>

#include "handler/log.h"

namespace velto {
namespace {

constexpr char readTag[] = "AudioCapture::GetAudioData";

std::atomic<AudioCapture *> current{nullptr};
// A read locks this mutex shared while it uses the current capture.
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
    m_reader.Copy(buffer, size);
}

// Waits once, for a packet or for the end of the capture.
void AudioCapture::WaitForData(uint32_t requestedBytes)
{
    m_reader.Wait(ReadWait(requestedBytes), m_stop);
}

} // namespace velto
