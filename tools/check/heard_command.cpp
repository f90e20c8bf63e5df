#include "check/heard_command.h"

#include <cstdio>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "check/portable/heard_verdict.h"
#include "check/portable/heard_watermark.h"
#include "check/portable/wav_file.h"
#include "velto-host/json.h"

namespace velto::check {
namespace {

using host::Json;

constexpr int exitNothingBroken = 0;
constexpr int exitBroken = 1;
constexpr int exitUnreadable = 2;

Json Describe(const HeardSound &sound)
{
    return {{"source", sound.source},
            {"seconds", sound.seconds},
            {"delayMs", sound.delayMs},
            {"levelDb", sound.levelDb},
            {"speed", sound.speed},
            {"framesSent", sound.framesSent},
            {"framesHeard", sound.framesHeard},
            {"framesMissing", sound.framesMissing},
            {"framesRepeated", sound.framesRepeated},
            {"framesOutOfOrder", sound.framesOutOfOrder},
            {"channelsSwapped", sound.channelsSwapped},
            {"gapsAtSeconds", sound.gapsAtSeconds},
            {"envelope", sound.envelope},
            {"framesInOrder", sound.framesInOrder}};
}

Json Describe(const std::vector<BrokenClause> &clauses)
{
    Json list = Json::Array();
    for (const BrokenClause &broken : clauses) {
        list.Append({{"clause", broken.clause}, {"text", broken.text}});
    }
    return list;
}

} // namespace

int CompareRecording(const std::string &wavFile, uint32_t frames)
{
    WavSound recording;
    try {
        recording = ReadWavFile(wavFile);
    } catch (const std::runtime_error &error) {
        fmt::print(stderr, "{}: {}\n", wavFile, error.what());
        return exitUnreadable;
    }
    HeardWatermark heard =
        ExamineWatermark(recording.interleaved, recording.rateHz, recording.channels, frames);
    heard.sound.source = "recording";
    const HeardVerdict verdict = VerdictOn(heard, {.firstWriteMs = {}, .levelsDb = {0}});
    const Json result{{"heard", Describe(heard.sound)}, {"broken", Describe(verdict.broken)}};
    fmt::print("{}\n", result.Text());
    return verdict.broken.empty() ? exitNothingBroken : exitBroken;
}

} // namespace velto::check
