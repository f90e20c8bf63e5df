#include "sample_run.h"

#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace velto::check {
namespace {

HeardSound MakeHeard()
{
    HeardSound heard;
    heard.source = "loopback of the default render endpoint";
    heard.seconds = 4.2667;
    heard.delayMs = 151.5;
    heard.levelDb = -0.4;
    heard.speed = 0.9998;
    heard.framesSent = 160;
    heard.framesHeard = 160;
    heard.framesInOrder.resize(160);
    std::iota(heard.framesInOrder.begin(), heard.framesInOrder.end(), 0U);
    for (int i = 0; i < 240; ++i) {
        heard.envelope.push_back(i < 12 ? 0.0F : 0.5F + 0.25F * std::sin(static_cast<float>(i) / 4.0F));
    }
    return heard;
}

CheckResult &Named(Run &run, std::string_view name)
{
    for (CheckResult &result : run.results) {
        if (result.name == name) {
            return result;
        }
    }
    throw std::out_of_range("no such check");
}

} // namespace

CheckResult MakeResult(std::string name, int level, Outcome outcome, std::vector<std::string> clauses)
{
    CheckResult result;
    result.name = std::move(name);
    result.level = level;
    result.outcome = outcome;
    result.clauses = std::move(clauses);
    result.seconds = 0.25 * level;
    return result;
}

Run PassedRun()
{
    Run run;
    run.files = {{"LibVeltoAudioHandler.dll", "1.0.0.0", 1234567, std::string(64, 'a')},
                 {"avcodec-59.dll", "59.37.100", 7654321, std::string(64, 'b')}};
    run.moduleCommit = "0123456789ab";
    run.level = 8;
    run.seed = 18446744073709551615U; // more than a double can represent
    run.checkerVersion = "1.0.0, commit 0123456789ab";
    run.system = "Wine 8.0 as Windows 10.0.19043";
    run.processor = "A processor <with> \"marks\" & signs, 2 processors";
    run.endpoints = {{"render", "", "console, multimedia", "48000 Hz, 2 channels, 32-bit float"},
                     {"capture", "", "console", "44100 Hz, 1 channel, 32-bit float"}};
    run.beganAt = "2026-03-07T04:05:06Z";
    run.seconds = 123.456;
    run.results = {MakeResult("entry.null-table", 1, Outcome::PASSED, {"ENT-2"}),
                   MakeResult("entry.table", 1, Outcome::PASSED, {"ENT-3", "ENT-4"}),
                   MakeResult("arguments.wrong-ids", 3, Outcome::PASSED, {"IDS-1", "IDS-2"}),
                   MakeResult("speaker.stream", 5, Outcome::WARNED, {"SPK-3", "SPK-4"}),
                   MakeResult("microphone.packets", 6, Outcome::SKIPPED, {"MIC-2"}),
                   MakeResult("listen.watermark", 7, Outcome::PASSED, {"SPK-8"}),
                   MakeResult("storm.calls", 8, Outcome::PASSED, {"THR-1"})};
    CheckResult &speaker = Named(run, "speaker.stream");
    speaker.warnings = {"a call took 25.0 ms, longer than a unit lasts"};
    speaker.measured = {{"WriteStreamBuffer p50", 380, "µs"},
                        {"WriteStreamBuffer p99", 0.91, "ms"},
                        {"WriteStreamBuffer budget", 21.3, "ms"},
                        {"CloseAudioTrack p50", 12, "µs"},
                        {"CloseAudioTrack p99", 6, "ms"},
                        {"CloseAudioTrack budget", 5, "ms"},
                        {"units", 500, "units"}};
    Named(run, "microphone.packets").reason = "there is no microphone";
    Named(run, "listen.watermark").heard = MakeHeard();
    return run;
}

Run FailedRun()
{
    Run run = PassedRun();
    CheckResult &ids = Named(run, "arguments.wrong-ids");
    ids.outcome = Outcome::FAILED;
    ids.broken = {{"IDS-2", "\"speaker1\" & <4 bytes> of another id: 0 instead of -2000"},
                  {"IDS-1", "a null id\nwas \x01 accepted"},
                  {"IDS-2", "the last byte is not compared"}};
    ids.repeat = "velto-host check --module \"C:\\a b\\x.dll\" --only arguments.wrong-ids --seed 7";
    CheckResult &table = Named(run, "entry.table");
    table.outcome = Outcome::CRASHED;
    table.broken = {{"ENT-3", "the process crashed"}};
    table.lastStep = "fills a table that ends at a guard page";
    table.fault = "LibVeltoAudioHandler.dll+0x1a2b: access violation";
    table.dumpFile = "entry.table.dmp";
    CheckResult &storm = Named(run, "storm.calls");
    storm.outcome = Outcome::HUNG;
    storm.broken = {{"THR-1", "no result within 60 s"}};
    storm.lastStep = "8 threads close tracks";
    HeardSound &heard = *Named(run, "listen.watermark").heard;
    std::swap(heard.framesInOrder[50], heard.framesInOrder[60]);
    heard.framesOutOfOrder = 2;
    heard.framesRepeated = 3;
    heard.framesMissing = 4;
    heard.framesHeard = 156;
    heard.channelsSwapped = true;
    heard.gapsAtSeconds = {1.5, 3.25};
    Named(run, "listen.watermark").outcome = Outcome::FAILED;
    Named(run, "listen.watermark").broken = {{"SPK-8", "2 gaps"}};
    return run;
}

Run SilentRun()
{
    Run run = PassedRun();
    CheckResult &listen = Named(run, "listen.watermark");
    listen.outcome = Outcome::FAILED;
    listen.broken = {{"SPK-8", "nothing was heard"}};
    HeardSound silence;
    silence.source = "monitor recording";
    silence.seconds = 3;
    silence.levelDb = -std::numeric_limits<double>::infinity();
    silence.framesSent = 160;
    silence.framesMissing = 160;
    silence.envelope.assign(240, 0.0F);
    listen.heard = silence;
    return run;
}

} // namespace velto::check
