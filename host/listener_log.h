// The events that the module sends to its listener, collected. One at a time in the process, as the
// callback carries no context.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "host/module.h"
#include "host/output.h"

namespace velto::host {

struct ListenerEvent {
    std::string device;
    int32_t code = 0; // VELTO_EVENT_...
};

std::string EventName(int32_t code);

class ListenerLog {
public:
    // Registers with the module. `show` prints each event as it comes.
    ListenerLog(const Module &module, const Output &output, bool show);
    // Later events are dropped. The module may be gone, so nothing is called.
    ~ListenerLog();
    ListenerLog(const ListenerLog &) = delete;
    ListenerLog &operator=(const ListenerLog &) = delete;

    std::vector<ListenerEvent> Events() const;

private:
    static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode);

    const Output &m_output;
    const bool m_show;
    mutable std::mutex m_mutex; // guards m_events
    std::vector<ListenerEvent> m_events;
};

} // namespace velto::host
