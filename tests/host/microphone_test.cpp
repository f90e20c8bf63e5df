#include "velto-host/portable/microphone.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Outcome = Microphone::Outcome;

// The fake module's behaviour in one read: changes the frame and returns the result.
using Reading = std::function<int32_t(StreamFrame &)>;

// The table's functions have no context argument, so the fake module's state is global.
struct FakeModule {
    std::vector<std::string> calls;
    uint32_t askedFor = 0;
    int32_t result = VELTO_OK;
    Reading reading = [](StreamFrame &) { return VELTO_OK; };
};
FakeModule fake;

// Describes a call; a "?" marks a wrong id length.
std::string Named(const char *slot, const char *id, uint32_t idLength)
{
    return std::string(slot) + " " + std::string(id, idLength) + (std::strlen(id) == idLength ? "" : "?");
}

int32_t OpenRecord(const char *id, uint32_t idLength, void *, void *, const AudioProfileList *list)
{
    fake.calls.push_back(Named("open", id, idLength) + (list != nullptr ? "" : " without a list"));
    return fake.result;
}

int32_t CloseRecord(const char *id, uint32_t idLength)
{
    fake.calls.push_back(Named("close", id, idLength));
    return fake.result;
}

int32_t ReadBuffer(const char *, uint32_t, void *, StreamFrame *frame)
{
    fake.askedFor = frame->header->size;
    return fake.reading(*frame);
}

class Microphone : public testing::Test {
protected:
    void SetUp() override
    {
        fake = {};
        m_table.OpenAudioRecord = OpenRecord;
        m_table.ReadStreamBuffer = ReadBuffer;
        m_table.CloseAudioRecord = CloseRecord;
    }

    AudioHandlerTable m_table{};
    host::Microphone m_microphone{m_table, VELTO_ID_MODEM_MIC};
};

TEST_F(Microphone, OpensAndClosesUnderItsIdWithProfileList)
{
    EXPECT_EQ(m_microphone.Open(), VELTO_OK);
    EXPECT_EQ(m_microphone.Close(), VELTO_OK);
    EXPECT_THAT(fake.calls, ElementsAre("open ModemMic1", "close ModemMic1"));
}

TEST_F(Microphone, ReturnsModuleResultOfOpenAndClose)
{
    fake.result = VELTO_ERROR_INVALID;
    EXPECT_EQ(m_microphone.Open(), VELTO_ERROR_INVALID);
    EXPECT_EQ(m_microphone.Close(), VELTO_ERROR_INVALID);
}

TEST_F(Microphone, ReturnsPacketThatModuleWrote)
{
    fake.reading = [](StreamFrame &frame) {
        std::memcpy(frame.data, "abc", 3);
        frame.header->size = 3;
        return VELTO_OK;
    };
    EXPECT_EQ(m_microphone.Read(), Outcome::PACKET);
    EXPECT_THAT(m_microphone.Packet(), ElementsAre('a', 'b', 'c'));
}

TEST_F(Microphone, AcceptsLargestPossiblePacket)
{
    fake.reading = [](StreamFrame &frame) {
        std::memset(frame.data, 7, 1536);
        frame.header->size = 1536;
        return VELTO_OK;
    };
    EXPECT_EQ(m_microphone.Read(), Outcome::PACKET);
    EXPECT_EQ(m_microphone.Packet().size(), 1536u);
}

TEST_F(Microphone, RequestsMoreBytesThanLargestPacket)
{
    m_microphone.Read();
    EXPECT_GT(fake.askedFor, 1536u);
}

TEST_F(Microphone, SizeZeroMeansNoPacketYet)
{
    fake.reading = [](StreamFrame &frame) {
        frame.header->size = 0;
        return VELTO_OK;
    };
    EXPECT_EQ(m_microphone.Read(), Outcome::NOTHING);
    EXPECT_THAT(m_microphone.Packet(), IsEmpty());
}

TEST_F(Microphone, UnchangedSizeMeansCaptureStopped)
{
    fake.reading = [](StreamFrame &) { return VELTO_OK; };
    EXPECT_EQ(m_microphone.Read(), Outcome::STOPPED);
    EXPECT_THAT(m_microphone.Packet(), IsEmpty());
}

TEST_F(Microphone, ReturnsNoPacketWhenReadFails)
{
    fake.reading = [](StreamFrame &frame) {
        frame.header->size = 100;
        return VELTO_ERROR_NULL_POINTER;
    };
    EXPECT_EQ(m_microphone.Read(), Outcome::REFUSED);
    EXPECT_EQ(m_microphone.Result(), VELTO_ERROR_NULL_POINTER);
    EXPECT_THAT(m_microphone.Packet(), IsEmpty());
}

TEST_F(Microphone, RefusesSizeAboveLargestPacket)
{
    for (const uint32_t size : {1537u, 8192u, 8193u, 0xFFFFFFFFu}) {
        fake.reading = [size](StreamFrame &frame) {
            frame.header->size = size;
            return VELTO_OK;
        };
        EXPECT_EQ(m_microphone.Read(), Outcome::REFUSED) << size;
        EXPECT_NE(m_microphone.Result(), VELTO_OK);
        EXPECT_THAT(m_microphone.Packet(), IsEmpty());
    }
}

TEST_F(Microphone, ResetsSizeAndPacketBeforeEachRead)
{
    int reads = 0;
    fake.reading = [&](StreamFrame &frame) {
        frame.header->size = ++reads == 1 ? 5 : 0;
        return VELTO_OK;
    };
    EXPECT_EQ(m_microphone.Read(), Outcome::PACKET);
    const uint32_t first = fake.askedFor;
    EXPECT_EQ(m_microphone.Read(), Outcome::NOTHING);
    EXPECT_EQ(fake.askedFor, first);
    EXPECT_THAT(m_microphone.Packet(), IsEmpty());
}

} // namespace
} // namespace velto::host
