// A stream to a speaker of the module, at the pace of a correct host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "check/portable/built_in_sound.h"
#include "check/portable/context.h"

namespace velto::check {

// The performance counter in units of 100 ns, as recordings state their times.
uint64_t PerformanceTime();

// Calls `write` with 0 to count - 1, every 1024 / 48000 s.
void WriteAtPace(Environment &environment, size_t count, const std::function<void(size_t)> &write);

// One thread. Results of calls are not examined here, but refused writes are counted: see WarnAboutRefusals.
class SpeakerStream {
public:
    // The context outlives this object.
    SpeakerStream(Context &context, std::string id);

    // SetAudioParameter with this sample rate alone.
    void SetRate(uint32_t rateHz);
    void Write(std::span<const uint8_t> unit);
    void WriteAtPace(std::span<const std::vector<uint8_t>> units);
    void WriteSilenceAtPace(size_t units);

    // Starts a stream, sends silence and waits until the loudspeaker surely plays.
    void WarmUp();
    // Warns if a write was refused: the sound is incomplete for this reason.
    void WarnAboutRefusals();

private:
    uint32_t IdLength() const { return static_cast<uint32_t>(m_id.size()); }

    Context &m_context;
    const std::string m_id;
    uint32_t m_refused = 0;
};

} // namespace velto::check
