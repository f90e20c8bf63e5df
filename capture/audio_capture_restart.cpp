// Following the default microphone.
#include "capture/audio_capture.h"
#include "handler/log.h"
#include "support/module_reference.h"

namespace velto {
namespace {

constexpr char changedTag[] = "AudioCapture::OnAudioStateChanged";

} // namespace

// On the notifying thread's stack until the restart thread has begun.
struct AudioCapture::RestartStart {
    AudioCapture *capture;
    bool begun; // guarded by m_restartMutex
};

// Called by the system's notification service, which waits only for the thread to begin.
void AudioCapture::OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR)
{
    if (flow != eCapture || role != eConsole) {
        return;
    }
    LogError(changedTag, "OnAudioStateChanged");
    std::unique_lock lock(m_restartMutex);
    if (m_restartsOver) {
        return;
    }
    RestartStart start{this, false};
    const HANDLE thread = StartModuleThread(RestartThread, &start);
    if (thread == nullptr) {
        LogError(changedTag, "Create restart thread failed, err=", GetLastError());
        return;
    }
    CloseHandle(thread);
    ++m_restarts;
    m_restartsChanged.wait(lock, [&start] { return start.begun; });
}

DWORD WINAPI AudioCapture::RestartThread(void *start)
{
    if (start == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    AudioCapture &capture = *static_cast<RestartStart *>(start)->capture;
    {
        const std::lock_guard lock(capture.m_restartMutex);
        static_cast<RestartStart *>(start)->begun = true;
        capture.m_restartsChanged.notify_all();
    }
    capture.Restart();
    // The object may go as soon as the mutex is free.
    const std::lock_guard lock(capture.m_restartMutex);
    --capture.m_restarts;
    capture.m_restartsChanged.notify_all();
    return 0;
}

// Changes in quick succession take turns; each leaves a capture that runs on the microphone which
// is the default then.
void AudioCapture::Restart()
{
    const std::lock_guard turn(m_restartTurn);
    {
        const std::lock_guard lock(m_restartMutex);
        if (m_restartsOver) {
            return;
        }
    }
    Stop();
    WaitInitThread();
    Prepare();
    Start();
}

void AudioCapture::EndRestarts()
{
    std::unique_lock lock(m_restartMutex);
    m_restartsOver = true;
    m_restartsChanged.wait(lock, [this] { return m_restarts == 0; });
}

} // namespace velto
