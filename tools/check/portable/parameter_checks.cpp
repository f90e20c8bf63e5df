// Parameter lists of all kinds: each is accepted and reported to the listener.
#include <array>
#include <string>
#include <vector>

#include "check/portable/check.h"
#include "check/portable/event_recorder.h"
#include "check/portable/id_slots.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

struct ListCase {
    std::string_view what;
    std::vector<AudioProfileEntry> entries;
};

AudioProfileEntry Entry(const char *key, uint32_t value)
{
    return {key, static_cast<uint32_t>(std::char_traits<char>::length(key)), value};
}

std::vector<ListCase> ListCases()
{
    std::vector<ListCase> cases{
        {"a rate", {Entry("sampleRate", 44100)}},
        {"a rate of 0", {Entry("sampleRate", 0)}},
        {"the largest rate", {Entry("sampleRate", UINT32_MAX)}},
        {"an unknown channel code", {Entry("channel", 2)}},
        {"the largest channel code", {Entry("channel", UINT32_MAX)}},
        {"an unknown format code", {Entry("format", 5)}},
        {"a format code of 0", {Entry("format", 0)}},
        {"a codec", {Entry("codec", 7)}},
        {"an unknown key", {Entry("volume", 100)}},
        {"an empty key", {Entry("", 1)}},
        {"a key in capitals", {Entry("SAMPLERATE", 8000)}},
        {"a key with a space", {Entry("channel ", 1)}},
        {"a repeated key", {Entry("sampleRate", 8000), Entry("sampleRate", 48000), Entry("channel", 1)}},
        {"all keys",
         {Entry("codec", 0), Entry("sampleRate", 48000), Entry("channel", 3), Entry("format", 1)}},
        {"1000 entries", std::vector<AudioProfileEntry>(1000, Entry("format", 2))},
    };
    for (const uint32_t channel :
         {VELTO_CHANNEL_MONO, VELTO_CHANNEL_STEREO, VELTO_CHANNEL_STEREO_IN, VELTO_CHANNEL_MONO_IN}) {
        cases.push_back({"a known channel code", {Entry("channel", channel)}});
    }
    for (const uint32_t format : {VELTO_FORMAT_S16, VELTO_FORMAT_U8, VELTO_FORMAT_S32, VELTO_FORMAT_S24}) {
        cases.push_back({"a known format code", {Entry("format", format)}});
    }
    return cases;
}

int32_t SetParameters(Context &context, std::string_view id, const std::vector<AudioProfileEntry> &entries)
{
    const AudioProfileList list{static_cast<uint32_t>(entries.size()), 0, entries.data()};
    return context.table.SetAudioParameter(id.data(), static_cast<uint32_t>(id.size()), nullptr, nullptr,
                                           &list);
}

// The last call leaves usual parameters.
void CheckAcceptedLists(Context &context)
{
    CallAllAsUsual(context);
    const std::string longKey(10000, 'k');
    std::vector<ListCase> cases = ListCases();
    cases.push_back({"a key of 10000 letters", {Entry(longKey.c_str(), 1)}});
    for (const std::string_view id : {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}) {
        for (const ListCase &list : cases) {
            context.Step(fmt::format("SetAudioParameter of {} with {}", id, list.what), {"PAR-8"});
            context.ExpectEqual(SetParameters(context, id, list.entries), int32_t{VELTO_OK}, "PAR-8",
                                "SetAudioParameter of {} with {} returned", id, list.what);
        }
        SetParameters(context, id, {Entry("sampleRate", VELTO_SAMPLE_RATE_HZ)});
    }
}

// A list that is refused against its clause sends no event, which the check of its result reports.
void CheckEventOfEachList(Context &context)
{
    CallAllAsUsual(context);
    EventRecorder recorder(context);
    for (const ListCase &list : ListCases()) {
        recorder.Clear();
        context.Step(fmt::format("SetAudioParameter with {}", list.what), {"THR-3"});
        if (SetParameters(context, VELTO_ID_SPEAKER, list.entries) != VELTO_OK) {
            continue;
        }
        const auto events = recorder.WaitForEvents();
        context.ExpectEqual(events.empty() ? 0 : events.front().code, int32_t{VELTO_EVENT_PARAMETERS_SET},
                            "PAR-7", "event (0: none) of SetAudioParameter with {}", list.what);
    }
    SetParameters(context, VELTO_ID_SPEAKER, {Entry("sampleRate", VELTO_SAMPLE_RATE_HZ)});
}

} // namespace

std::span<const Check> ParameterChecks()
{
    static const std::array checks{
        Check{"parameters.accepted-lists", 4, {"PAR-8", "THR-3"}, 30s, CheckAcceptedLists},
        Check{"parameters.events", 4, {"PAR-7", "THR-3"}, 60s, CheckEventOfEachList},
    };
    return checks;
}

} // namespace velto::check
