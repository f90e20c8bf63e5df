// The listener: which events it gets, when, and on which thread.
#include <algorithm>
#include <array>
#include <atomic>
#include <string>

#include "check/portable/check.h"
#include "check/portable/event_recorder.h"
#include "check/portable/guarded_record.h"
#include "check/portable/id_slots.h"
#include "check/portable/speaker_calls.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr auto timeForLateEvents = 200ms;
constexpr std::array<std::string_view, 6> ids{
    VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER, VELTO_ID_MIC, VELTO_ID_MODEM_MIC, "Speaker1", "another device"};

// A call that sends an event.
struct EventCall {
    std::string_view name;
    int32_t code;
    std::string_view clause; // requires the event
    int32_t (*call)(const AudioHandlerTable &table, std::string_view id);
};

int32_t SetParameters(const AudioHandlerTable &table, std::string_view id)
{
    return table.SetAudioParameter(id.data(), static_cast<uint32_t>(id.size()), nullptr, nullptr,
                                   &UsualParameters());
}

constexpr std::array eventCalls{
    EventCall{"SetAudioParameter", VELTO_EVENT_PARAMETERS_SET, "PAR-7", SetParameters},
    EventCall{"CloseAudioTrack", VELTO_EVENT_TRACK_CLOSED, "SPK-10", CloseTrack},
};

int32_t Register(Context &context, const AudioListener *listener)
{
    return context.table.RegisterListener(listener);
}

// ---- Events

// An accepted call.
void ExpectEvent(Context &context, const EventCall &call, std::string_view id,
                 const std::vector<RecordedEvent> &events)
{
    if (events.empty()) {
        context.Expect(false, call.clause, fmt::format("{} of \"{}\" sent no event", call.name, id));
        return;
    }
    context.ExpectEqual(events.size(), size_t{1}, "LSN-6", "number of events of {} of \"{}\"", call.name, id);
    context.ExpectEqual(events.front().code, call.code, call.clause, "event of {} of \"{}\"", call.name, id);
    context.ExpectEqual(events.front().id, std::string(id), "LSN-7", "id in the event of {}", call.name);
    context.ExpectEqual(events.front().idLength, static_cast<uint32_t>(id.size()), "LSN-7",
                        "length of the id in the event of {} of \"{}\"", call.name, id);
}

void CheckEvents(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    for (const EventCall &call : eventCalls) {
        for (const std::string_view id : ids) {
            recorder.Clear();
            context.Step(fmt::format("{} of \"{}\" with a listener", call.name, id), {"LSN-7"});
            if (call.call(context.table, id) == VELTO_OK) {
                ExpectEvent(context, call, id, recorder.WaitForEvents());
            }
        }
    }
}

void ExpectNoEvent(Context &context, EventRecorder &recorder, std::string_view what)
{
    context.environment.Sleep(timeForLateEvents);
    const auto events = recorder.Events();
    context.Expect(events.empty(), "LSN-6",
                   fmt::format("{} sent event {}", what, events.empty() ? 0 : events.front().code));
    recorder.Clear();
}

// Without the calls that send an event.
void CheckOtherCalls(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    recorder.Clear();
    context.Step("calls that send no event", {"THR-3"});
    for (const IdSlot &slot : IdSlots()) {
        if (slot.name == "SetAudioParameter" || slot.name == "CloseAudioTrack") {
            continue;
        }
        slot.call(context.table, slot.deviceId.data(), static_cast<uint32_t>(slot.deviceId.size()));
        ExpectNoEvent(context, recorder, slot.name);
    }
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    if (context.table.GetAudioCapability(&list, &count) == VELTO_OK) {
        context.table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
    }
    context.table.NoOperation1();
    ExpectNoEvent(context, recorder, "GetAudioCapability, Release or an empty slot");
}

