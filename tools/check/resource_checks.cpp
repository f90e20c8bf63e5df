#include "check/resource_checks.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "check/module_use.h"
#include "check/portable/process_check_list.h"
#include "velto-host/process_usage.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using host::MeasureUsage;
using host::ProcessUsage;

// Handles and threads that other parts of the process may add meanwhile, for example a thread of the system's
// pool.
constexpr int64_t spareHandles = 12;
constexpr int64_t spareThreads = 3;
// Growth of heaps that is no leak: they grow in blocks, and log buffers and caches fill once.
constexpr int64_t spareBytes = int64_t{384} * 1024;
constexpr int mostRounds = 3;

// What repeated calls may lose.
struct Allowance {
    double handlesPerCall = 0;
    double bytesPerCall = 0;
};

// A kind of call that is repeated.
struct Repetition {
    std::string name; // "list and release"
    std::string_view clause;
    uint32_t calls; // that are measured, after a tenth of them that is not
    Allowance allowance;
    std::function<void()> call;
};

// What the calls of a round added to the process.
struct Growth {
    int64_t handles = 0;
    int64_t threads = 0;
    int64_t bytes = 0;
};

bool HasBoundedHandles(const Repetition &kind, const Growth &growth)
{
    return double(growth.handles) <= spareHandles + kind.allowance.handlesPerCall * kind.calls;
}

bool HasBoundedThreads(const Growth &growth)
{
    return growth.threads <= spareThreads;
}

bool HasBoundedMemory(const Repetition &kind, const Growth &growth)
{
    return double(growth.bytes) <= double(spareBytes) + kind.allowance.bytesPerCall * kind.calls;
}

void ExpectBounded(Context &context, const Repetition &kind, const Growth &growth)
{
    const double calls = kind.calls;
    context.Measured(kind.name + ": handles", double(growth.handles) / calls, "per call");
    context.Measured(kind.name + ": memory", double(growth.bytes) / calls, "bytes per call");
    context.Expect(HasBoundedHandles(kind, growth), "RES-1",
                   fmt::format("{} handles more after {} calls: {}", growth.handles, kind.calls, kind.name));
    context.Expect(HasBoundedThreads(growth), "RES-1",
                   fmt::format("{} threads more after {} calls: {}", growth.threads, kind.calls, kind.name));
    context.Expect(
        HasBoundedMemory(kind, growth), kind.clause,
        fmt::format("{} bytes of memory more after {} calls: {}", growth.bytes, kind.calls, kind.name));
}

Growth GrowthDuring(const Repetition &kind, uint32_t calls)
{
    const auto difference = [](uint64_t before, uint64_t after) {
        return static_cast<int64_t>(after) - static_cast<int64_t>(before);
    };
    const ProcessUsage before = MeasureUsage();
    for (uint32_t call = 0; call < calls; ++call) {
        kind.call();
    }
    const ProcessUsage after = MeasureUsage();
    return {difference(before.handles, after.handles), difference(before.threads, after.threads),
            difference(before.committedBytes, after.committedBytes)};
}

// The system's caches and pools grow in some round: only what each round adds is lost by the calls.
void Repeat(Context &context, const Repetition &kind)
{
    context.Step("repeats: " + kind.name, {kind.clause});
    GrowthDuring(kind, kind.calls / 10 + 1);
    Growth growth = GrowthDuring(kind, kind.calls);
    for (int round = 1; round < mostRounds && !(HasBoundedHandles(kind, growth) &&
                                                HasBoundedThreads(growth) && HasBoundedMemory(kind, growth));
         ++round) {
        const Growth next = GrowthDuring(kind, kind.calls);
        growth = {std::min(growth.handles, next.handles), std::min(growth.threads, next.threads),
                  std::min(growth.bytes, next.bytes)};
    }
    ExpectBounded(context, kind, growth);
}

void ListAndRelease(const AudioHandlerTable &table)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    if (table.GetAudioCapability(&list, &count) == VELTO_OK) {
        table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
    }
}

void OpenAndClose(const AudioHandlerTable &table)
{
    host::Microphone microphone(table, VELTO_ID_MIC);
    microphone.Open();
    ReadPacketWithin(microphone, 300ms);
    microphone.Close();
}

