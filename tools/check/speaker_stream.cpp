#include "check/speaker_stream.h"

#include <windows.h>

#include <chrono>
#include <iterator>
#include <utility>

#include "check/portable/speaker_calls.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr uint8_t silentUnit[] = VELTO_SILENT_UNIT;
constexpr size_t warmUpUnits = size_t{2} * VELTO_CUSHION_UNITS;
// A loudspeaker starts in some 100 ms; more units than the queue takes must not come before.
constexpr auto startTime = 2s;

} // namespace

uint64_t PerformanceTime()
{
    LARGE_INTEGER ticks;
    LARGE_INTEGER ticksPerSecond;
    QueryPerformanceCounter(&ticks);
    QueryPerformanceFrequency(&ticksPerSecond);
    const auto seconds = static_cast<uint64_t>(ticks.QuadPart / ticksPerSecond.QuadPart);
    const auto rest = static_cast<uint64_t>(ticks.QuadPart % ticksPerSecond.QuadPart);
    return seconds * 10'000'000 + rest * 10'000'000 / static_cast<uint64_t>(ticksPerSecond.QuadPart);
}

SpeakerStream::SpeakerStream(Context &context, std::string id) : m_context(context), m_id(std::move(id)) {}

void SpeakerStream::SetRate(uint32_t rateHz)
{
    SetParameter(m_context.table, m_id, VELTO_KEY_SAMPLE_RATE, rateHz);
}

void SpeakerStream::SetChannels(uint32_t channels)
{
    SetParameter(m_context.table, m_id, VELTO_KEY_CHANNEL, channels);
}

void SpeakerStream::Write(std::span<const uint8_t> unit)
{
    m_refused += WriteUnit(m_context.table, m_id, unit) != VELTO_OK ? 1 : 0;
}

void SpeakerStream::WriteAtPace(std::span<const std::vector<uint8_t>> units)
{
    check::WriteAtPace(m_context.environment, units.size(), [&](size_t i) { Write(units[i]); });
}

void SpeakerStream::WriteSilenceAtPace(size_t units)
{
    WriteAtPace(AacUnits(units, {std::begin(silentUnit), std::end(silentUnit)}));
}

void SpeakerStream::WarmUp()
{
    SetRate(VELTO_SAMPLE_RATE_HZ);
    WriteSilenceAtPace(warmUpUnits);
    m_context.environment.Sleep(startTime);
}

void SpeakerStream::WarnAboutRefusals()
{
    if (m_refused > 0) {
        m_context.Warn(fmt::format("{} writes for \"{}\" were refused", m_refused, m_id));
    }
}

} // namespace velto::check
