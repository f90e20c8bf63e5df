#include "storm.h"

#include <array>
#include <chrono>

namespace velto_test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t mostUnitsAtOnce = 30;
constexpr uint32_t longestRecordMs = 3000; // the first packet takes up to a second
constexpr uint32_t faultInterval = 16;     // on average, every 16th call has a certain fault

void OnEvent(const char *, uint32_t, int32_t) {}

uint32_t Below(std::mt19937 &random, uint32_t limit)
{
    return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random);
}

void Pause(std::mt19937 &random, int mostMs)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(Below(random, static_cast<uint32_t>(mostMs) + 1)));
}

} // namespace

void CallCounts::Note(const std::string &slot, int32_t result, int32_t documented)
{
    const std::lock_guard lock(m_mutex);
    ++m_counts[slot][result];
    m_different += result == documented ? 0 : 1;
}

Json CallCounts::Report() const
{
    const std::lock_guard lock(m_mutex);
    Json report;
    for (const auto &[slot, results] : m_counts) {
        for (const auto &[result, calls] : results) {
            report[slot][std::to_string(result)] = calls;
        }
    }
    return report;
}

uint64_t CallCounts::Different() const
{
    const std::lock_guard lock(m_mutex);
    return m_different;
}

Storm::Storm(const AudioHandlerTable &table, const AacUnits &units, CallCounts &counts, uint32_t seed)
    : m_table(table), m_units(units), m_counts(counts)
{
    const auto add = [&](int mostPauseMs, std::function<void(Random &)> act) {
        m_threads.emplace_back(&Storm::Repeat, this, ++seed, mostPauseMs, std::move(act));
    };
    add(300, [this, id = DeviceId(VELTO_ID_SPEAKER)](Random &random) { Write(id, random); });
    add(300, [this, id = DeviceId(VELTO_ID_MODEM_SPEAKER)](Random &random) { Write(id, random); });
    add(200, [this](Random &random) { SetParameters(random); });
    add(200, [this](Random &random) { CloseTrack(random); });
    add(50, [this](Random &) { AskCapabilities(); });
    add(100, [this](Random &random) { ChangeListener(random); });
    add(200, [this](Random &random) { Record(random); });
    add(5, [this](Random &) {
        Microphone microphone(m_table, VELTO_ID_MODEM_MIC);
        ReadOnce(microphone);
    });
}

Storm::~Storm()
{
    Stop();
}

void Storm::Stop()
{
    m_stopped = true;
    for (std::thread &thread : m_threads) {
        thread.join();
    }
    m_threads.clear();
    for (const DeviceId &id : {DeviceId(VELTO_ID_SPEAKER), DeviceId(VELTO_ID_MODEM_SPEAKER)}) {
        m_counts.Note("CloseAudioTrack", m_table.CloseAudioTrack(id.Text(), id.Length()), VELTO_OK);
    }
    const AudioListener none{nullptr, nullptr};
    m_counts.Note("RegisterListener", m_table.RegisterListener(&none), VELTO_OK);
}

void Storm::Repeat(uint32_t seed, int mostPauseMs, const std::function<void(Random &)> &act)
{
    Random random(seed);
    while (!m_stopped) {
        act(random);
        Pause(random, mostPauseMs);
    }
}

