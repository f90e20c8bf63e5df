#include "check/portable/recording.h"

#include <algorithm>
#include <utility>

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr int32_t ok = VELTO_OK; // with the type of a result

// Larger than a packet may be, so that a module that writes too many bytes is reported and does not crash.
// The inaccessible page behind it stops one that writes without bounds.
constexpr size_t bufferBytes = 4096;
constexpr uint8_t untouched = 0xA5;
constexpr int32_t streamTypeOfHost = 0x13572468;
constexpr uint32_t reservedOfHost = 0x24681357;

constexpr auto longestWaitForPacket = 10s;
constexpr int mostReadsForPacket = 20000; // ends the wait if the clock does not run

} // namespace

Recording::Recording(Context &context, std::string id)
    : m_context(context), m_id(std::move(id)), m_memory(context.environment.Guarded(bufferBytes))
{
}

int32_t Recording::Open() const
{
    // The module requires a list and does not read it.
    const AudioProfileList list{};
    return m_context.table.OpenAudioRecord(m_id.c_str(), Length(), nullptr, nullptr, &list);
}

int32_t Recording::Close() const
{
    return m_context.table.CloseAudioRecord(m_id.c_str(), Length());
}

void Recording::ExpectOpens() const
{
    m_context.ExpectEqual(Open(), ok, "MIC-1", "OpenAudioRecord for \"{}\" returned", m_id);
}

void Recording::ExpectCloses() const
{
    m_context.ExpectEqual(Close(), ok, "MIC-7", "CloseAudioRecord for \"{}\" returned", m_id);
}

Recording::Outcome Recording::Read(uint32_t requested)
{
    std::fill_n(m_memory->Data(), bufferBytes, untouched);
    StreamFrameHeader header{streamTypeOfHost, requested, reservedOfHost};
    StreamFrame frame{m_memory->Data(), {}, &header};
    const int32_t result = m_context.table.ReadStreamBuffer(m_id.c_str(), Length(), nullptr, &frame);
    if (!m_context.ExpectEqual(result, ok, "MIC-3", "ReadStreamBuffer for \"{}\" returned", m_id)) {
        return Outcome::WRONG;
    }
    const bool isFrameSame = frame.data == m_memory->Data() && frame.header == &header &&
                             header.streamType == streamTypeOfHost && header.reserved == reservedOfHost;
    m_context.Expect(isFrameSame, "OWN-3", "a read changed more of the frame than the size and the buffer");
    return Classify(header.size, requested);
}

Recording::Outcome Recording::Classify(uint32_t size, uint32_t requested)
{
    if (size == 0 || size == requested) {
        m_context.Expect(IsUntouched(0), "OWN-3", "a read without a packet wrote to the buffer");
        return size == 0 ? Outcome::NOTHING : Outcome::STOPPED;
    }
    if (!m_context.Expect(
            size <= VELTO_MAX_PACKET_BYTES, "MIC-2",
            fmt::format("a packet has {} bytes; {} is the most", size, VELTO_MAX_PACKET_BYTES))) {
        return Outcome::WRONG;
    }
    m_packetBytes = size;
    m_context.Expect(IsUntouched(size), "OWN-3", "a read wrote behind the packet that it delivered");
    return Outcome::PACKET;
}

// Whether nothing was written from this byte on.
bool Recording::IsUntouched(size_t first) const
{
    const uint8_t *const data = m_memory->Data();
    return std::all_of(data + first, data + bufferBytes, [](uint8_t byte) { return byte == untouched; });
}

bool Recording::ReadUntilPacket(uint32_t requested)
{
    const auto end = m_context.environment.Now() + longestWaitForPacket;
    for (int left = mostReadsForPacket; left > 0 && m_context.environment.Now() < end; --left) {
        const Outcome outcome = Read(requested);
        if (outcome == Outcome::PACKET) {
            return true;
        }
        if (outcome == Outcome::WRONG) {
            throw CheckEnded{};
        }
        m_context.environment.Sleep(5ms); // not every read waits, and simulated time passes in sleeps only
    }
    return false;
}

} // namespace velto::check
