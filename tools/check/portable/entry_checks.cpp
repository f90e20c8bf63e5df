// The entry and the table that it fills.
#include <algorithm>
#include <array>
#include <cstring>
#include <set>

#include "check/portable/check.h"
#include "check/portable/guarded_record.h"
#include "check/portable/state_guard.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr uint8_t pattern = 0xA5;
constexpr size_t fenceBytes = 64;

using Slots = std::array<void *, VELTO_TABLE_SLOTS>;

Slots SlotsOf(const AudioHandlerTable &table)
{
    Slots slots;
    static_assert(sizeof slots == sizeof table);
    std::memcpy(slots.data(), &table, sizeof table);
    return slots;
}

// The value of a slot that the entry did not write.
void *UnwrittenSlot()
{
    void *slot = nullptr;
    std::memset(&slot, pattern, sizeof slot);
    return slot;
}

// A table between bytes that must not change.
struct FencedTable {
    FencedTable() { std::memset(this, pattern, sizeof *this); }
    bool IsFenceIntact() const
    {
        const auto isPattern = [](uint8_t byte) { return byte == pattern; };
        return std::ranges::all_of(before, isPattern) && std::ranges::all_of(behind, isPattern);
    }

    std::array<uint8_t, fenceBytes> before;
    AudioHandlerTable table;
    std::array<uint8_t, fenceBytes> behind;
};

// Of a newly filled table. Ends the check if the entry leaves slots as they were, which another check
// reports.
Slots FilledSlots(Context &context)
{
    FencedTable fenced;
    context.Step("the entry with a table", {"ENT-3"});
    context.entry(&fenced.table);
    const Slots slots = SlotsOf(fenced.table);
    if (std::ranges::find(slots, UnwrittenSlot()) != slots.end()) {
        throw CheckEnded{};
    }
    return slots;
}

void CheckNullTable(Context &context)
{
    context.Step("the entry with a null table", {"ENT-2"});
    context.ExpectEqual(context.entry(nullptr), int32_t{VELTO_ERROR_INVALID}, "ENT-2",
                        "the entry returned for a null table");
}

void CheckFillsTable(Context &context)
{
    FencedTable fenced;
    context.Step("the entry with a table", {"ENT-3"});
    context.ExpectEqual(context.entry(&fenced.table), int32_t{VELTO_OK}, "ENT-3", "the entry returned");
    const Slots slots = SlotsOf(fenced.table);
    for (size_t slot = 0; slot < slots.size(); ++slot) {
        context.Expect(slots[slot] != UnwrittenSlot(), "ENT-3",
                       fmt::format("the entry did not write slot {}", slot));
    }
    context.Require(fenced.IsFenceIntact(), "ENT-8", "the entry wrote next to the table");
    const GuardedRecord<AudioHandlerTable> guarded(context.environment, fenced.table);
    context.Step("the entry with a table at the end of accessible memory", {"ENT-8"});
    context.entry(guarded.Get());
}

void CheckEmptySlots(Context &context)
{
    const Slots slots = FilledSlots(context);
    context.Expect(slots[1] == slots[10], "ENT-4", "slots 1 and 10 hold different functions");
    for (const size_t slot : {1, 10}) {
        if (slots[slot] == nullptr) {
            context.Expect(false, "ENT-4", fmt::format("slot {} is null", slot));
            continue;
        }
        using AnyFunction = int32_t (*)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t);
        const auto call = reinterpret_cast<AnyFunction>(slots[slot]);
        context.Step(fmt::format("slot {} with arguments that are no pointers", slot), {"ENT-4"});
        context.ExpectEqual(call(1, 1, 1, 1, 1), int32_t{VELTO_OK}, "ENT-4", "slot {} returned", slot);
    }
}

void CheckDistinctSlots(Context &context)
{
    const Slots slots = FilledSlots(context);
    std::set<void *> seen;
    for (size_t slot = 0; slot < VELTO_TABLE_SLOTS - 1; ++slot) {
        context.Expect(slots[slot] != nullptr, "ENT-9", fmt::format("slot {} is null", slot));
        context.Expect(seen.insert(slots[slot]).second, "ENT-9",
                       fmt::format("slot {} holds the function of an earlier slot", slot));
    }
}

// The results of some calls. Equal for all tables of a module, whether right or wrong.
std::array<int32_t, 4> ResultsOf(const AudioHandlerTable &table)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    const int32_t capabilities = table.GetAudioCapability(&list, &count);
    if (capabilities == VELTO_OK) {
        table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
    }
    return {capabilities, table.CloseAudioTrack(VELTO_ID_SPEAKER, 8), table.CloseAudioRecord(VELTO_ID_MIC, 4),
            table.NoOperation1()};
}

void CheckCopies(Context &context)
{
    context.Step("calls through the first table", {"THR-3"});
    const auto expected = ResultsOf(context.table);

    const GuardedRecord<FencedTable> original(context.environment, FencedTable{});
    context.Step("a second call of the entry", {"ENT-10"});
    context.entry(&original->table);
    const AudioHandlerTable copy = original->table;
    original.Memory().AllowAccess(false);
    context.Step("calls through a copy of a table that is no longer accessible", {"ENT-10"});
    context.Expect(ResultsOf(copy) == expected, "ENT-10", "a copy of the second table returns other results");
    context.Step("calls through the first table after a second call of the entry", {"ENT-10"});
    context.Expect(ResultsOf(context.table) == expected, "ENT-10",
                   "the first table returns other results after a second call of the entry");
}

void CheckEntryState(Context &context)
{
    FencedTable fenced;
    const auto state = context.environment.MakeCallerState();
    context.Step("the entry on a thread with unusual settings", {"ENT-3"});
    ExpectStateKept(context, *state, "the entry", [&] { context.entry(&fenced.table); });
}

} // namespace

std::span<const Check> EntryChecks()
{
    auto stateClauses = StateClauses();
    stateClauses.emplace_back("ENT-3");
    static const std::array checks{
        Check{"entry.null-table", 1, {"ENT-2"}, 10s, CheckNullTable},
        Check{"entry.fills-table", 1, {"ENT-3", "ENT-8"}, 10s, CheckFillsTable},
        Check{"entry.empty-slots", 1, {"ENT-3", "ENT-4"}, 10s, CheckEmptySlots},
        Check{"entry.distinct-slots", 1, {"ENT-3", "ENT-9"}, 10s, CheckDistinctSlots},
        Check{"entry.copies", 1, {"ENT-10", "THR-3"}, 10s, CheckCopies},
        Check{"entry.caller-state", 1, stateClauses, 10s, CheckEntryState},
    };
    return checks;
}

} // namespace velto::check