// Writes consecutive units of the stream at about the pace of playing.
void Storm::Write(const DeviceId &id, Random &random)
{
    size_t place = Below(random, static_cast<uint32_t>(m_units.size()));
    for (uint32_t left = 1 + Below(random, mostUnitsAtOnce); left > 0 && !m_stopped; --left) {
        std::vector<uint8_t> unit = m_units[place];
        place = (place + 1) % m_units.size();
        if (Below(random, faultInterval) == 0) {
            unit[Below(random, static_cast<uint32_t>(unit.size()))] ^=
                static_cast<uint8_t>(1U << Below(random, 8));
        }
        if (Below(random, faultInterval) == 0) {
            unit.resize(1 + Below(random, static_cast<uint32_t>(unit.size())));
        }
        const bool isWrong = Below(random, faultInterval) == 0;
        StreamFrameHeader header{static_cast<int32_t>(Below(random, 8)), static_cast<uint32_t>(unit.size()),
                                 0};
        StreamFrame frame{unit.data(), {}, &header};
        const int32_t result =
            m_table.WriteStreamBuffer(id.Text(), id.Length() + (isWrong ? 1 : 0), nullptr, &frame);
        // While another thread opens the devices, the module drops the frame and checks nothing.
        m_counts.Note("WriteStreamBuffer", result,
                      isWrong && result != VELTO_OK ? VELTO_ERROR_INVALID : VELTO_OK);
        Pause(random, 40);
    }
}

void Storm::SetParameters(Random &random)
{
    constexpr std::array rates{8000U, 22050U, 44100U, 48000U, 96000U};
    constexpr std::array channels{uint32_t{VELTO_CHANNEL_MONO}, uint32_t{VELTO_CHANNEL_STEREO}};
    constexpr std::array formats{uint32_t{VELTO_FORMAT_S16}, uint32_t{VELTO_FORMAT_S32}};
    const auto anyOf = [&random](const auto &values) {
        return values[Below(random, static_cast<uint32_t>(values.size()))];
    };
    const AudioProfileEntry entries[] = {
        {VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, anyOf(rates)},
        {VELTO_KEY_CHANNEL, sizeof(VELTO_KEY_CHANNEL) - 1, anyOf(channels)},
        {VELTO_KEY_FORMAT, sizeof(VELTO_KEY_FORMAT) - 1, anyOf(formats)},
    };
    const AudioProfileList list{Below(random, 4), 0, entries};
    const DeviceId id(Below(random, 2) == 0 ? VELTO_ID_SPEAKER : VELTO_ID_MODEM_SPEAKER);
    m_counts.Note("SetAudioParameter",
                  m_table.SetAudioParameter(id.Text(), id.Length(), nullptr, nullptr, &list),
                  list.count == 0 ? VELTO_ERROR_INVALID : VELTO_OK);
}

void Storm::CloseTrack(Random &random)
{
    const DeviceId id(Below(random, 2) == 0 ? VELTO_ID_SPEAKER : VELTO_ID_MODEM_SPEAKER);
    m_counts.Note("CloseAudioTrack", m_table.CloseAudioTrack(id.Text(), id.Length()), VELTO_OK);
}

void Storm::AskCapabilities()
{
    AudioCapabilityItem *items = nullptr;
    uint32_t count = 0;
    m_counts.Note("GetAudioCapability", m_table.GetAudioCapability(&items, &count), VELTO_OK);
    m_table.Release(VELTO_RELEASE_CAPABILITIES, items, count);
}

void Storm::ChangeListener(Random &random)
{
    const AudioListener listener{Below(random, 2) == 0 ? nullptr : OnEvent, nullptr};
    m_counts.Note("RegisterListener", m_table.RegisterListener(&listener), VELTO_OK);
}

void Storm::Record(Random &random)
{
    Microphone microphone(m_table, VELTO_ID_MIC);
    m_counts.Note("OpenAudioRecord", microphone.Open(), VELTO_OK);
    const auto end = Clock::now() + std::chrono::milliseconds(Below(random, longestRecordMs));
    while (Clock::now() < end && !m_stopped) {
        ReadOnce(microphone);
        Pause(random, 10);
    }
    m_counts.Note("CloseAudioRecord", microphone.Close(), VELTO_OK);
}

void Storm::ReadOnce(Microphone &microphone)
{
    m_packets += microphone.Read() == Microphone::Outcome::PACKET ? 1 : 0;
    m_counts.Note("ReadStreamBuffer", microphone.Result(), VELTO_OK);
}

} // namespace velto_test
