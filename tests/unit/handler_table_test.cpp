#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "failing_throwing_new.h"
#include "handler/listener.h"
#include "handler/speaker_track.h"
#include "log_lines.h"
#include "reset.h"
#include "tests/fakes/fake_windows.h"
#include "velto/audio_handler.h"

namespace {

using namespace velto_test;

constexpr char guardTag[] = "`anonymous-namespace'::Guarded";

struct Event {
    std::string id;
    uint32_t idLength;
    int32_t code;
};
Event lastEvent;
int events = 0;

void Record(const char *id, uint32_t idLength, int32_t code)
{
    lastEvent = {id, idLength, code};
    ++events;
}

class HandlerTable : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::ResetAll();
        events = 0;
    }

    void TearDown() override
    {
        const AudioListener none{nullptr, nullptr};
        velto::VeltoRegisterListener(&none);
    }
};

TEST_F(HandlerTable, EntryRefusesNullTableWithoutSideEffects)
{
    EXPECT_EQ(VELTOGetAudioHandler(nullptr), -2000);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(fakewin::CreatedEvents().empty());
}

TEST_F(HandlerTable, EntryOverwritesAllElevenSlots)
{
    AudioHandlerTable table;
    std::memset(&table, 0xA5, sizeof table);
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    void *slots[11];
    static_assert(sizeof slots == sizeof table);
    std::memcpy(slots, &table, sizeof table);
    void *garbage;
    std::memset(&garbage, 0xA5, sizeof garbage);
    for (void *slot : slots) {
        EXPECT_NE(slot, garbage);
        EXPECT_NE(slot, nullptr);
    }
    EXPECT_EQ(slots[1], slots[10]) << "both reserved slots are the same function";
}

// Calls slot `index` with invalid arguments and returns the tag of the last line that the call logs; empty
// without a line. The assertions in audio_handler.h tie each member's name to its index.
std::string TagOfSlot(const AudioHandlerTable &table, size_t index)
{
    const std::function<void()> calls[11] = {
        [&] { table.GetAudioCapability(nullptr, nullptr); },
        [&] { table.NoOperation1(); },
        [&] { table.SetAudioParameter(nullptr, 0, nullptr, nullptr, nullptr); },
        [&] { table.WriteStreamBuffer(nullptr, 0, nullptr, nullptr); },
        [&] { table.CloseAudioTrack(nullptr, 0); },
        [&] { table.OpenAudioRecord(nullptr, 0, nullptr, nullptr, nullptr); },
        [&] { table.ReadStreamBuffer(nullptr, 0, nullptr, nullptr); },
        [&] { table.CloseAudioRecord(nullptr, 0); },
        [&] { table.Release(0, nullptr, 0); },
        [&] { table.RegisterListener(nullptr); },
        [&] { table.NoOperation10(); },
    };
    ClearLog();
    calls[index]();
    const auto entries = Log();
    return entries.empty() ? "" : entries.back().tag;
}

TEST_F(HandlerTable, EachSlotCallsItsOwnFunction)
{
    AudioHandlerTable table;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    velto::DeviceState = velto::DEVICE_READY; // so that the write does not start the speakers
    const char *functions[11] = {
        "VeltoGetAudioCapability",
        "",
        "VeltoSetAudioParameter",
        "VeltoWriteStreamBuffer",
        "VeltoCloseAudioTrack",
        "VeltoOpenAudioRecord",
        "VeltoReadStreamBuffer",
        "VeltoCloseAudioRecord",
        "VeltoRelease",
        "VeltoRegisterListener",
        "",
    };
    for (size_t slot = 0; slot < 11; ++slot) {
        const std::string function = functions[slot];
        const std::string expected = function.empty() ? "" : "`anonymous-namespace'::" + function;
        EXPECT_EQ(TagOfSlot(table, slot), expected) << "slot " << slot;
    }
    velto::DeviceState = velto::DEVICE_NOT_INITIALISED;
}

TEST_F(HandlerTable, TurnsAnyExceptionIntoStatusAndLogLine)
{
    AudioHandlerTable table;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    const AudioListener throwsAnInteger{[](const char *, uint32_t, int32_t) { throw 42; }, nullptr};
    ASSERT_EQ(table.RegisterListener(&throwsAnInteger), 0);
    EXPECT_EQ(table.CloseAudioTrack("mic1", 4), -2000);
    ExpectLine(errorLevel, L"call failed: unknown exception", guardTag);
    const AudioListener throwsAnException{
        [](const char *, uint32_t, int32_t) { throw std::runtime_error("out of order"); }, nullptr};
    ASSERT_EQ(table.RegisterListener(&throwsAnException), 0);
    EXPECT_EQ(table.CloseAudioTrack("mic1", 4), -2000);
    ExpectLine(errorLevel, L"call failed: out of order", guardTag);
}

