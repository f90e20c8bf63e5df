#include "check/portable/id_slots.h"

#include <array>
#include <string>

namespace velto::check {
namespace {

constexpr std::array<uint8_t, 6> silentUnit VELTO_SILENT_UNIT;

int32_t CallSetAudioParameter(const AudioHandlerTable &table, const char *id, uint32_t idLength)
{
    return table.SetAudioParameter(id, idLength, nullptr, nullptr, &UsualParameters());
}

int32_t CallWriteStreamBuffer(const AudioHandlerTable &table, const char *id, uint32_t idLength)
{
    std::array<uint8_t, silentUnit.size()> unit = silentUnit;
    StreamFrameHeader header{0, unit.size(), 0};
    StreamFrame frame{unit.data(), {}, &header};
    return table.WriteStreamBuffer(id, idLength, nullptr, &frame);
}

int32_t CallCloseAudioTrack(const AudioHandlerTable &table, const char *id, uint32_t idLength)
{
    return table.CloseAudioTrack(id, idLength);
}

int32_t CallOpenAudioRecord(const AudioHandlerTable &table, const char *id, uint32_t idLength)
{
    const int32_t result = table.OpenAudioRecord(id, idLength, nullptr, nullptr, &UsualParameters());
    if (result == VELTO_OK) {
        table.CloseAudioRecord(VELTO_ID_MIC, 4);
    }
    return result;
}

int32_t CallReadStreamBuffer(const AudioHandlerTable &table, const char *id, uint32_t idLength)
{
    std::array<uint8_t, VELTO_READ_SIZE> buffer{};
    StreamFrameHeader header{0, VELTO_READ_SIZE, 0};
    StreamFrame frame{buffer.data(), {}, &header};
    return table.ReadStreamBuffer(id, idLength, nullptr, &frame);
}

int32_t CallCloseAudioRecord(const AudioHandlerTable &table, const char *id, uint32_t idLength)
{
    return table.CloseAudioRecord(id, idLength);
}

constexpr std::array idSlots{
    IdSlot{"SetAudioParameter", VELTO_ID_SPEAKER, false, CallSetAudioParameter},
    IdSlot{"WriteStreamBuffer", VELTO_ID_SPEAKER, false, CallWriteStreamBuffer},
    IdSlot{"CloseAudioTrack", VELTO_ID_SPEAKER, false, CallCloseAudioTrack},
    IdSlot{"OpenAudioRecord", VELTO_ID_MIC, true, CallOpenAudioRecord},
    IdSlot{"ReadStreamBuffer", VELTO_ID_MIC, true, CallReadStreamBuffer},
    IdSlot{"CloseAudioRecord", VELTO_ID_MIC, true, CallCloseAudioRecord},
};

} // namespace

std::span<const IdSlot> IdSlots()
{
    return idSlots;
}

int32_t CallAsUsual(Context &context, const IdSlot &slot)
{
    const std::string id(slot.deviceId);
    RegisterUsualListener(context.table);
    context.Step(fmt::format("{} with usual arguments", slot.name), {"THR-3"});
    return slot.call(context.table, id.c_str(), static_cast<uint32_t>(id.size()));
}

void CallAllAsUsual(Context &context)
{
    for (const IdSlot &slot : IdSlots()) {
        CallAsUsual(context, slot);
    }
}

void RegisterUsualListener(const AudioHandlerTable &table)
{
    static AudioListener listener{};
    listener = {[](const char *, uint32_t, int32_t) {}, nullptr};
    table.RegisterListener(&listener);
}

int32_t WriteSilence(const AudioHandlerTable &table, std::string_view id)
{
    const std::string text(id);
    return CallWriteStreamBuffer(table, text.c_str(), static_cast<uint32_t>(text.size()));
}

const AudioProfileList &UsualParameters()
{
    struct Parameters {
        AudioProfileEntry rate{};
        AudioProfileList list{};
    };
    thread_local Parameters parameters;
    parameters.rate = {VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, VELTO_SAMPLE_RATE_HZ};
    parameters.list = {1, 0, &parameters.rate};
    return parameters.list;
}

} // namespace velto::check
