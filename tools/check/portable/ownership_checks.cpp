// Memory of the host: the module changes nothing that it may not change, and keeps no pointer.
#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "check/portable/check.h"
#include "check/portable/guarded_record.h"
#include "check/portable/id_slots.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

using Unit = std::array<uint8_t, 6>;

constexpr Unit silentUnit VELTO_SILENT_UNIT;
constexpr auto unitTime = 21ms;
constexpr size_t unitsToPlay = 70; // one and a half seconds
constexpr size_t bufferBytes = 4096;
constexpr uint8_t pattern = 0xA5;
constexpr uint32_t paddingOfHost = 0x12345678; // other than 0, to which a module could set it

void Append(std::vector<uint8_t> &content, const void *bytes, size_t count)
{
    const auto *first = static_cast<const uint8_t *>(bytes);
    content.insert(content.end(), first, first + count);
}

using Memories = std::array<GuardedMemory *, 3>;

void AllowWriting(const Memories &memories, bool allow)
{
    for (GuardedMemory *memory : memories) {
        memory->AllowWriting(allow);
    }
}

void TakeAway(const Memories &memories)
{
    for (GuardedMemory *memory : memories) {
        memory->AllowAccess(false);
    }
}

// A frame with its header and unit, in memory that can be protected.
class GuardedFrame {
public:
    explicit GuardedFrame(Environment &environment)
        : m_unit(environment, silentUnit, bytesToSpare),
          m_header(environment, {3, silentUnit.size(), 0x12345678}, bytesToSpare),
          m_frame(environment, {m_unit->data(), {1, 2, 3}, m_header.Get()}, bytesToSpare)
    {
    }

    StreamFrame *Get() const { return m_frame.Get(); }
    Memories Parts() const { return {&m_unit.Memory(), &m_header.Memory(), &m_frame.Memory()}; }

    // All its bytes.
    std::vector<uint8_t> Content() const
    {
        std::vector<uint8_t> content(m_unit->begin(), m_unit->end());
        Append(content, m_header.Get(), sizeof(StreamFrameHeader));
        Append(content, m_frame.Get(), sizeof(StreamFrame));
        return content;
    }

private:
    GuardedRecord<Unit> m_unit;
    GuardedRecord<StreamFrameHeader> m_header;
    GuardedRecord<StreamFrame> m_frame;
};

// A parameter list with one entry, in memory that can be protected.
class GuardedList {
public:
    explicit GuardedList(Environment &environment)
        : m_key(environment, VELTO_KEY_SAMPLE_RATE, bytesToSpare),
          m_entry(environment, {m_key.Get(), m_key.Length(), VELTO_SAMPLE_RATE_HZ}, bytesToSpare),
          m_list(environment, {1, paddingOfHost, m_entry.Get()}, bytesToSpare)
    {
    }

    const AudioProfileList *Get() const { return m_list.Get(); }
    Memories Parts() const { return {&m_key.Memory(), &m_entry.Memory(), &m_list.Memory()}; }

    // All its bytes.
    std::vector<uint8_t> Content() const
    {
        std::vector<uint8_t> content;
        Append(content, m_key.Get(), m_key.Length() + 1);
        Append(content, m_entry.Get(), sizeof(AudioProfileEntry));
        Append(content, m_list.Get(), sizeof(AudioProfileList));
        return content;
    }

private:
    GuardedText m_key;
    GuardedRecord<AudioProfileEntry> m_entry;
    GuardedRecord<AudioProfileList> m_list;
};

int32_t SetParameters(Context &context, const AudioProfileList *list)
{
    return context.table.SetAudioParameter(VELTO_ID_SPEAKER, 8, nullptr, nullptr, list);
}

// ---- What may not be changed

// First with memory that can be written, because a failure says more than a crash.
void CheckWrittenFrame(Context &context)
{
    CallAllAsUsual(context);
    const GuardedFrame frame(context.environment);
    const std::vector<uint8_t> content = frame.Content();
    for (const std::string_view id : {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER, VELTO_ID_MIC}) {
        const auto write = [&] {
            context.table.WriteStreamBuffer(id.data(), static_cast<uint32_t>(id.size()), nullptr,
                                            frame.Get());
        };
        context.Step(fmt::format("WriteStreamBuffer for {}", id), {"OWN-2"});
        write();
        context.Require(frame.Content() == content, "OWN-2",
                        fmt::format("a write for {} changed the frame, its header or its unit", id));
        AllowWriting(frame.Parts(), false);
        context.Step(fmt::format("WriteStreamBuffer for {} with read-only records", id), {"OWN-2"});
        write();
        AllowWriting(frame.Parts(), true);
    }
}

