// Wrong, unusual and barely accessible arguments of each slot, with the results that the contract gives.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "check/portable/check.h"
#include "check/portable/event_recorder.h"
#include "check/portable/guarded_record.h"
#include "check/portable/id_slots.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr std::array<uint8_t, 6> silentUnit VELTO_SILENT_UNIT;
constexpr uint8_t pattern = 0xA5;

int32_t Invalid()
{
    return VELTO_ERROR_INVALID;
}

// ---- Ids

struct WrongId {
    std::string_view what;
    const char *id;
    uint32_t idLength;
};

// With `id` as the right one.
std::vector<WrongId> WrongIds(const char *id)
{
    const auto length = static_cast<uint32_t>(std::strlen(id));
    return {
        {"a null id", nullptr, length},
        {"a null id of length 0", nullptr, 0},
        {"length 0", id, 0},
        {"a length too small by 1", id, length - 1},
        {"a length too large by 1", id, length + 1},
        {"a length too large by 256", id, length + 0x100},
        {"a length too large by 65536", id, length + 0x10000},
        {"a length with the highest bit", id, length | 0x80000000},
        {"the largest length", id, UINT32_MAX},
    };
}

void CheckWrongIds(Context &context)
{
    for (const IdSlot &slot : IdSlots()) {
        CallAsUsual(context, slot);
        std::array<char, bytesToSpare> text{};
        std::ranges::copy(slot.deviceId, text.begin());
        for (const WrongId &wrong : WrongIds(text.data())) {
            context.Step(fmt::format("{} with {}", slot.name, wrong.what), {"IDS-1"});
            context.ExpectEqual(slot.call(context.table, wrong.id, wrong.idLength), Invalid(), "IDS-1",
                                "{} with {} returned", slot.name, wrong.what);
        }
    }
}

// The length includes bytes behind the terminator.
void CheckTerminatorInId(Context &context)
{
    constexpr char twoTexts[] = "speaker1\0mic1";
    CallAllAsUsual(context);
    for (const IdSlot &slot : IdSlots()) {
        context.Step(fmt::format("{} with a terminator within the id", slot.name), {"IDS-1"});
        context.ExpectEqual(slot.call(context.table, twoTexts, sizeof twoTexts - 1), Invalid(), "IDS-1",
                            "{} with a terminator within the id returned", slot.name);
    }
}

void CheckIdsAtPageEnd(Context &context)
{
    CallAllAsUsual(context);
    for (const IdSlot &slot : IdSlots()) {
        for (const std::string_view text : {slot.deviceId, std::string_view("x"), std::string_view()}) {
            const GuardedText id(context.environment, text);
            for (const uint32_t length : {id.Length(), id.Length() + 1, UINT32_MAX}) {
                context.Step(fmt::format("{} with \"{}\" at the end of accessible memory and the length {}",
                                         slot.name, text, length),
                             {"IDS-5"});
                slot.call(context.table, id.Get(), length);
            }
        }
    }
}

std::vector<std::string> OtherIds()
{
    return {"",
            "x",
            "speaker",
            "speaker2",
            "speaker11",
            "Speaker1",
            "SPEAKER1",
            " speaker1",
            "speaker1 ",
            "modemSpeaker1",
            "MIC1",
            "mic",
            "%s%n%x",
            "\xFF\x80\x01",
            "\xE6\x89\xAC\xE5\xA3\xB0\xE5\x99\xA8",
            std::string(63, 'a'),
            std::string(64, 'a'),
            std::string(65, 'a'),
            std::string(5000, 'a')};
}

std::string Shortened(const std::string &id)
{
    return id.size() > 20 ? fmt::format("{} letters", id.size()) : '"' + id + '"';
}

void CheckOtherIds(Context &context)
{
    for (const IdSlot &slot : IdSlots()) {
        const std::string_view clause = slot.isMicrophone ? "IDS-4" : "IDS-3";
        if (CallAsUsual(context, slot) != VELTO_OK) {
            continue; // other checks report a slot that accepts nothing
        }
        for (const std::string &id : OtherIds()) {
            context.Step(fmt::format("{} with the id {}", slot.name, Shortened(id)), {clause});
            context.ExpectEqual(slot.call(context.table, id.c_str(), static_cast<uint32_t>(id.size())),
                                int32_t{VELTO_OK}, clause, "{} with the id {} returned", slot.name,
                                Shortened(id));
        }
    }
}

