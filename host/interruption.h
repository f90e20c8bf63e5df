// Ctrl-C, turned into something that can be waited for. One per process.
#pragma once

#include <windows.h>

namespace velto::host {

class Interruption {
public:
    // From here on the first Ctrl-C or Ctrl-Break only raises the event; a second one ends the
    // process at once.
    Interruption();
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    // As if Ctrl-C had been pressed.
    void Raise() { SetEvent(m_event); }
    bool IsRaised() const { return WaitForSingleObject(m_event, 0) == WAIT_OBJECT_0; }
    HANDLE Event() const { return m_event; }

private:
    HANDLE m_event;
};

} // namespace velto::host
