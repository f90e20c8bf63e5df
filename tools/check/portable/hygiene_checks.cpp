// The state of the caller's thread and process: no call changes it.
#include <array>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "check/portable/check.h"
#include "check/portable/com_apartments.h"
#include "check/portable/id_slots.h"
#include "check/portable/state_guard.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr auto unitTime = 21ms;
constexpr int unitsToPlay = 50; // about a second

struct Call {
    std::string_view what;
    std::function<void()> make;
};

// Each slot at least once with accepted and once with refused arguments, in an order that a host may use.
class Calls {
public:
    explicit Calls(const AudioHandlerTable &table) : m_table(table) {}

    std::vector<Call> All()
    {
        std::vector<Call> calls = WithoutDevice();
        for (const std::vector<Call> &more : {OfSpeaker(), OfMicrophone()}) {
            calls.insert(calls.end(), more.begin(), more.end());
        }
        return calls;
    }

private:
    std::vector<Call> WithoutDevice()
    {
        return {{"NoOperation1", [this] { m_table.NoOperation1(); }},
                {"NoOperation10", [this] { m_table.NoOperation10(); }},
                {"GetAudioCapability", [this] { m_table.GetAudioCapability(&m_list, &m_count); }},
                {"a refused GetAudioCapability", [this] { m_table.GetAudioCapability(nullptr, nullptr); }},
                {"Release of another type", [this] { m_table.Release(2, m_list, m_count); }},
                {"Release", [this] { m_table.Release(VELTO_RELEASE_CAPABILITIES, m_list, m_count); }},
                {"Release of nothing", [this] { m_table.Release(VELTO_RELEASE_CAPABILITIES, nullptr, 0); }},
                {"RegisterListener", [this] { RegisterUsualListener(m_table); }},
                {"a refused RegisterListener", [this] { m_table.RegisterListener(nullptr); }}};
    }

    std::vector<Call> OfSpeaker()
    {
        return {{"the first WriteStreamBuffer", [this] { WriteSilence(m_table, VELTO_ID_SPEAKER); }},
                {"WriteStreamBuffer", [this] { WriteSilence(m_table, VELTO_ID_SPEAKER); }},
                {"WriteStreamBuffer of the call speaker",
                 [this] { WriteSilence(m_table, VELTO_ID_MODEM_SPEAKER); }},
                {"WriteStreamBuffer for no speaker", [this] { WriteSilence(m_table, VELTO_ID_MIC); }},
                {"a refused WriteStreamBuffer",
                 [this] { m_table.WriteStreamBuffer(VELTO_ID_SPEAKER, 8, nullptr, nullptr); }},
                {"SetAudioParameter",
                 [this] { m_table.SetAudioParameter(VELTO_ID_SPEAKER, 8, nullptr, nullptr, &m_parameters); }},
                {"a refused SetAudioParameter",
                 [this] { m_table.SetAudioParameter(VELTO_ID_SPEAKER, 8, nullptr, nullptr, nullptr); }},
                {"CloseAudioTrack", [this] { m_table.CloseAudioTrack(VELTO_ID_SPEAKER, 8); }},
                {"a refused CloseAudioTrack", [this] { m_table.CloseAudioTrack(VELTO_ID_SPEAKER, 0); }}};
    }

    std::vector<Call> OfMicrophone()
    {
        return {
            {"ReadStreamBuffer without a recording", [this] { Read(); }},
            {"OpenAudioRecord",
             [this] { m_table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, &m_parameters); }},
            {"ReadStreamBuffer", [this] { Read(); }},
            {"a second ReadStreamBuffer", [this] { Read(); }},
            {"a refused ReadStreamBuffer",
             [this] { m_table.ReadStreamBuffer(VELTO_ID_MIC, 4, nullptr, nullptr); }},
            {"CloseAudioRecord", [this] { m_table.CloseAudioRecord(VELTO_ID_MIC, 4); }},
            {"CloseAudioRecord without a recording", [this] { m_table.CloseAudioRecord(VELTO_ID_MIC, 4); }},
            {"a refused OpenAudioRecord",
             [this] { m_table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, nullptr); }},
            {"a refused CloseAudioRecord", [this] { m_table.CloseAudioRecord(VELTO_ID_MIC, 0); }}};
    }

    void Read()
    {
        m_header = {0, VELTO_READ_SIZE, 0};
        m_table.ReadStreamBuffer(VELTO_ID_MIC, 4, nullptr, &m_frame);
    }

    const AudioHandlerTable &m_table;
    // Made before the calls: the first use of a static object may change the thread's last error.
    const AudioProfileList &m_parameters = UsualParameters();
    AudioCapabilityItem *m_list = nullptr;
    uint32_t m_count = 0;
    std::array<uint8_t, VELTO_READ_SIZE> m_buffer{};
    StreamFrameHeader m_header{};
    StreamFrame m_frame{m_buffer.data(), {}, &m_header};
};