// ---- Null records

int32_t SetParameters(Context &context, const AudioProfileList *list, void *unused = nullptr)
{
    return context.table.SetAudioParameter(VELTO_ID_SPEAKER, 8, unused, unused, list);
}

int32_t Write(Context &context, StreamFrame *frame, void *unused = nullptr)
{
    return context.table.WriteStreamBuffer(VELTO_ID_SPEAKER, 8, unused, frame);
}

int32_t Read(Context &context, StreamFrame *frame, void *unused = nullptr)
{
    return context.table.ReadStreamBuffer(VELTO_ID_MIC, 4, unused, frame);
}

// Opens, and closes again what was opened.
int32_t Open(Context &context, const AudioProfileList *list, void *unused = nullptr)
{
    const int32_t result = context.table.OpenAudioRecord(VELTO_ID_MIC, 4, unused, unused, list);
    if (result == VELTO_OK) {
        context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
    }
    return result;
}

void CheckEmptyLists(Context &context)
{
    CallAllAsUsual(context);
    const AudioProfileEntry entry{VELTO_KEY_SAMPLE_RATE, 10, VELTO_SAMPLE_RATE_HZ};
    const AudioProfileList countZero{0, 0, &entry};
    const AudioProfileList withoutEntries{1, 0, nullptr};
    const AudioProfileList nothing{0, 0, nullptr};
    const auto expectRefused = [&context](const AudioProfileList *list, std::string_view what) {
        context.Step(fmt::format("SetAudioParameter with {}", what), {"PAR-1"});
        context.ExpectEqual(SetParameters(context, list), Invalid(), "PAR-1",
                            "SetAudioParameter with {} returned", what);
    };
    expectRefused(nullptr, "a null list");
    expectRefused(&countZero, "a list with the count 0");
    expectRefused(&withoutEntries, "a list of null entries");
    expectRefused(&nothing, "an empty list");
}

void CheckNullFramesOfWrite(Context &context)
{
    CallAllAsUsual(context);
    std::array<uint8_t, silentUnit.size()> unit = silentUnit;
    StreamFrame withoutHeader{unit.data(), {}, nullptr};
    const auto expectRefused = [&context](StreamFrame *frame, std::string_view what) {
        context.Step(fmt::format("WriteStreamBuffer with {}", what), {"SPK-15"});
        context.ExpectEqual(Write(context, frame), Invalid(), "SPK-15", "WriteStreamBuffer with {} returned",
                            what);
    };
    expectRefused(nullptr, "a null frame");
    expectRefused(&withoutHeader, "a null header");
}

void CheckUnitsWithoutBytes(Context &context)
{
    CallAllAsUsual(context);
    std::array<uint8_t, silentUnit.size()> unit = silentUnit;
    StreamFrameHeader header{0, 0, 0};
    const auto expectDropped = [&](StreamFrame frame, uint32_t size, std::string_view what) {
        header.size = size;
        context.Step(fmt::format("WriteStreamBuffer with {}", what), {"SPK-6"});
        context.ExpectEqual(Write(context, &frame), int32_t{VELTO_OK}, "SPK-6",
                            "WriteStreamBuffer with {} returned", what);
    };
    expectDropped({unit.data(), {}, &header}, 0, "a unit of 0 bytes");
    expectDropped({nullptr, {}, &header}, 0, "null data of 0 bytes");
    expectDropped({nullptr, {}, &header}, 16, "null data of 16 bytes");
}

void CheckNullFramesOfRead(Context &context)
{
    CallAllAsUsual(context);
    std::array<uint8_t, VELTO_MAX_PACKET_BYTES> buffer{};
    StreamFrameHeader header{0, VELTO_READ_SIZE, 0};
    StreamFrame withoutHeader{buffer.data(), {}, nullptr};
    StreamFrame withoutData{nullptr, {}, &header};
    const auto expectRefused = [&context](StreamFrame *frame, std::string_view what) {
        context.Step(fmt::format("ReadStreamBuffer with {}", what), {"MIC-6"});
        context.ExpectEqual(Read(context, frame), int32_t{VELTO_ERROR_NULL_POINTER}, "MIC-6",
                            "ReadStreamBuffer with {} returned", what);
    };
    expectRefused(nullptr, "a null frame");
    expectRefused(&withoutHeader, "a null header");
    expectRefused(&withoutData, "null data");
    context.Step("ReadStreamBuffer with a wrong id and a null frame", {"IDS-1"});
    context.ExpectEqual(context.table.ReadStreamBuffer(VELTO_ID_MIC, 5, nullptr, nullptr), Invalid(), "IDS-1",
                        "ReadStreamBuffer with a wrong id and a null frame returned");
}