// A module that accepts them against their clauses sends events; the checks of the results report it.
void CheckRefusedCalls(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    recorder.Clear();
    context.Step("refused calls", {"LSN-6"});
    const AudioProfileList empty{0, 0, nullptr};
    const AudioHandlerTable &table = context.table;
    if (table.SetAudioParameter(VELTO_ID_SPEAKER, 7, nullptr, nullptr, &UsualParameters()) != VELTO_OK) {
        ExpectNoEvent(context, recorder, "SetAudioParameter with a wrong length of the id");
    }
    recorder.Clear();
    if (table.SetAudioParameter(VELTO_ID_SPEAKER, 8, nullptr, nullptr, &empty) != VELTO_OK) {
        ExpectNoEvent(context, recorder, "SetAudioParameter with an empty list");
    }
    recorder.Clear();
    if (table.CloseAudioTrack(VELTO_ID_SPEAKER, 9) != VELTO_OK) {
        ExpectNoEvent(context, recorder, "CloseAudioTrack with a wrong length of the id");
    }
}

// ---- Threads and locks

void CheckThread(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    for (const EventCall &call : eventCalls) {
        recorder.Clear();
        context.Step(fmt::format("{} with a listener", call.name), {"LSN-2"});
        recorder.DuringCall([&] { return call.call(context.table, VELTO_ID_SPEAKER); });
        for (const RecordedEvent &event : recorder.WaitForEvents()) {
            context.Expect(event.thread == std::this_thread::get_id(), "LSN-2",
                           fmt::format("{} sent event {} on another thread", call.name, event.code));
            context.Expect(event.isDuringCall, "LSN-2",
                           fmt::format("{} sent event {} after its return", call.name, event.code));
        }
    }
}

const AudioHandlerTable *tableOfCallback = nullptr;
std::atomic<int> depthOfCallback{0};

// Calls all slots except RegisterListener and those of the microphone, on any thread.
void CallTableInCallback(const char *, uint32_t, int32_t)
{
    if (depthOfCallback.exchange(1) != 0) {
        return; // an event of the calls below
    }
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    if (tableOfCallback->GetAudioCapability(&list, &count) == VELTO_OK) {
        tableOfCallback->Release(VELTO_RELEASE_CAPABILITIES, list, count);
    }
    for (const std::string_view id : {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}) {
        SetParameters(*tableOfCallback, id);
        WriteSilence(*tableOfCallback, id);
        CloseTrack(*tableOfCallback, id);
    }
    depthOfCallback = 0;
}

void CheckCallsInCallback(Context &context)
{
    CallAllAsUsual(context);
    static AudioListener listener{CallTableInCallback, EventRecorder::SecondField()};
    static AudioListener none{nullptr, nullptr};
    tableOfCallback = &context.table;
    Register(context, &listener);
    for (const EventCall &call : eventCalls) {
        context.Step(fmt::format("{} with a callback that calls the table", call.name), {"LSN-2"});
        call.call(context.table, VELTO_ID_SPEAKER);
    }
    context.environment.Sleep(timeForLateEvents);
    Register(context, &none);
}

// ---- Registration

void CheckRegistration(Context &context)
{
    static AudioListener listener{EventRecorder::OnEvent, EventRecorder::SecondField()};
    context.Step("RegisterListener", {"LSN-1"});
    context.ExpectEqual(Register(context, &listener), int32_t{VELTO_OK}, "LSN-1",
                        "RegisterListener returned");
    EventRecorder recorder(context);
    context.Step("CloseAudioTrack with a listener", {"THR-3"});
    CloseTrack(context.table, VELTO_ID_SPEAKER);
    if (recorder.WaitForEvents().empty()) {
        return; // another check reports missing events
    }
    recorder.Clear();
    context.Step("RegisterListener with a null record", {"LSN-1"});
    context.ExpectEqual(Register(context, nullptr), int32_t{VELTO_ERROR_INVALID}, "LSN-1",
                        "RegisterListener with a null record returned");
    CloseTrack(context.table, VELTO_ID_SPEAKER);
    context.Expect(!recorder.WaitForEvents().empty(), "LSN-1",
                   "RegisterListener with a null record removed the listener");
}

std::atomic<int> eventsOfOther{0};

void CountOther(const char *, uint32_t, int32_t)
{
    ++eventsOfOther;
}

