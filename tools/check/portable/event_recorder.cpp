#include "check/portable/event_recorder.h"

#include <atomic>
#include <mutex>

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr auto poll = 10ms;
constexpr int pollsForFirst = 50;
constexpr int pollsForMore = 3;

struct Recorded {
    std::mutex mutex; // guards the other fields
    std::vector<RecordedEvent> events;
    bool isCallRunning = false;
};

Recorded &Shared()
{
    static Recorded recorded;
    return recorded;
}

std::atomic<unsigned> secondFieldCalls{0};

void CountSecondField()
{
    ++secondFieldCalls;
}

} // namespace

EventRecorder::EventRecorder(Context &context) : m_context(context)
{
    static AudioListener listener{};
    listener = {OnEvent, SecondField()};
    {
        const std::lock_guard lock(Shared().mutex);
        Shared().events.clear();
    }
    if (context.table.RegisterListener(&listener) != VELTO_OK) {
        context.Skip("the module refuses a listener");
    }
}

EventRecorder::~EventRecorder()
{
    static AudioListener none{nullptr, nullptr};
    m_context.table.RegisterListener(&none);
}

void EventRecorder::Clear()
{
    m_context.environment.Sleep(poll);
    const std::lock_guard lock(Shared().mutex);
    Shared().events.clear();
}

std::vector<RecordedEvent> EventRecorder::WaitForEvents()
{
    for (int polls = 0; polls < pollsForFirst && Events().empty(); ++polls) {
        m_context.environment.Sleep(poll);
    }
    m_context.environment.Sleep(poll * pollsForMore);
    return Events();
}

std::vector<RecordedEvent> EventRecorder::Events() const
{
    const std::lock_guard lock(Shared().mutex);
    return Shared().events;
}

void EventRecorder::OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    const std::lock_guard lock(Shared().mutex);
    Shared().events.push_back({deviceId != nullptr ? std::string(deviceId, idLength) : std::string("null"),
                               idLength, eventCode, std::this_thread::get_id(), Shared().isCallRunning});
}

void *EventRecorder::SecondField()
{
    return reinterpret_cast<void *>(CountSecondField);
}

unsigned EventRecorder::SecondFieldCalls()
{
    return secondFieldCalls;
}

void EventRecorder::BeginCall()
{
    const std::lock_guard lock(Shared().mutex);
    Shared().isCallRunning = true;
}

void EventRecorder::EndCall()
{
    const std::lock_guard lock(Shared().mutex);
    Shared().isCallRunning = false;
}

} // namespace velto::check
