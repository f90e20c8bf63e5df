#include "check/portable/speaker_calls.h"

#include <string>

#include "velto-host/portable/pacer.h"

namespace velto::check {

int32_t WriteUnit(const AudioHandlerTable &table, std::string_view id, std::span<const uint8_t> unit,
                  int32_t streamType)
{
    // The module only reads the unit; the field has no const because reads share the record.
    StreamFrameHeader header{streamType, static_cast<uint32_t>(unit.size()), 0};
    StreamFrame frame{const_cast<uint8_t *>(unit.data()), {}, &header};
    const std::string text(id);
    return table.WriteStreamBuffer(text.c_str(), static_cast<uint32_t>(text.size()), nullptr, &frame);
}

int32_t SetParameter(const AudioHandlerTable &table, std::string_view id, std::string_view key,
                     uint32_t value)
{
    const AudioProfileEntry entry{key.data(), static_cast<uint32_t>(key.size()), value};
    const AudioProfileList parameters{1, 0, &entry};
    const std::string text(id);
    return table.SetAudioParameter(text.c_str(), static_cast<uint32_t>(text.size()), nullptr, nullptr,
                                   &parameters);
}

int32_t StartStream(const AudioHandlerTable &table, std::string_view id)
{
    return SetParameter(table, id, VELTO_KEY_SAMPLE_RATE, VELTO_SAMPLE_RATE_HZ);
}

int32_t CloseTrack(const AudioHandlerTable &table, std::string_view id)
{
    const std::string text(id);
    return table.CloseAudioTrack(text.c_str(), static_cast<uint32_t>(text.size()));
}

void WriteAtPace(Environment &environment, size_t count, const std::function<void(size_t)> &write)
{
    host::Pacer pacer(unitTime, VELTO_CUSHION_UNITS);
    for (size_t i = 0; i < count; ++i) {
        const auto now = environment.Now();
        const auto wait = pacer.Due(now) - now;
        if (wait > std::chrono::nanoseconds(0)) {
            environment.Sleep(std::chrono::ceil<std::chrono::milliseconds>(wait));
        }
        write(i);
        pacer.Advance();
    }
}

} // namespace velto::check
