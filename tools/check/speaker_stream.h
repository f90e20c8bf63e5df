// A stream to a speaker of the module, at the pace of a correct host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "check/portable/built_in_sound.h"
#include "check/portable/context.h"

namespace velto::check {

// The performance counter in units of 100 ns, as recordings state their times.
uint64_t PerformanceTime();

// One thread. Results of calls are not examined here, but refused writes are counted: see WarnAboutRefusals.
class SpeakerStream {
public:
    // The context outlives this object.
    SpeakerStream(Context &context, std::string id);

    // SetAudioParameter with this sample rate alone.
    void SetRate(uint32_t rateHz);
    // SetAudioParameter with the number of channels alone.
    void SetChannels(uint32_t channels);
    void Write(std::span<const uint8_t> unit);
    void WriteAtPace(std::span<const std::vector<uint8_t>> units);
    void WriteSilenceAtPace(size_t units);

    // Starts a stream, sends silence and waits until the loudspeaker surely plays.
    void WarmUp();
    // Warns if a write was refused: the sound is incomplete for this reason.
    void WarnAboutRefusals();

private:
    Context &m_context;
    const std::string m_id;
    uint32_t m_refused = 0;
};

} // namespace velto::check