void MakeEachCall(Context &context, std::string_view where)
{
    Calls calls(context.table);
    const auto state = context.environment.MakeCallerState();
    for (const Call &call : calls.All()) {
        const std::string what = fmt::format("{} {}", call.what, where);
        context.Step(what, {"THR-3"});
        ExpectStateKept(context, *state, what, call.make);
    }
    context.Step("the entry", {"THR-3"});
    // With space around the second one, for an entry that writes too much.
    std::array<AudioHandlerTable, 3> tables{};
    ExpectStateKept(context, *state, fmt::format("the entry {}", where), [&] { context.entry(&tables[1]); });
}

void CheckWithoutCom(Context &context)
{
    std::thread([&context] { MakeEachCall(context, "on a thread without COM"); }).join();
}

// A call that enters the caller's apartment once more, and does not leave it, shows when the caller leaves.
void MakeEachCallInApartment(Context &context, ComApartments &apartments, ComApartment apartment,
                             std::string_view where)
{
    const auto state = context.environment.MakeCallerState();
    const std::vector<StateValue> before = state->Read();
    if (!apartments.Enter(apartment)) {
        context.Warn(fmt::format("no thread {} could be made", where));
        return;
    }
    MakeEachCall(context, where);
    apartments.Leave();
    ExpectSameState(context, fmt::format("all calls {}, which has left its apartment", where), before,
                    state->Read(), 1);
}

void CheckInApartment(Context &context, ComApartment apartment, std::string_view where)
{
    auto *apartments = dynamic_cast<ComApartments *>(&context.environment);
    if (apartments == nullptr) {
        context.Skip("this system has no COM");
    }
    std::thread([&] { MakeEachCallInApartment(context, *apartments, apartment, where); }).join();
}

void CheckInSingleThreadedApartment(Context &context)
{
    CheckInApartment(context, ComApartment::SINGLE_THREADED, "on a thread in a single-threaded apartment");
}

void CheckInMultiThreadedApartment(Context &context)
{
    CheckInApartment(context, ComApartment::MULTI_THREADED, "on a thread in the multi-threaded apartment");
}

// The module's own threads run meanwhile. Without the last error, which the waits may change.
void CheckWhileStreaming(Context &context)
{
    const auto state = context.environment.MakeCallerState();
    state->MakeUnusual();
    const std::vector<StateValue> before = state->Read();
    context.Step("a second of playing and recording", {"THR-3"});
    context.table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, &UsualParameters());
    for (int unit = 0; unit < unitsToPlay; ++unit) {
        WriteSilence(context.table, VELTO_ID_SPEAKER);
        WriteSilence(context.table, VELTO_ID_MODEM_SPEAKER);
        context.environment.Sleep(unitTime);
    }
    const std::vector<StateValue> during = state->Read();
    context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
    const std::vector<StateValue> after = state->Read();
    state->Restore();
    ExpectSameState(context, "a second of playing and recording", before, during, 1);
    ExpectSameState(context, "a closed recording", before, after, 1);
}

Check CheckOfState(std::string_view name, std::chrono::seconds timeLimit, void (*run)(Context &))
{
    auto clauses = StateClauses();
    clauses.emplace_back("THR-3");
    return {name, 4, clauses, timeLimit, run};
}

} // namespace

std::span<const Check> HygieneChecks()
{
    static const std::array checks{
        CheckOfState("hygiene.without-com", 60s, CheckWithoutCom),
        CheckOfState("hygiene.single-threaded-apartment", 60s, CheckInSingleThreadedApartment),
        CheckOfState("hygiene.multi-threaded-apartment", 60s, CheckInMultiThreadedApartment),
        CheckOfState("hygiene.while-streaming", 60s, CheckWhileStreaming),
    };
    return checks;
}

} // namespace velto::check
