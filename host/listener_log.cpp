#include "host/listener_log.h"

#include <atomic>

namespace velto::host {
namespace {

std::atomic<ListenerLog *> current{nullptr};

} // namespace

std::string EventName(int32_t code)
{
    switch (code) {
    case VELTO_EVENT_TRACK_CLOSED:
        return "track closed";
    case VELTO_EVENT_PARAMETERS_SET:
        return "parameters set";
    default:
        return "unknown";
    }
}

ListenerLog::ListenerLog(const Module &module, const Output &output, bool show)
    : m_output(output), m_show(show)
{
    current = this;
    const AudioListener listener{OnEvent, nullptr};
    if (module->RegisterListener(&listener) != VELTO_OK) {
        m_output.Complain("the module refused the listener");
    }
}

ListenerLog::~ListenerLog()
{
    current = nullptr;
}

std::vector<ListenerEvent> ListenerLog::Events() const
{
    const std::lock_guard lock(m_mutex);
    return m_events;
}

void ListenerLog::OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    ListenerLog *log = current;
    if (log == nullptr) {
        return;
    }
    const std::lock_guard lock(log->m_mutex);
    log->m_events.push_back({std::string(deviceId, idLength), eventCode});
    if (log->m_show) {
        const ListenerEvent &event = log->m_events.back();
        log->m_output.Say("event {} ({}) for {}", event.code, EventName(event.code), event.device);
    }
}

} // namespace velto::host
