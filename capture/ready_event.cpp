#include "capture/ready_event.h"

#include "support/com.h"
#include "support/module_reference.h"

namespace velto {

bool ReadyEvent::Create()
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) {
        return false;
    }
    const std::lock_guard lock(m_mutex);
    m_event = event;
    m_counter = 0;
    return true;
}

void ReadyEvent::Await()
{
    AwaitSignal(m_event); // without the lock: only the thread in Prepare changes the handle
}

void ReadyEvent::Close()
{
    const std::lock_guard lock(m_mutex);
    SafeCloseHandle(m_event);
}

void ReadyEvent::Set()
{
    const std::lock_guard lock(m_mutex);
    if (m_event != nullptr) {
        SetEvent(m_event);
    }
}

void ReadyEvent::CountAndSet()
{
    ++m_counter;
    Set();
}

} // namespace velto