// Changes the record after it was registered, and then makes it inaccessible.
void CheckCopiedRecord(Context &context)
{
    CallAllAsUsual(context);
    eventsOfOther = 0;
    EventRecorder recorder(context);
    const GuardedRecord<AudioListener> record(context.environment,
                                              {EventRecorder::OnEvent, EventRecorder::SecondField()});
    Register(context, record.Get());
    record->AudioStateCallback = CountOther;
    context.Step("CloseAudioTrack after a change of the record", {"LSN-1"});
    CloseTrack(context.table, VELTO_ID_SPEAKER);
    recorder.WaitForEvents();
    context.Require(eventsOfOther == 0, "LSN-1", "the module uses the host's listener record after the call");
    record.Memory().AllowAccess(false);
    context.Step("CloseAudioTrack after the record became inaccessible", {"LSN-1"});
    CloseTrack(context.table, VELTO_ID_SPEAKER);
    recorder.WaitForEvents();
}

void CheckSecondField(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    const unsigned callsBefore = EventRecorder::SecondFieldCalls();
    context.Step("calls with a listener that has a second field", {"LSN-3"});
    for (const IdSlot &slot : IdSlots()) {
        slot.call(context.table, slot.deviceId.data(), static_cast<uint32_t>(slot.deviceId.size()));
    }
    recorder.WaitForEvents();
    context.Require(EventRecorder::SecondFieldCalls() == callsBefore, "LSN-3",
                    "the module called the listener's second field");
    const auto memory = context.environment.Guarded(1);
    memory->AllowAccess(false);
    static AudioListener listener{};
    listener = {EventRecorder::OnEvent, memory->Data()};
    Register(context, &listener);
    context.Step("calls with a listener whose second field is no function", {"LSN-3"});
    for (const EventCall &call : eventCalls) {
        call.call(context.table, VELTO_ID_SPEAKER);
    }
    recorder.WaitForEvents();
}

void CheckReplacedListener(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    static AudioListener other{CountOther, EventRecorder::SecondField()};
    static AudioListener none{nullptr, nullptr};
    static AudioListener withoutCallback{nullptr, EventRecorder::SecondField()};
    recorder.Clear();
    context.Step("CloseAudioTrack with another listener", {"LSN-8"});
    Register(context, &other);
    CloseTrack(context.table, VELTO_ID_SPEAKER);
    context.environment.Sleep(timeForLateEvents);
    context.Expect(recorder.Events().empty(), "LSN-8", "a replaced listener got an event");
    std::array<int32_t, eventCalls.size()> usual;
    std::ranges::transform(eventCalls, usual.begin(), [&context](const EventCall &call) {
        return call.call(context.table, VELTO_ID_SPEAKER);
    });
    context.environment.Sleep(timeForLateEvents);
    for (const AudioListener *empty : {&none, &withoutCallback}) {
        recorder.Clear();
        eventsOfOther = 0;
        Register(context, empty);
        context.Step("calls without a listener", {"LSN-8"});
        for (size_t index = 0; index < eventCalls.size(); ++index) {
            context.ExpectEqual(eventCalls[index].call(context.table, VELTO_ID_SPEAKER), usual[index],
                                "LSN-8", "{} without a listener returned", eventCalls[index].name);
        }
        context.environment.Sleep(timeForLateEvents);
        context.Expect(recorder.Events().empty() && eventsOfOther == 0, "LSN-8",
                       "a listener got an event after it was replaced by a record without a callback");
    }
}

} // namespace

std::span<const Check> ListenerChecks()
{
    static const std::array checks{
        Check{"listener.registration", 4, {"LSN-1", "THR-3"}, 30s, CheckRegistration},
        Check{"listener.events", 4, {"LSN-6", "LSN-7", "PAR-7", "SPK-10", "THR-3"}, 60s, CheckEvents},
        Check{"listener.other-calls", 4, {"LSN-6", "THR-3"}, 30s, CheckOtherCalls},
        Check{"listener.refused-calls", 4, {"LSN-6", "THR-3"}, 30s, CheckRefusedCalls},
        Check{"listener.thread", 4, {"LSN-2", "THR-3"}, 30s, CheckThread},
        Check{"listener.calls-in-callback", 4, {"LSN-2", "THR-3"}, 30s, CheckCallsInCallback},
        Check{"listener.copied-record", 4, {"LSN-1", "THR-3"}, 30s, CheckCopiedRecord},
        Check{"listener.second-field", 4, {"LSN-3", "THR-3"}, 30s, CheckSecondField},
        Check{"listener.replaced", 4, {"LSN-8", "THR-3"}, 30s, CheckReplacedListener},
    };
    return checks;
}

} // namespace velto::check
