// Runs the restarts of a capture. Each restart has its own thread, so that the system's notification thread
// need not wait for it.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>

namespace velto {

// Any thread may call any operation, but a restart must not call End. End has to return before the object is
// destroyed.
class CaptureRestarts {
public:
    // `restart` runs on restart threads, one at a time.
    explicit CaptureRestarts(std::function<void()> restart);
    CaptureRestarts(const CaptureRestarts &) = delete;
    CaptureRestarts &operator=(const CaptureRestarts &) = delete;

    // Starts a restart thread and waits only until it has begun. Returns Windows' error code if no thread can
    // be created. Does nothing after End.
    std::optional<DWORD> Begin();
    // Prevents further restarts and waits for the restart threads that have begun.
    void End();

private:
    friend class AudioCaptureProbe; // the unit tests' view of the members

    struct Start;
    static DWORD WINAPI Thread(void *start);
    void RunInTurn();

    const std::function<void()> m_restart;
    std::mutex m_turn; // locked by the running restart
    std::mutex m_mutex;
    std::condition_variable m_changed; // a restart thread began or finished
    int m_threads = 0;                 // started and not finished; guarded by m_mutex
    bool m_ended = false;              // End was called; guarded by m_mutex
};

} // namespace velto