void CheckListsOfOpen(Context &context)
{
    CallAllAsUsual(context);
    context.Step("OpenAudioRecord with a null list", {"MIC-13"});
    context.ExpectEqual(Open(context, nullptr), Invalid(), "MIC-13",
                        "OpenAudioRecord with a null list returned");
    const AudioProfileList empty{0, 0, nullptr};
    context.Step("OpenAudioRecord with an empty list", {"MIC-1"});
    context.ExpectEqual(Open(context, &empty), int32_t{VELTO_OK}, "MIC-1",
                        "OpenAudioRecord with an empty list returned");
    const GuardedRecord<AudioProfileEntry> entries(context.environment, AudioProfileEntry{});
    entries.Memory().AllowAccess(false);
    const AudioProfileList unreadable{7, 0, entries.Get()};
    context.Step("OpenAudioRecord with entries that cannot be read", {"MIC-1"});
    context.ExpectEqual(Open(context, &unreadable), int32_t{VELTO_OK}, "MIC-1",
                        "OpenAudioRecord with entries that cannot be read returned");
}

void CheckWithoutRecording(Context &context)
{
    context.Step("CloseAudioRecord without a recording", {"MIC-14"});
    for (int time = 0; time < 2; ++time) {
        context.ExpectEqual(context.table.CloseAudioRecord(VELTO_ID_MIC, 4), int32_t{VELTO_OK}, "MIC-14",
                            "CloseAudioRecord without a recording returned");
    }
    for (const uint32_t size : {uint32_t{VELTO_READ_SIZE}, 0U, UINT32_MAX}) {
        std::array<uint8_t, VELTO_MAX_PACKET_BYTES> buffer{};
        StreamFrameHeader header{0, size, 0};
        StreamFrame frame{buffer.data(), {}, &header};
        context.Step("ReadStreamBuffer without a recording", {"MIC-3"});
        context.ExpectEqual(Read(context, &frame), int32_t{VELTO_OK}, "MIC-3",
                            "ReadStreamBuffer without a recording returned");
        context.ExpectEqual(header.size, 0U, "MIC-3", "size {} after a read without a recording", size);
    }
    CallAllAsUsual(context);
    context.Step("CloseAudioRecord after a closed recording", {"MIC-14"});
    context.ExpectEqual(context.table.CloseAudioRecord(VELTO_ID_MIC, 4), int32_t{VELTO_OK}, "MIC-14",
                        "a repeated CloseAudioRecord returned");
}

// ---- Records at the end of accessible memory

void CheckListsAtPageEnd(Context &context)
{
    CallAllAsUsual(context);
    const GuardedText key(context.environment, VELTO_KEY_SAMPLE_RATE);
    const GuardedText unknownKey(context.environment, "c");
    // The first length is too small and the second one too large, because neither may be read.
    const std::array<AudioProfileEntry, 2> values{
        {{unknownKey.Get(), 0, 1}, {key.Get(), UINT32_MAX, VELTO_SAMPLE_RATE_HZ}}};
    const GuardedRecord<std::array<AudioProfileEntry, 2>> entries(context.environment, values);
    const GuardedRecord<AudioProfileList> list(context.environment, {2, 0, entries->data()});
    context.Step("SetAudioParameter with list, entries and keys at the end of accessible memory", {"OWN-7"});
    SetParameters(context, list.Get());
    context.Step("OpenAudioRecord with a list at the end of accessible memory", {"OWN-7"});
    Open(context, list.Get());
}

void CheckUnitsAtPageEnd(Context &context)
{
    CallAllAsUsual(context);
    for (int number = 0; number < 8; ++number) {
        const GuardedRecord<std::array<uint8_t, silentUnit.size()>> unit(context.environment, silentUnit);
        const GuardedRecord<StreamFrameHeader> header(context.environment, {0, silentUnit.size(), 0});
        const GuardedRecord<StreamFrame> frame(context.environment, {unit->data(), {}, header.Get()});
        context.Step("WriteStreamBuffer with frame, header and unit at the end of accessible memory",
                     {"OWN-6"});
        Write(context, frame.Get());
    }
}