void CheckParameterLists(Context &context)
{
    CallAllAsUsual(context);
    const GuardedList list(context.environment);
    const std::vector<uint8_t> content = list.Content();
    const auto call = [&](std::string_view what) {
        context.Step(fmt::format("SetAudioParameter with {}", what), {"OWN-10"});
        SetParameters(context, list.Get());
        context.Step(fmt::format("OpenAudioRecord with {}", what), {"OWN-10"});
        context.table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, list.Get());
        context.Step("CloseAudioRecord", {"THR-3"});
        context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
    };
    call("a list");
    context.Require(list.Content() == content, "OWN-10", "a call changed a parameter list");
    AllowWriting(list.Parts(), false);
    call("a read-only list");
}

void CheckListenerRecord(Context &context)
{
    context.Step("RegisterListener", {"OWN-10"});
    const GuardedRecord<AudioListener> listener(context.environment, {nullptr, nullptr}, bytesToSpare);
    context.table.RegisterListener(listener.Get());
    context.Require(listener->AudioStateCallback == nullptr && listener->reserved == nullptr, "OWN-10",
                    "RegisterListener changed the record");
    listener.Memory().AllowWriting(false);
    context.Step("RegisterListener with a read-only record", {"OWN-10"});
    context.table.RegisterListener(listener.Get());
}

// Calls that are accepted against their clauses are reported by other checks.
void CheckRefusedCalls(Context &context)
{
    CallAllAsUsual(context);
    std::vector<uint8_t> buffer(bufferBytes, pattern);
    const std::vector<uint8_t> untouched = buffer;
    const StreamFrameHeader usual{7, VELTO_READ_SIZE, 8};
    StreamFrameHeader header = usual;
    StreamFrame frame{buffer.data(), {}, &header};
    const auto expectUnchanged = [&](int32_t result, std::string_view what) {
        const bool isUnchanged = buffer == untouched && std::memcmp(&header, &usual, sizeof usual) == 0;
        context.Expect(result == VELTO_OK || isUnchanged, "OWN-9",
                       fmt::format("{} was refused and changed the host's memory", what));
        header = usual;
        buffer = untouched;
    };
    const AudioHandlerTable &table = context.table;
    context.Step("refused reads and writes", {"OWN-9"});
    expectUnchanged(table.ReadStreamBuffer(VELTO_ID_MIC, 5, nullptr, &frame), "a read with a wrong id");
    expectUnchanged(table.WriteStreamBuffer(VELTO_ID_SPEAKER, 9, nullptr, &frame), "a write with a wrong id");
    frame.data = nullptr;
    expectUnchanged(table.ReadStreamBuffer(VELTO_ID_MIC, 4, nullptr, &frame), "a read with null data");
    frame = {buffer.data(), {}, nullptr};
    expectUnchanged(table.ReadStreamBuffer(VELTO_ID_MIC, 4, nullptr, &frame), "a read with a null header");
    expectUnchanged(table.WriteStreamBuffer(VELTO_ID_SPEAKER, 8, nullptr, &frame),
                    "a write with a null header");
}

// ---- What a read may write

// One read into memory filled with a pattern.
void ExpectOwnBytesWritten(Context &context, std::string_view what)
{
    std::vector<uint8_t> buffer(bufferBytes);
    for (uint8_t &byte : buffer) {
        byte = static_cast<uint8_t>(context.random.Next());
    }
    const std::vector<uint8_t> before = buffer;
    const StreamFrameHeader usual{7, VELTO_READ_SIZE, 8};
    StreamFrameHeader header = usual;
    StreamFrame frame{buffer.data(), {1, 2, 3}, &header};
    const StreamFrame usualFrame = frame;
    context.table.ReadStreamBuffer(VELTO_ID_MIC, 4, nullptr, &frame);
    context.Expect(std::memcmp(&frame, &usualFrame, sizeof frame) == 0, "OWN-3",
                   fmt::format("a read {} changed the frame", what));
    context.Expect(header.streamType == usual.streamType && header.reserved == usual.reserved, "OWN-3",
                   fmt::format("a read {} changed the header's other fields", what));
    // An unchanged size means that capture has stopped: there is no unit.
    const size_t written = header.size == usual.size ? 0 : std::min<size_t>(header.size, bufferBytes);
    const auto first = static_cast<std::ptrdiff_t>(written);
    context.Expect(std::equal(buffer.begin() + first, buffer.end(), before.begin() + first), "OWN-3",
                   fmt::format("a read {} changed the buffer behind the unit", what));
}

void CheckReadings(Context &context)
{
    constexpr int reads = 100; // two seconds
    CallAllAsUsual(context);
    context.Step("ReadStreamBuffer without a recording", {"OWN-3"});
    ExpectOwnBytesWritten(context, "without a recording");
    context.Step("OpenAudioRecord", {"THR-3"});
    context.table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, &UsualParameters());
    context.Step("ReadStreamBuffer with a recording", {"OWN-3"});
    for (int number = 0; number < reads; ++number) {
        ExpectOwnBytesWritten(context, "with a recording");
    }
    context.Step("CloseAudioRecord", {"THR-3"});
    context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
}

