#include "check/portable/storm_caller.h"

#include <array>
#include <chrono>

namespace velto::check {
namespace {

constexpr uint32_t mostUnitsAtOnce = 30;
constexpr uint32_t longestRecordMs = 3000; // real devices take up to a second to deliver the first packet
constexpr uint32_t mostReads = 2000;       // of a recording: ends it also while the clock is not moving
constexpr uint32_t faultInterval = 10;     // each kind of fault is in one call of ten, on average

const std::array<std::string, 2> speakers{VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER};
const std::array<std::string, 2> microphones{VELTO_ID_MIC, VELTO_ID_MODEM_MIC};

void OnEvent(const char *, uint32_t, int32_t) {}

uint32_t Length(const std::string &id)
{
    return static_cast<uint32_t>(id.size());
}

std::chrono::microseconds Microseconds(uint32_t milliseconds, double pace)
{
    return std::chrono::microseconds(static_cast<int64_t>(milliseconds * 1000.0 * pace));
}

} // namespace

void StormCaller::Note(std::string_view slot, int32_t result, bool isDocumented)
{
    const std::lock_guard lock(m_mutex);
    m_figures.Note(slot, result, isDocumented);
}

StormFigures StormCaller::Figures() const
{
    const std::lock_guard lock(m_mutex);
    return m_figures;
}

void StormCaller::Pause(uint32_t longestMs)
{
    const auto longest = static_cast<uint32_t>(Microseconds(longestMs, m_pace).count());
    m_time.sleep(std::chrono::microseconds(random.Below(longest + 1)));
}

void StormCaller::Write(const std::string &id)
{
    size_t place = random.Below(static_cast<uint32_t>(m_units.size()));
    for (uint32_t left = 1 + random.Below(mostUnitsAtOnce); left > 0 && !m_stopped; --left) {
        WriteUnit(id, m_units[place]);
        place = (place + 1) % m_units.size();
        Pause(40);
    }
}

void StormCaller::WriteUnit(const std::string &id, std::vector<uint8_t> unit)
{
    if (random.OneIn(faultInterval)) {
        unit[random.Below(static_cast<uint32_t>(unit.size()))] ^= static_cast<uint8_t>(1 + random.Below(255));
    }
    if (random.OneIn(faultInterval)) {
        unit.resize(1 + random.Below(static_cast<uint32_t>(unit.size())));
    }
    const bool isWrongLength = random.OneIn(faultInterval);
    const bool isWithoutHeader = random.OneIn(faultInterval);
    StreamFrameHeader header{static_cast<int32_t>(random.Below(8)), static_cast<uint32_t>(unit.size()), 0};
    StreamFrame frame{unit.data(), {}, isWithoutHeader ? nullptr : &header};
    const int32_t result =
        m_table.WriteStreamBuffer(id.c_str(), Length(id) + (isWrongLength ? 1 : 0), nullptr, &frame);
    // While another thread starts the speakers, the module drops the unit and checks nothing.
    Note("WriteStreamBuffer", result,
         result == VELTO_OK || ((isWrongLength || isWithoutHeader) && result == VELTO_ERROR_INVALID));
}

void StormCaller::SetParameters()
{
    constexpr std::array rates{8000U, 22050U, 44100U, 48000U, 96000U};
    constexpr std::array channels{uint32_t{VELTO_CHANNEL_MONO}, uint32_t{VELTO_CHANNEL_STEREO}};
    constexpr std::array formats{uint32_t{VELTO_FORMAT_S16}, uint32_t{VELTO_FORMAT_S32}};
    const AudioProfileEntry entries[] = {
        {VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, random.AnyOf<uint32_t>(rates)},
        {VELTO_KEY_CHANNEL, sizeof(VELTO_KEY_CHANNEL) - 1, random.AnyOf<uint32_t>(channels)},
        {VELTO_KEY_FORMAT, sizeof(VELTO_KEY_FORMAT) - 1, random.AnyOf<uint32_t>(formats)},
    };
    const AudioProfileList list{random.Below(4), 0, entries};
    const auto &id = random.AnyOf<std::string>(speakers);
    const int32_t result = m_table.SetAudioParameter(id.c_str(), Length(id), nullptr, nullptr, &list);
    Note("SetAudioParameter", result, result == (list.count == 0 ? VELTO_ERROR_INVALID : VELTO_OK));
}

void StormCaller::CloseTrack()
{
    const auto &id = random.AnyOf<std::string>(speakers);
    const bool isWrongLength = random.OneIn(faultInterval);
    const int32_t result = m_table.CloseAudioTrack(id.c_str(), Length(id) - (isWrongLength ? 1 : 0));
    Note("CloseAudioTrack", result, result == (isWrongLength ? VELTO_ERROR_INVALID : VELTO_OK));
}

void StormCaller::QueryCapabilities()
{
    AudioCapabilityItem *items = nullptr;
    uint32_t count = 0;
    const int32_t result = m_table.GetAudioCapability(&items, &count);
    Note("GetAudioCapability", result,
         result == VELTO_OK && count == 4 && items[0].name == std::string_view(VELTO_ID_SPEAKER));
    m_table.Release(VELTO_RELEASE_CAPABILITIES, items, count);
}

void StormCaller::ChangeListener()
{
    const AudioListener listener{random.OneIn(2) ? nullptr : OnEvent, nullptr};
    const int32_t result = m_table.RegisterListener(&listener);
    Note("RegisterListener", result, result == VELTO_OK);
}

void StormCaller::Record()
{
    const auto &id = random.AnyOf<std::string>(microphones);
    const AudioProfileList profiles{};
    const int32_t opened = m_table.OpenAudioRecord(id.c_str(), Length(id), nullptr, nullptr, &profiles);
    Note("OpenAudioRecord", opened, opened == VELTO_OK);
    const auto end = m_time.now() + Microseconds(random.Below(longestRecordMs), m_pace);
    for (uint32_t left = mostReads; left > 0 && m_time.now() < end && !m_stopped; --left) {
        Read();
        Pause(10);
    }
    const int32_t closed = m_table.CloseAudioRecord(id.c_str(), Length(id));
    Note("CloseAudioRecord", closed, closed == VELTO_OK);
}

void StormCaller::Read()
{
    const auto &id = random.AnyOf<std::string>(microphones);
    // As long as the longest packet. On the heap, where AddressSanitizer reports a write past the end.
    std::vector<uint8_t> data(VELTO_MAX_PACKET_BYTES);
    // The module only derives its waiting time from the size: 22 ms, or 3 ms.
    const uint32_t requested = random.OneIn(2) ? uint32_t{VELTO_READ_SIZE} : 200U;
    const bool isWithoutData = random.OneIn(faultInterval);
    StreamFrameHeader header{0, requested, 0};
    StreamFrame frame{isWithoutData ? nullptr : data.data(), {}, &header};
    const int32_t result = m_table.ReadStreamBuffer(id.c_str(), Length(id), nullptr, &frame);
    const bool isUnchanged = header.size == requested;
    const bool isDocumented = isWithoutData
                                  ? result == VELTO_ERROR_NULL_POINTER
                                  : result == VELTO_OK && (isUnchanged || header.size <= data.size());
    Note("ReadStreamBuffer", result, isDocumented);
    if (result == VELTO_OK && !isUnchanged && header.size != 0) {
        const std::lock_guard lock(m_mutex);
        m_figures.NotePacket();
    }
}

void StormCaller::CloseAll()
{
    for (const std::string &id : speakers) {
        const int32_t result = m_table.CloseAudioTrack(id.c_str(), Length(id));
        Note("CloseAudioTrack", result, result == VELTO_OK);
    }
    const AudioListener none{nullptr, nullptr};
    const int32_t result = m_table.RegisterListener(&none);
    Note("RegisterListener", result, result == VELTO_OK);
}

} // namespace velto::check
