#include "check/heard_command.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "check/portable/heard_verdict.h"
#include "check/portable/heard_watermark.h"
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

// Whole frames only. None: the file cannot be read.
std::optional<std::vector<float>> ReadSamples(const HeardOptions &options)
{
    std::ifstream file(std::filesystem::path(std::u8string(options.file.begin(), options.file.end())),
                       std::ios::binary | std::ios::ate);
    if (!file) {
        return std::nullopt;
    }
    const size_t frameBytes = options.channels * sizeof(float);
    std::vector<float> interleaved(static_cast<size_t>(file.tellg()) / frameBytes * options.channels);
    file.seekg(0);
    file.read(reinterpret_cast<char *>(interleaved.data()),
              static_cast<std::streamsize>(interleaved.size() * sizeof(float)));
    return file ? std::optional(std::move(interleaved)) : std::nullopt;
}

} // namespace

int CompareRecording(const HeardOptions &options)
{
    const std::optional<std::vector<float>> recording = ReadSamples(options);
    if (!recording) {
        fmt::print(stderr, "cannot read {}\n", options.file);
        return exitUnreadable;
    }
    HeardWatermark heard = ExamineWatermark(*recording, options.rateHz, options.channels, options.frames);
    heard.sound.source = "recording";
    const HeardVerdict verdict = VerdictOn(heard, {.firstWriteMs = {}, .levelsDb = {0}});
    const Json result{{"heard", Describe(heard.sound)}, {"broken", Describe(verdict.broken)}};
    fmt::print("{}\n", result.Text());
    return verdict.broken.empty() ? exitNothingBroken : exitBroken;
}

} // namespace velto::check