// ---- What may not be kept

// A module that keeps a pointer uses it in a later call or on one of its threads. The memory stays
// inaccessible, so that its addresses are not used again.
void CheckWrittenUnits(Context &context)
{
    CallAllAsUsual(context);
    std::deque<GuardedFrame> frames;
    std::deque<GuardedText> texts;
    for (size_t number = 0; number < unitsToPlay; ++number) {
        const GuardedFrame &frame = frames.emplace_back(context.environment);
        const GuardedText &id = texts.emplace_back(
            context.environment, number % 2 == 0 ? VELTO_ID_SPEAKER : VELTO_ID_MODEM_SPEAKER, bytesToSpare);
        context.Step("WriteStreamBuffer while the memory of earlier writes is inaccessible", {"OWN-1"});
        context.table.WriteStreamBuffer(id.Get(), id.Length(), nullptr, frame.Get());
        TakeAway(frame.Parts());
        id.Memory().AllowAccess(false);
        context.environment.Sleep(unitTime);
    }
    context.environment.Sleep(500ms); // the queued blocks are played
}

void CheckListsAndIds(Context &context)
{
    CallAllAsUsual(context);
    const GuardedList list(context.environment);
    const GuardedText speaker(context.environment, VELTO_ID_SPEAKER, bytesToSpare);
    const GuardedText microphone(context.environment, VELTO_ID_MIC, bytesToSpare);
    context.Step("calls whose records and ids become inaccessible", {"OWN-1"});
    context.table.SetAudioParameter(speaker.Get(), speaker.Length(), nullptr, nullptr, list.Get());
    context.table.CloseAudioTrack(speaker.Get(), speaker.Length());
    context.table.OpenAudioRecord(microphone.Get(), microphone.Length(), nullptr, nullptr, list.Get());
    TakeAway(list.Parts());
    speaker.Memory().AllowAccess(false);
    microphone.Memory().AllowAccess(false);
    context.Step("calls after records and ids became inaccessible", {"OWN-1"});
    for (size_t number = 0; number < unitsToPlay; ++number) {
        WriteSilence(context.table, VELTO_ID_SPEAKER);
        context.environment.Sleep(unitTime);
    }
    context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
    CallAllAsUsual(context);
}

// Reads into a buffer that is inaccessible after each call: a module that fills it later faults.
void CheckReadBuffers(Context &context)
{
    constexpr int reads = 60;
    CallAllAsUsual(context);
    context.Step("OpenAudioRecord", {"THR-3"});
    context.table.OpenAudioRecord(VELTO_ID_MIC, 4, nullptr, nullptr, &UsualParameters());
    for (int number = 0; number < reads; ++number) {
        const auto buffer = context.environment.Guarded(bufferBytes);
        const GuardedRecord<StreamFrameHeader> header(context.environment, {0, VELTO_READ_SIZE, 0},
                                                      bytesToSpare);
        const GuardedRecord<StreamFrame> frame(context.environment, {buffer->Data(), {}, header.Get()},
                                               bytesToSpare);
        context.Step("ReadStreamBuffer while the memory of earlier reads is inaccessible", {"OWN-1"});
        context.table.ReadStreamBuffer(VELTO_ID_MIC, 4, nullptr, frame.Get());
        TakeAway({buffer.get(), &header.Memory(), &frame.Memory()});
        context.environment.Sleep(unitTime);
    }
    context.Step("CloseAudioRecord", {"THR-3"});
    context.table.CloseAudioRecord(VELTO_ID_MIC, 4);
}

} // namespace

std::span<const Check> OwnershipChecks()
{
    static const std::array checks{
        Check{"ownership.written-frame", 4, {"OWN-2", "THR-3"}, 30s, CheckWrittenFrame},
        Check{"ownership.parameter-lists", 4, {"OWN-10", "THR-3"}, 30s, CheckParameterLists},
        Check{"ownership.listener-record", 4, {"OWN-10"}, 10s, CheckListenerRecord},
        Check{"ownership.refused-calls", 4, {"OWN-9", "THR-3"}, 30s, CheckRefusedCalls},
        Check{"ownership.readings", 4, {"OWN-3", "THR-3"}, 60s, CheckReadings},
        Check{"ownership.written-units-taken-away", 4, {"OWN-1", "THR-3"}, 60s, CheckWrittenUnits},
        Check{"ownership.lists-and-ids-taken-away", 4, {"OWN-1", "THR-3"}, 60s, CheckListsAndIds},
        Check{"ownership.read-buffers-taken-away", 4, {"OWN-1", "THR-3"}, 60s, CheckReadBuffers},
    };
    return checks;
}

} // namespace velto::check
