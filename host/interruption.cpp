#include "host/interruption.h"

#include <atomic>

namespace velto::host {
namespace {

std::atomic<HANDLE> raised{nullptr};

// Runs on a thread of the system's own.
BOOL WINAPI OnControl(DWORD control)
{
    const HANDLE event = raised;
    if ((control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) || event == nullptr ||
        WaitForSingleObject(event, 0) == WAIT_OBJECT_0) {
        return FALSE;
    }
    SetEvent(event);
    return TRUE;
}

} // namespace

Interruption::Interruption() : m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    raised = m_event;
    // A parent that ignores Ctrl-C hands that down; this program is to be interruptible.
    SetConsoleCtrlHandler(nullptr, FALSE);
    SetConsoleCtrlHandler(OnControl, TRUE);
}

// The event is left open: the handler may be using it on its thread.
Interruption::~Interruption()
{
    SetConsoleCtrlHandler(OnControl, FALSE);
    raised = nullptr;
}

} // namespace velto::host
