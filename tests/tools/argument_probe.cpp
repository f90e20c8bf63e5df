#include "argument_probe.h"

#include <functional>
#include <string>
#include <vector>

namespace velto_test {

using namespace velto::host;

namespace {

struct Case {
    const char *slot;
    const char *argument; // what is special about the arguments
    int32_t documented;
    std::function<int32_t()> call;
};

constexpr char speaker[] = VELTO_ID_SPEAKER;
constexpr char microphone[] = VELTO_ID_MIC;
constexpr uint32_t speakerLength = sizeof(speaker) - 1;
constexpr uint32_t microphoneLength = sizeof(microphone) - 1;

// The records that the calls get. They outlive the calls.
struct Records {
    uint8_t bytes[16] = {};
    StreamFrameHeader header{0, 0, 0};
    StreamFrame frame{bytes, {}, &header};
    StreamFrame withoutHeader{bytes, {}, nullptr};
    StreamFrame withoutData{nullptr, {}, &header};
    AudioProfileEntry entry{VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, 48000};
    AudioProfileList list{1, 0, &entry};
    AudioProfileList emptyList{0, 0, &entry};
    AudioCapabilityItem *items = nullptr;
    uint32_t count = 0;
};

using IdCall = std::function<int32_t(const char *, uint32_t)>;

// Adds calls with an invalid id or length.
void AddIdCases(std::vector<Case> &cases, const char *slot, const char *id, const IdCall &call)
{
    const auto length = static_cast<uint32_t>(std::char_traits<char>::length(id));
    cases.push_back({slot, "null id", VELTO_ERROR_INVALID, [=] { return call(nullptr, length); }});
    cases.push_back({slot, "length too small", VELTO_ERROR_INVALID, [=] { return call(id, length - 1); }});
    cases.push_back({slot, "length too large", VELTO_ERROR_INVALID, [=] { return call(id, length + 1); }});
    cases.push_back({slot, "length 0", VELTO_ERROR_INVALID, [=] { return call(id, 0); }});
}

std::vector<Case> CapabilityCases(const Module &module, Records &records)
{
    return {{"GetAudioCapability", "null list", VELTO_ERROR_INVALID,
             [&] { return module->GetAudioCapability(nullptr, &records.count); }},
            {"GetAudioCapability", "null count", VELTO_ERROR_INVALID,
             [&] { return module->GetAudioCapability(&records.items, nullptr); }}};
}

std::vector<Case> SpeakerCases(const Module &module, Records &records)
{
    std::vector<Case> cases{
        {"SetAudioParameter", "null list", VELTO_ERROR_INVALID,
         [&] { return module->SetAudioParameter(speaker, speakerLength, nullptr, nullptr, nullptr); }},
        {"SetAudioParameter", "empty list", VELTO_ERROR_INVALID,
         [&] {
             return module->SetAudioParameter(speaker, speakerLength, nullptr, nullptr, &records.emptyList);
         }},
        {"WriteStreamBuffer", "null frame", VELTO_ERROR_INVALID,
         [&] { return module->WriteStreamBuffer(speaker, speakerLength, nullptr, nullptr); }},
        {"WriteStreamBuffer", "null header", VELTO_ERROR_INVALID,
         [&] { return module->WriteStreamBuffer(speaker, speakerLength, nullptr, &records.withoutHeader); }},
        {"WriteStreamBuffer", "null data", VELTO_OK,
         [&] { return module->WriteStreamBuffer(speaker, speakerLength, nullptr, &records.withoutData); }},
        {"WriteStreamBuffer", "another device's id", VELTO_OK,
         [&] { return module->WriteStreamBuffer(microphone, microphoneLength, nullptr, &records.frame); }},
    };
    AddIdCases(cases, "SetAudioParameter", speaker, [&](const char *id, uint32_t length) {
        return module->SetAudioParameter(id, length, nullptr, nullptr, &records.list);
    });
    AddIdCases(cases, "WriteStreamBuffer", speaker, [&](const char *id, uint32_t length) {
        return module->WriteStreamBuffer(id, length, nullptr, &records.frame);
    });
    AddIdCases(cases, "CloseAudioTrack", speaker,
               [&](const char *id, uint32_t length) { return module->CloseAudioTrack(id, length); });
    return cases;
}

std::vector<Case> MicrophoneCases(const Module &module, Records &records)
{
    std::vector<Case> cases{
        {"OpenAudioRecord", "null list", VELTO_ERROR_INVALID,
         [&] { return module->OpenAudioRecord(microphone, microphoneLength, nullptr, nullptr, nullptr); }},
        {"ReadStreamBuffer", "null frame", VELTO_ERROR_NULL_POINTER,
         [&] { return module->ReadStreamBuffer(microphone, microphoneLength, nullptr, nullptr); }},
        {"ReadStreamBuffer", "null header", VELTO_ERROR_NULL_POINTER,
         [&] {
             return module->ReadStreamBuffer(microphone, microphoneLength, nullptr, &records.withoutHeader);
         }},
        {"ReadStreamBuffer", "null data", VELTO_ERROR_NULL_POINTER,
         [&] {
             return module->ReadStreamBuffer(microphone, microphoneLength, nullptr, &records.withoutData);
         }},
    };
    AddIdCases(cases, "OpenAudioRecord", microphone, [&](const char *id, uint32_t length) {
        return module->OpenAudioRecord(id, length, nullptr, nullptr, &records.list);
    });
    AddIdCases(cases, "ReadStreamBuffer", microphone, [&](const char *id, uint32_t length) {
        return module->ReadStreamBuffer(id, length, nullptr, &records.frame);
    });
    AddIdCases(cases, "CloseAudioRecord", microphone,
               [&](const char *id, uint32_t length) { return module->CloseAudioRecord(id, length); });
    return cases;
}

std::vector<Case> OtherCases(const Module &module)
{
    return {{"NoOperation1", "no argument", VELTO_OK, [&] { return module->NoOperation1(); }},
            {"NoOperation10", "no argument", VELTO_OK, [&] { return module->NoOperation10(); }},
            {"Release", "null block", VELTO_OK,
             [&] { return module->Release(VELTO_RELEASE_CAPABILITIES, nullptr, 0), VELTO_OK; }},
            {"Release", "unknown type", VELTO_OK,
             [&] { return module->Release(VELTO_RELEASE_CAPABILITIES + 1, nullptr, 4), VELTO_OK; }},
            {"RegisterListener", "null listener", VELTO_ERROR_INVALID,
             [&] { return module->RegisterListener(nullptr); }}};
}

} // namespace

ExitCode ProbeArguments(Module &module, const Output &output)
{
    Records records;
    Json calls = Json::Array();
    size_t count = 0;
    size_t different = 0;
    for (const std::vector<Case> &cases : {CapabilityCases(module, records), SpeakerCases(module, records),
                                           MicrophoneCases(module, records), OtherCases(module)}) {
        for (const Case &probe : cases) {
            const int32_t result = probe.call();
            const bool asDocumented = result == probe.documented;
            ++count;
            different += asDocumented ? 0 : 1;
            output.Say("{:20} {:22} {:6}{}", probe.slot, probe.argument, result,
                       asDocumented ? "" : Format("  instead of {}", probe.documented));
            calls.Append({{"slot", probe.slot},
                          {"argument", probe.argument},
                          {"result", result},
                          {"documented", probe.documented}});
        }
    }
    const ExitCode exitCode = different == 0 ? EXIT_OK : EXIT_FAILED;
    module.Unload();
    output.Say("{} calls, {} not as documented", count, different);
    output.Result({{"calls", calls}, {"notAsDocumented", different}, {"exitCode", int{exitCode}}});
    return exitCode;
}

} // namespace velto_test