void CheckListenerAtPageEnd(Context &context)
{
    const AudioListener usual{nullptr, nullptr};
    context.Step("RegisterListener with usual arguments", {"THR-3"});
    context.table.RegisterListener(&usual);
    const GuardedRecord<AudioListener> listener(context.environment, usual);
    context.Step("RegisterListener with a record at the end of accessible memory", {"LSN-1"});
    context.ExpectEqual(context.table.RegisterListener(listener.Get()), int32_t{VELTO_OK}, "LSN-1",
                        "RegisterListener returned");
    context.Step("RegisterListener with a null record", {"LSN-1"});
    context.ExpectEqual(context.table.RegisterListener(nullptr), Invalid(), "LSN-1",
                        "RegisterListener with a null record returned");
}

// A buffer of the largest packet, with accessible memory behind it: true if the memory stays unchanged.
bool KeepsBytesBehindBuffer(Context &context)
{
    std::vector<uint8_t> buffer(VELTO_MAX_PACKET_BYTES + bytesToSpare, pattern);
    StreamFrameHeader header{0, VELTO_READ_SIZE, 0};
    StreamFrame frame{buffer.data(), {}, &header};
    Read(context, &frame);
    return std::all_of(buffer.begin() + VELTO_MAX_PACKET_BYTES, buffer.end(),
                       [](uint8_t byte) { return byte == pattern; });
}

void CheckReadingBuffer(Context &context)
{
    constexpr int reads = 60; // over a second
    CallAllAsUsual(context);
    context.Step("OpenAudioRecord with usual arguments", {"THR-3"});
    context.table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, &UsualParameters());
    context.Step("ReadStreamBuffer", {"OWN-3"});
    bool keeps = true;
    for (int number = 0; number < reads && keeps; ++number) {
        keeps = context.Expect(KeepsBytesBehindBuffer(context), "OWN-3",
                               fmt::format("a read wrote behind {} bytes", VELTO_MAX_PACKET_BYTES));
    }
    const auto buffer = context.environment.Guarded(VELTO_MAX_PACKET_BYTES);
    for (int number = 0; number < reads && keeps; ++number) {
        const GuardedRecord<StreamFrameHeader> header(context.environment, {0, VELTO_READ_SIZE, 0});
        const GuardedRecord<StreamFrame> frame(context.environment, {buffer->Data(), {}, header.Get()});
        context.Step(fmt::format("ReadStreamBuffer with {} bytes at the end of accessible memory",
                                 VELTO_MAX_PACKET_BYTES),
                     {"OWN-3"});
        Read(context, frame.Get());
    }
    context.Step("CloseAudioRecord", {"THR-3"});
    context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
}

// ---- Fields and arguments that are not read

void CheckReservedFields(Context &context)
{
    CallAllAsUsual(context);
    std::array<uint8_t, VELTO_MAX_PACKET_BYTES> bytes{};
    std::ranges::copy(silentUnit, bytes.begin());
    const auto results = [&](uint8_t fill) {
        const AudioProfileEntry entry{VELTO_KEY_SAMPLE_RATE, fill, VELTO_SAMPLE_RATE_HZ};
        const AudioProfileList list{1, fill * 0x01010101U, &entry};
        StreamFrameHeader writeHeader{0, silentUnit.size(), fill * 0x01010101U};
        StreamFrameHeader readHeader{fill, VELTO_READ_SIZE, fill * 0x01010101U};
        StreamFrame write{bytes.data(), {}, &writeHeader};
        StreamFrame read{bytes.data(), {}, &readHeader};
        std::memset(write.reserved, fill, sizeof write.reserved);
        std::memset(read.reserved, fill, sizeof read.reserved);
        return std::array{SetParameters(context, &list), Open(context, &list), Write(context, &write),
                          Read(context, &read)};
    };
    const auto usual = results(0);
    context.Step("calls with other reserved and padding fields", {"OWN-5"});
    context.Expect(results(pattern) == usual, "OWN-5", "reserved or padding fields change a result");
    context.Expect(results(0xFF) == usual, "OWN-5", "reserved or padding fields change a result");
}

