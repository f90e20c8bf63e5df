// The handshake between AudioCapture::Prepare and the threads that it starts.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace velto {

// An event that exists only while Prepare waits. Prepare creates, awaits and closes the event; the init
// thread and the capture thread may set it at any time, also when Prepare no longer waits.
class ReadyEvent {
public:
    ReadyEvent() = default;
    ReadyEvent(const ReadyEvent &) = delete;
    ReadyEvent &operator=(const ReadyEvent &) = delete;

    // False, with the last error set, if no event can be created.
    bool Create();
    // Waits for Set, without a timeout.
    void Await();
    void Close();

    // Ends the wait. Does nothing without an event.
    void Set();
    // Counts a ready thread, then does what Set does.
    void CountAndSet();

private:
    friend class AudioCaptureProbe; // the unit tests' view of the members

    std::mutex m_mutex;                // guards m_event
    HANDLE m_event = nullptr;          // owned; manual reset
    std::atomic<int32_t> m_counter{0}; // contract only: number of ready threads
};

} // namespace velto