// Makes one allocation of the table's exception handler fail while it logs the exception.
std::optional<FailingThrowingNew> noMemory;
int failingAllocation = 0;

void ThrowAndRunOutOfMemory(const char *, uint32_t, int32_t)
{
    noMemory.emplace(failingAllocation);
    throw 42;
}

TEST_F(HandlerTable, ReturnsStatusWhenErrorLineRunsOutOfMemory)
{
    AudioHandlerTable table;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    const AudioListener listener{ThrowAndRunOutOfMemory, nullptr};
    ASSERT_EQ(table.RegisterListener(&listener), 0);
    bool hasFailed = true;
    for (failingAllocation = 1; hasFailed; ++failingAllocation) {
        EXPECT_EQ(table.CloseAudioTrack("mic1", 4), -2000);
        ASSERT_TRUE(noMemory.has_value());
        hasFailed = noMemory->HasFailed();
        noMemory.reset();
    }
    EXPECT_GT(failingAllocation, 2);
}

TEST_F(HandlerTable, ReservedSlotsReturnZeroForAnyArguments)
{
    AudioHandlerTable table;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    EXPECT_EQ(table.NoOperation1(), 0);
    using AnyArguments = int32_t (*)(const char *, uint32_t, void *, void *, void *);
    const auto any = reinterpret_cast<AnyArguments>(reinterpret_cast<void *>(table.NoOperation10));
    EXPECT_EQ(any("speaker1", 99, nullptr, &table, nullptr), 0);
}

TEST_F(HandlerTable, EntryCreatesOnlyOneUnsignalledAutoResetEvent)
{
    AudioHandlerTable table;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    const auto created = fakewin::CreatedEvents();
    ASSERT_EQ(created.size(), 1u);
    EXPECT_FALSE(created[0].manualReset);
    EXPECT_FALSE(created[0].initialState);
    EXPECT_TRUE(created[0].plain);
    EXPECT_EQ(fakewin::Count(fakewin::Call::ResetEvent), 1);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CreateThread), 0);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CoCreateInstance), 0);
    EXPECT_EQ(velto::DeviceState, -1);
}

TEST_F(HandlerTable, SecondEntryCallReplacesEventWithoutClosingFirst)
{
    AudioHandlerTable table;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    const HANDLE first = velto::IdleEvent;
    ASSERT_EQ(VELTOGetAudioHandler(&table), 0);
    EXPECT_NE(velto::IdleEvent.load(), first);
    EXPECT_EQ(fakewin::Count(fakewin::Call::CloseHandle), 0);
}

TEST_F(HandlerTable, RefusesNullListenerAndKeepsEarlierOne)
{
    const AudioListener listener{Record, nullptr};
    ASSERT_EQ(velto::VeltoRegisterListener(&listener), 0);
    EXPECT_EQ(velto::VeltoRegisterListener(nullptr), -2000);
    ExpectLine(errorLevel, L"VELTO Listener is null", "`anonymous-namespace'::VeltoRegisterListener");
    velto::SendEvent("mic1", 4, 4);
    EXPECT_EQ(events, 1);
    EXPECT_EQ(lastEvent.id, "mic1");
    EXPECT_EQ(lastEvent.idLength, 4u);
    EXPECT_EQ(lastEvent.code, 4);
}

TEST_F(HandlerTable, RemovesListenerOnRecordOfNulls)
{
    const AudioListener listener{Record, &events};
    const AudioListener none{nullptr, nullptr};
    ASSERT_EQ(velto::VeltoRegisterListener(&listener), 0);
    velto::SendEvent("mic1", 4, 3);
    EXPECT_EQ(events, 1);
    ASSERT_EQ(velto::VeltoRegisterListener(&none), 0);
    velto::SendEvent("mic1", 4, 3);
    EXPECT_EQ(events, 1);
}

TEST_F(HandlerTable, SendsEventsOnlyToLatestListener)
{
    static int replacedEvents = 0;
    const AudioListener replaced{[](const char *, uint32_t, int32_t) { ++replacedEvents; }, nullptr};
    const AudioListener latest{Record, nullptr};
    ASSERT_EQ(velto::VeltoRegisterListener(&replaced), 0);
    ASSERT_EQ(velto::VeltoRegisterListener(&latest), 0);
    velto::SendEvent("mic1", 4, 3);
    EXPECT_EQ(events, 1);
    EXPECT_EQ(replacedEvents, 0);
}

} // namespace
