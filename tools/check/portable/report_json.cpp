#include "check/portable/report_json.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "check/portable/clause_results.h"

namespace velto::check {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array outcomes{Outcome::PASSED,  Outcome::WARNED, Outcome::SKIPPED, Outcome::FAILED,
                              Outcome::CRASHED, Outcome::HUNG,   Outcome::BROKEN};

// JSON has no infinity, which is the level of silence in decibels.
Json Number(double value)
{
    return std::isfinite(value) ? Json(value) : Json();
}

double NumberOf(const Json &json)
{
    return json.is_null() ? std::numeric_limits<double>::quiet_NaN() : json.get<double>();
}

template <typename Element, typename Function>
Json ArrayOf(const std::vector<Element> &elements, Function describe)
{
    Json array = Json::array();
    for (const Element &element : elements) {
        array.push_back(describe(element));
    }
    return array;
}

// Sorted, each once: several threads of a check may report clauses in any order.
std::vector<std::string> BrokenIds(const CheckResult &result)
{
    std::vector<std::string> ids;
    for (const BrokenClause &broken : result.broken) {
        ids.push_back(broken.clause);
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

Json DescribeFile(const FileIdentity &file)
{
    return {{"name", file.name}, {"version", file.version}, {"bytes", file.bytes}, {"sha256", file.sha256}};
}

// A warning may depend on a measured value, so a check that passed with warnings is "passed" here; the
// warnings are among what was measured.
Json DescribeResult(const CheckResult &result)
{
    return {{"name", result.name},
            {"level", result.level},
            {"clauses", result.clauses},
            {"outcome", NameOf(result.outcome == Outcome::WARNED ? Outcome::PASSED : result.outcome)},
            {"broken", BrokenIds(result)},
            {"reason", result.reason},
            {"repeat", result.repeat}};
}

Json DescribeEnvelope(const std::vector<float> &envelope)
{
    constexpr double steps = 10000; // more than a picture shows
    return ArrayOf(envelope, [](float value) { return Number(std::round(value * steps) / steps); });
}

Json DescribeHeard(const HeardSound &heard)
{
    return {{"source", heard.source},
            {"seconds", Number(heard.seconds)},
            {"delayMs", Number(heard.delayMs)},
            {"levelDb", Number(heard.levelDb)},
            {"speed", Number(heard.speed)},
            {"framesSent", heard.framesSent},
            {"framesHeard", heard.framesHeard},
            {"framesMissing", heard.framesMissing},
            {"framesRepeated", heard.framesRepeated},
            {"framesOutOfOrder", heard.framesOutOfOrder},
            {"channelsSwapped", heard.channelsSwapped},
            {"gapsAtSeconds", ArrayOf(heard.gapsAtSeconds, Number)},
            {"envelope", DescribeEnvelope(heard.envelope)},
            {"framesInOrder", heard.framesInOrder}};
}

Json DescribeMeasured(const CheckResult &result)
{
    return {{"name", result.name},
            {"seconds", Number(result.seconds)},
            {"observed", ArrayOf(result.broken,
                                 [](const BrokenClause &broken) -> Json {
                                     return {{"clause", broken.clause}, {"text", broken.text}};
                                 })},
            {"warnings", result.warnings},
            {"lastStep", result.lastStep},
            {"fault", result.fault},
            {"dumpFile", result.dumpFile},
            {"values",
             ArrayOf(result.measured,
                     [](const Measurement &value) -> Json {
                         return {{"name", value.name}, {"value", Number(value.value)}, {"unit", value.unit}};
                     })},
            {"heard", result.heard ? DescribeHeard(*result.heard) : Json()}};
}

Json DescribeEndpoint(const EndpointInfo &endpoint)
{
    return {{"direction", endpoint.direction},
            {"name", endpoint.name},
            {"roles", endpoint.roles},
            {"mixFormat", endpoint.mixFormat}};
}

Json DescribeRun(const Run &run)
{
    return {{"schema", reportSchema},
            {"verdict", NameOf(Verdict(run))},
            {"levelReached", LevelReached(run)},
            {"level", run.level},
            {"seed", run.seed},
            {"only", run.only},
            {"listen", run.listen},
            {"checker", run.checkerVersion},
            {"moduleCommit", run.moduleCommit},
            {"files", ArrayOf(run.files, DescribeFile)},
            {"clauses", ArrayOf(ClauseResults(run),
                                [](const ClauseResult &clause) -> Json {
                                    return {{"id", clause.id}, {"outcome", NameOf(clause.outcome)}};
                                })},
            {"results", ArrayOf(run.results, DescribeResult)},
            {"measured",
             {{"beganAt", run.beganAt},
              {"seconds", Number(run.seconds)},
              {"system", run.system},
              {"processor", run.processor},
              {"endpoints", ArrayOf(run.endpoints, DescribeEndpoint)},
              {"results", ArrayOf(run.results, DescribeMeasured)}}}};
}

Outcome OutcomeNamed(const std::string &name)
{
    const auto *const found = std::find_if(outcomes.begin(), outcomes.end(),
                                           [&](Outcome outcome) { return NameOf(outcome) == name; });
    if (found == outcomes.end()) {
        throw std::runtime_error(fmt::format("the report has an unknown outcome \"{}\"", name));
    }
    return *found;
}

template <typename Function>
auto ListOf(const Json &array, Function read)
{
    std::vector<decltype(read(array))> list;
    for (const Json &element : array.get<Json::array_t>()) {
        list.push_back(read(element));
    }
    return list;
}

FileIdentity ReadFile(const Json &json)
{
    return {json.at("name"), json.at("version"), json.at("bytes"), json.at("sha256")};
}

EndpointInfo ReadEndpoint(const Json &json)
{
    return {json.at("direction"), json.at("name"), json.at("roles"), json.at("mixFormat")};
}

HeardSound ReadHeard(const Json &json)
{
    HeardSound heard;
    heard.source = json.at("source");
    heard.seconds = NumberOf(json.at("seconds"));
    heard.delayMs = NumberOf(json.at("delayMs"));
    heard.levelDb = NumberOf(json.at("levelDb"));
    heard.speed = NumberOf(json.at("speed"));
    heard.framesSent = json.at("framesSent");
    heard.framesHeard = json.at("framesHeard");
    heard.framesMissing = json.at("framesMissing");
    heard.framesRepeated = json.at("framesRepeated");
    heard.framesOutOfOrder = json.at("framesOutOfOrder");
    heard.channelsSwapped = json.at("channelsSwapped");
    heard.gapsAtSeconds = ListOf(json.at("gapsAtSeconds"), NumberOf);
    heard.envelope =
        ListOf(json.at("envelope"), [](const Json &value) { return static_cast<float>(NumberOf(value)); });
    heard.framesInOrder = json.at("framesInOrder").get<std::vector<uint32_t>>();
    return heard;
}

CheckResult ReadResult(const Json &json, const Json &measured)
{
    CheckResult result;
    result.name = json.at("name");
    if (measured.at("name") != result.name) {
        throw std::runtime_error(
            fmt::format("the report lists no measured values of the check {}", result.name));
    }
    result.level = json.at("level");
    result.clauses = json.at("clauses").get<std::vector<std::string>>();
    result.outcome = OutcomeNamed(json.at("outcome"));
    result.reason = json.at("reason");
    result.repeat = json.at("repeat");
    result.seconds = NumberOf(measured.at("seconds"));
    result.broken = ListOf(measured.at("observed"), [](const Json &each) {
        return BrokenClause{each.at("clause"), each.at("text")};
    });
    result.warnings = measured.at("warnings").get<std::vector<std::string>>();
    result.lastStep = measured.at("lastStep");
    result.fault = measured.at("fault");
    result.dumpFile = measured.at("dumpFile");
    result.measured = ListOf(measured.at("values"), [](const Json &each) {
        return Measurement{each.at("name"), NumberOf(each.at("value")), each.at("unit")};
    });
    if (const Json &heard = measured.at("heard"); !heard.is_null()) {
        result.heard = ReadHeard(heard);
    }
    if (BrokenIds(result) != json.at("broken").get<std::vector<std::string>>()) {
        throw std::runtime_error(
            fmt::format("the report contradicts itself about the broken clauses of {}", result.name));
    }
    if (result.outcome == Outcome::PASSED && !result.warnings.empty()) {
        result.outcome = Outcome::WARNED;
    }
    return result;
}

Run ReadRun(const Json &json)
{
    const Json &measured = json.at("measured");
    Run run;
    run.files = ListOf(json.at("files"), ReadFile);
    run.moduleCommit = json.at("moduleCommit");
    run.level = json.at("level");
    run.seed = json.at("seed");
    run.only = json.at("only");
    run.listen = json.at("listen");
    run.checkerVersion = json.at("checker");
    run.system = measured.at("system");
    run.processor = measured.at("processor");
    run.endpoints = ListOf(measured.at("endpoints"), ReadEndpoint);
    run.beganAt = measured.at("beganAt");
    run.seconds = NumberOf(measured.at("seconds"));
    const Json &results = json.at("results");
    const Json &values = measured.at("results");
    if (results.size() != values.size()) {
        throw std::runtime_error("the report does not list the measured values of each check once");
    }
    for (size_t i = 0; i < results.size(); ++i) {
        run.results.push_back(ReadResult(results.at(i), values.at(i)));
    }
    return run;
}

void RequireSchema(const Json &json)
{
    const auto schema = json.is_object() ? json.find("schema") : json.end();
    if (schema == json.end() || !schema->is_string()) {
        throw std::runtime_error("this is no report of velto-host check");
    }
    const std::string name = *schema;
    const size_t version = reportSchema.rfind(':') + 1;
    if (name.compare(0, version, reportSchema.substr(0, version)) != 0) {
        throw std::runtime_error(fmt::format("this is a {}, not a report of velto-host check", name));
    }
    if (name != reportSchema) {
        throw std::runtime_error(
            fmt::format("the report has version {} of the form; this program reads version {}",
                        name.substr(version), reportSchema.substr(version)));
    }
}

// A report whose summary was edited must not certify a module.
void RequireConsistency(const Json &json, const Run &run)
{
    const std::string verdict = json.at("verdict");
    if (verdict != NameOf(Verdict(run))) {
        throw std::runtime_error(
            fmt::format(R"(the report contradicts itself: its verdict is "{}", that of its results "{}")",
                        verdict, NameOf(Verdict(run))));
    }
    const int reached = json.at("levelReached");
    if (reached != LevelReached(run)) {
        throw std::runtime_error(
            fmt::format("the report contradicts itself: it names level {}, its results reach level {}",
                        reached, LevelReached(run)));
    }
}

} // namespace

std::string JsonReport(const Run &run)
{
    return DescribeRun(run).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Run ReadJsonReport(const std::string &text)
{
    try {
        const Json json = Json::parse(text);
        RequireSchema(json);
        Run run = ReadRun(json);
        RequireConsistency(json, run);
        return run;
    } catch (const Json::parse_error &error) {
        throw std::runtime_error(fmt::format("the report is no JSON, or incomplete: byte {}", error.byte));
    } catch (const Json::exception &error) {
        throw std::runtime_error(
            fmt::format("a member of the report is missing or has another type: {}", error.what()));
    }
}

} // namespace velto::check