void CallsLoseNothing(Context &context)
{
    const auto module = LoadModule(context);
    const AudioHandlerTable &table = module->Table();
    const AudioListener listener{[](const char *, uint32_t, int32_t) {}, nullptr};
    table.RegisterListener(&listener);
    constexpr uint32_t idLength = sizeof(VELTO_ID_SPEAKER) - 1;
    Repeat(context, {"a list and its release", "REL-4", 5000, {}, [&] { ListAndRelease(table); }});
    Repeat(context, {"parameters", "RES-1", 2000, {}, [&] { StartStream(table, VELTO_ID_SPEAKER); }});
    Repeat(context, {"closing a track", "RES-1", 1000, {}, [&] {
                         table.CloseAudioTrack(VELTO_ID_SPEAKER, idLength);
                     }});
    Repeat(context,
           {"registering a listener", "RES-1", 2000, {}, [&] { table.RegisterListener(&listener); }});
    // Starts the speakers. Their threads and streams must be complete before the process is measured again.
    SpeakerUse(table).Play(2s);
    Repeat(context, {"a refused write", "RES-1", 1000, {}, [&] {
                         table.WriteStreamBuffer(VELTO_ID_SPEAKER, idLength + 1, nullptr, nullptr);
                     }});
    // Without pauses, the queue drops most blocks.
    const AacUnits units = SpeechLikeUnits(47);
    size_t next = 0;
    Repeat(context, {"a write", "RES-1", 4000, {}, [&] {
                         WriteUnit(table, VELTO_ID_SPEAKER, units[next++ % units.size()]);
                     }});
    // Each opening loses the records of its packets and two copies of the mix format, by contract.
    constexpr double lostByOpening = 469 * 32 + 2 * 40;
    // The system's audio client keeps caches for each opening.
    constexpr double systemByOpening = 48 * 1024;
    Repeat(context,
           {"opening and closing the microphone", "RES-1", 20, {0, lostByOpening + systemByOpening}, [&] {
                OpenAndClose(table);
            }});
    const AudioListener none{nullptr, nullptr};
    table.RegisterListener(&none);
}

// What the module answers after it was loaded.
struct Answers {
    int32_t listed = 0;
    uint32_t devices = 0;
    int32_t parameters = 0;
    bool operator==(const Answers &) const = default;
};

// Loads, uses and frees the module. Nothing is started, so the module unmaps at once. `first`: the answers of
// the first cycle; null for this one.
Answers LoadAndFree(Context &context, const Answers *first)
{
    context.Step("loads and uses the module", {"LIF-7"});
    const auto module = LoadModule(context, first == nullptr ? "" : "LIF-7");
    Answers answers;
    AudioCapabilityItem *list = nullptr;
    answers.listed = module->Table().GetAudioCapability(&list, &answers.devices);
    if (answers.listed == VELTO_OK) {
        module->Table().Release(VELTO_RELEASE_CAPABILITIES, list, answers.devices);
    }
    answers.parameters = StartStream(module->Table(), VELTO_ID_SPEAKER);
    context.Expect(first == nullptr || answers == *first, "LIF-7",
                   "after loading again, the module answers calls differently");
    context.Step("frees the module", {"LIF-6"});
    module->Free();
    context.Require(module->WaitUntilUnmapped(5s), "LIF-6",
                    "the module is still mapped 5 s after FreeLibrary, although it started no thread");
    return answers;
}

void LoadCycles(Context &context)
{
    constexpr uint32_t cycles = 25;
    const Answers first = LoadAndFree(context, nullptr);
    // By contract, the idle event of each entry call is lost, and two handles that the thread library in the
    // module keeps for the thread that frees it. The loader and the heap keep some memory.
    constexpr double handlesPerCycle = 3;
    constexpr double memoryPerCycle = 64 * 1024;
    Repeat(context, {"loading and freeing", "RES-1", cycles, {handlesPerCycle, memoryPerCycle}, [&] {
                         LoadAndFree(context, &first);
                     }});
}

} // namespace

std::span<const Check> ResourceChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("lifecycle.calls-lose-nothing", CallsLoseNothing),
        ProcessCheck("lifecycle.load-cycles", LoadCycles),
    };
    return checks;
}

} // namespace velto::check