void CheckUnusedArguments(Context &context)
{
    CallAllAsUsual(context);
    std::array<uint8_t, VELTO_MAX_PACKET_BYTES> bytes{};
    std::ranges::copy(silentUnit, bytes.begin());
    const auto results = [&](void *unused) {
        StreamFrameHeader writeHeader{0, silentUnit.size(), 0};
        StreamFrameHeader readHeader{0, VELTO_READ_SIZE, 0};
        StreamFrame write{bytes.data(), {}, &writeHeader};
        StreamFrame read{bytes.data(), {}, &readHeader};
        return std::array{SetParameters(context, &UsualParameters(), unused),
                          Open(context, &UsualParameters(), unused), Write(context, &write, unused),
                          Read(context, &read, unused)};
    };
    const auto usual = results(nullptr);
    const auto memory = context.environment.Guarded(1);
    memory->AllowAccess(false);
    context.Step("calls with unused arguments that cannot be read", {"OWN-8"});
    context.Expect(results(memory->Data()) == usual, "OWN-8", "an unused argument changes a result");
}

// ---- The order of the slots

// Any function of the table: additional arguments do no harm.
using AnySlot = int32_t (*)(const void *, const void *, const void *, void *, const void *);

AnySlot SlotAt(const AudioHandlerTable &table, size_t index)
{
    AnySlot slot;
    std::memcpy(&slot, reinterpret_cast<const uint8_t *>(&table) + index * sizeof slot, sizeof slot);
    return slot;
}

enum class Kind { CAPABILITIES, TAKES_ID, OTHER };

// With arguments that are harmless for every function: an empty listener record, which is also an id of a
// wrong length; a count; a release of an unknown type.
Kind KindOf(const AudioHandlerTable &table, AnySlot slot)
{
    alignas(64) std::array<void *, 8> first{};
    alignas(64) std::array<uint64_t, 8> second{};
    const int32_t result = slot(first.data(), second.data(), nullptr, nullptr, nullptr);
    if (second[0] != 0) {
        table.Release(VELTO_RELEASE_CAPABILITIES, first[0], static_cast<uint32_t>(second[0]));
        return Kind::CAPABILITIES;
    }
    return result == VELTO_ERROR_INVALID ? Kind::TAKES_ID : Kind::OTHER;
}

// How a slot with an id answers two calls: with a list and a null frame, and with a frame and a null list.
struct Answers {
    int32_t withList = 0;
    int32_t withFrame = 0;
    int32_t event = 0; // of the first call; 0 without one

    bool operator==(const Answers &) const = default;
};

struct SlotAnswers {
    size_t index;
    std::string_view name;
    Answers expected;
};

constexpr std::array slotAnswers{
    SlotAnswers{2, "SetAudioParameter", {0, -2000, 4}}, SlotAnswers{3, "WriteStreamBuffer", {-2000, 0, 0}},
    SlotAnswers{4, "CloseAudioTrack", {0, 0, 3}},       SlotAnswers{5, "OpenAudioRecord", {0, -2000, 0}},
    SlotAnswers{6, "ReadStreamBuffer", {-3, 0, 0}},     SlotAnswers{7, "CloseAudioRecord", {0, 0, 0}},
};

Answers AnswersOf(AnySlot slot, EventRecorder &recorder)
{
    std::array<uint8_t, VELTO_MAX_PACKET_BYTES> bytes{};
    std::ranges::copy(silentUnit, bytes.begin());
    StreamFrameHeader header{0, silentUnit.size(), 0};
    StreamFrame frame{bytes.data(), {}, &header};
    // A length fills the register of a pointer.
    const auto *const length = std::bit_cast<const void *>(uintptr_t{8});
    Answers answers;
    recorder.Clear();
    answers.withList = slot(VELTO_ID_SPEAKER, length, nullptr, nullptr, &UsualParameters());
    const auto events = recorder.Events();
    answers.event = events.empty() ? 0 : events.front().code;
    answers.withFrame = slot(VELTO_ID_SPEAKER, length, nullptr, &frame, nullptr);
    return answers;
}

// Two slots are exchanged if each is like the other. A slot that differs only from its own description has
// another fault, which other checks report.
template <typename Value, typename Expected>
bool AreExchanged(const Value &left, const Value &right, const Expected &expectedLeft,
                  const Expected &expectedRight)
{
    return !(expectedLeft == expectedRight) && left == expectedRight && right == expectedLeft;
}

