// A listener that records the module's events.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "check/portable/context.h"

namespace velto::check {

struct RecordedEvent {
    std::string id; // the bytes up to the length
    uint32_t idLength;
    int32_t code;
    std::thread::id thread;
    bool isDuringCall; // came between BeginCall and EndCall
};

// One object at a time, because the callback has no context argument. Its listener record lives until the
// process ends, so that a module that wrongly keeps a pointer to the record fails only the check of this
// rule.
class EventRecorder {
public:
    // Registers with the module; ends the check as skipped if the module refuses.
    explicit EventRecorder(Context &context);
    // Registers a record of null fields.
    ~EventRecorder();
    EventRecorder(const EventRecorder &) = delete;
    EventRecorder &operator=(const EventRecorder &) = delete;

    // Makes a call of the table, on this thread.
    template <typename Call>
    int32_t DuringCall(Call call)
    {
        BeginCall();
        const int32_t result = call();
        EndCall();
        return result;
    }

    // Forgets earlier events, also those that are late.
    void Clear();
    // The events, after a short time in which late ones may come; longer if there is none.
    std::vector<RecordedEvent> WaitForEvents();
    // The events so far.
    std::vector<RecordedEvent> Events() const;

    // The callback, for other records.
    static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode);
    // For the second field, which no module may call.
    static void *SecondField();
    static unsigned SecondFieldCalls();

private:
    void BeginCall();
    void EndCall();

    Context &m_context;
};

} // namespace velto::check
