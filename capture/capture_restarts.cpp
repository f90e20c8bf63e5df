#include "capture/capture_restarts.h"

#include <utility>

#include "support/module_reference.h"

namespace velto {

// The thread's argument, on the stack of Begin, which waits until the thread has begun.
struct CaptureRestarts::Start {
    CaptureRestarts *restarts;
    bool begun; // guarded by m_mutex
};

CaptureRestarts::CaptureRestarts(std::function<void()> restart) : m_restart(std::move(restart)) {}

std::optional<DWORD> CaptureRestarts::Begin()
{
    std::unique_lock lock(m_mutex);
    if (m_ended) {
        return std::nullopt;
    }
    Start start{this, false};
    const HANDLE thread = StartModuleThread(Thread, &start);
    if (thread == nullptr) {
        return GetLastError();
    }
    CloseHandle(thread);
    ++m_threads;
    m_changed.wait(lock, [&start] { return start.begun; });
    return std::nullopt;
}

void CaptureRestarts::End()
{
    std::unique_lock lock(m_mutex);
    m_ended = true;
    m_changed.wait(lock, [this] { return m_threads == 0; });
}

DWORD WINAPI CaptureRestarts::Thread(void *start)
{
    if (start == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    CaptureRestarts &restarts = *static_cast<Start *>(start)->restarts;
    {
        const std::lock_guard lock(restarts.m_mutex);
        static_cast<Start *>(start)->begun = true;
        restarts.m_changed.notify_all();
    }
    restarts.RunInTurn();
    // Once the mutex is unlocked, End may return and the object may be destroyed.
    const std::lock_guard lock(restarts.m_mutex);
    --restarts.m_threads;
    restarts.m_changed.notify_all();
    return 0;
}

// Serialises restarts for changes in quick succession. Each opens the microphone that is the default when its
// turn comes.
void CaptureRestarts::RunInTurn()
{
    const std::lock_guard turn(m_turn);
    {
        const std::lock_guard lock(m_mutex);
        if (m_ended) {
            return;
        }
    }
    m_restart();
}

} // namespace velto