void CheckKinds(Context &context)
{
    constexpr size_t releaseSlot = 8; // has no result to recognise
    const auto expected = [](size_t index) {
        const bool takesId = index >= 2 && index <= 7;
        return index == 0 ? Kind::CAPABILITIES : takesId ? Kind::TAKES_ID : Kind::OTHER;
    };
    std::array<Kind, VELTO_TABLE_SLOTS> kinds;
    for (size_t index = 0; index < kinds.size(); ++index) {
        context.Step(fmt::format("slot {} with arguments that are harmless for every function", index),
                     {"ENT-9"});
        const AnySlot slot = SlotAt(context.table, index);
        const bool isKnown = index != releaseSlot && slot != nullptr;
        kinds[index] = isKnown ? KindOf(context.table, slot) : Kind::OTHER;
    }
    for (size_t left = 0; left < kinds.size(); ++left) {
        for (size_t right = left + 1; right < kinds.size(); ++right) {
            context.Require(!AreExchanged(kinds[left], kinds[right], expected(left), expected(right)),
                            "ENT-9", fmt::format("slots {} and {} are exchanged", left, right));
        }
    }
}

void CheckSlotOrder(Context &context)
{
    CheckKinds(context);
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    std::array<Answers, slotAnswers.size()> answers;
    for (size_t index = 0; index < answers.size(); ++index) {
        const SlotAnswers &slot = slotAnswers[index];
        context.Step(fmt::format("{} with arguments that fit all slots with an id", slot.name), {"ENT-9"});
        answers[index] = AnswersOf(SlotAt(context.table, slot.index), recorder);
    }
    for (size_t left = 0; left < answers.size(); ++left) {
        for (size_t right = left + 1; right < answers.size(); ++right) {
            context.Expect(!AreExchanged(answers[left], answers[right], slotAnswers[left].expected,
                                         slotAnswers[right].expected),
                           "ENT-9",
                           fmt::format("{} (slot {}) and {} (slot {}) are exchanged", slotAnswers[left].name,
                                       slotAnswers[left].index, slotAnswers[right].name,
                                       slotAnswers[right].index));
        }
    }
    // One of the calls has opened the microphone.
    context.Step("CloseAudioRecord", {"THR-3"});
    context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
}

} // namespace

std::span<const Check> ArgumentChecks()
{
    static const std::array checks{
        Check{"arguments.slot-order", 3, {"ENT-9", "THR-3"}, 30s, CheckSlotOrder},
        Check{"arguments.wrong-ids", 3, {"IDS-1", "THR-3"}, 30s, CheckWrongIds},
        Check{"arguments.terminator-in-id", 3, {"IDS-1", "THR-3"}, 30s, CheckTerminatorInId},
        Check{"arguments.ids-at-page-end", 3, {"IDS-5", "THR-3"}, 60s, CheckIdsAtPageEnd},
        Check{"arguments.other-ids", 3, {"IDS-3", "IDS-4", "THR-3"}, 90s, CheckOtherIds},
        Check{"arguments.empty-lists", 3, {"PAR-1", "THR-3"}, 30s, CheckEmptyLists},
        Check{"arguments.null-frames-of-write", 3, {"SPK-15", "THR-3"}, 30s, CheckNullFramesOfWrite},
        Check{"arguments.units-without-bytes", 3, {"SPK-6", "THR-3"}, 30s, CheckUnitsWithoutBytes},
        Check{"arguments.null-frames-of-read", 3, {"IDS-1", "MIC-6", "THR-3"}, 30s, CheckNullFramesOfRead},
        Check{"arguments.lists-of-open", 3, {"MIC-1", "MIC-13", "THR-3"}, 30s, CheckListsOfOpen},
        Check{"arguments.without-recording", 3, {"MIC-3", "MIC-14", "THR-3"}, 30s, CheckWithoutRecording},
        Check{"arguments.lists-at-page-end", 3, {"OWN-7", "THR-3"}, 30s, CheckListsAtPageEnd},
        Check{"arguments.units-at-page-end", 3, {"OWN-6", "THR-3"}, 30s, CheckUnitsAtPageEnd},
        Check{"arguments.listener-at-page-end", 3, {"LSN-1", "THR-3"}, 30s, CheckListenerAtPageEnd},
        Check{"arguments.reading-buffer", 3, {"OWN-3", "THR-3"}, 60s, CheckReadingBuffer},
        Check{"arguments.reserved-fields", 3, {"OWN-5", "THR-3"}, 30s, CheckReservedFields},
        Check{"arguments.unused-arguments", 3, {"OWN-8", "THR-3"}, 30s, CheckUnusedArguments},
    };
    return checks;
}

} // namespace velto::check
