#include "check/speaker_stream.h"

#include <windows.h>

#include <chrono>
#include <iterator>
#include <utility>

#include "velto-host/portable/pacer.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr auto unitTime = std::chrono::nanoseconds(1s) * VELTO_UNIT_SAMPLES / VELTO_SAMPLE_RATE_HZ;
constexpr uint8_t silentUnit[] = VELTO_SILENT_UNIT;
constexpr size_t warmUpUnits = 2 * VELTO_CUSHION_UNITS;
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

void WriteAtPace(Environment &environment, size_t count, const std::function<void(size_t)> &write)
{
    host::Pacer pacer(unitTime, VELTO_CUSHION_UNITS);
    for (size_t i = 0; i < count; ++i) {
        const auto now = environment.Now();
        const auto wait = pacer.Due(now) - now;
        if (wait > 0ns) {
            environment.Sleep(std::chrono::ceil<std::chrono::milliseconds>(wait));
        }
        write(i);
        pacer.Advance();
    }
}

SpeakerStream::SpeakerStream(Context &context, std::string id) : m_context(context), m_id(std::move(id)) {}

void SpeakerStream::SetRate(uint32_t rateHz)
{
    const AudioProfileEntry rate{VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, rateHz};
    const AudioProfileList parameters{1, 0, &rate};
    m_context.table.SetAudioParameter(m_id.c_str(), IdLength(), nullptr, nullptr, &parameters);
}

void SpeakerStream::Write(std::span<const uint8_t> unit)
{
    // A record has a pointer to bytes that are not constant, because it serves for reading, too.
    StreamFrameHeader header{2, static_cast<uint32_t>(unit.size()), 0};
    StreamFrame frame{const_cast<uint8_t *>(unit.data()), {}, &header};
    if (m_context.table.WriteStreamBuffer(m_id.c_str(), IdLength(), nullptr, &frame) != VELTO_OK) {
        ++m_refused;
    }
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
