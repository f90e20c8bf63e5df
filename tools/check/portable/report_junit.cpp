#include "check/portable/report_junit.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "velto-host/portable/html_text.h"

namespace velto::check {
namespace {

using host::EscapeXml;

bool IsFailure(const CheckResult &result)
{
    return result.outcome == Outcome::FAILED;
}

bool IsError(const CheckResult &result)
{
    return result.outcome == Outcome::CRASHED || result.outcome == Outcome::HUNG ||
           result.outcome == Outcome::BROKEN;
}

bool IsSkipped(const CheckResult &result)
{
    return result.outcome == Outcome::SKIPPED;
}

// Everything that a maintainer needs of a failed check, a line each.
std::string Details(const CheckResult &result)
{
    std::string text;
    const auto add = [&](std::string_view label, std::string_view value) {
        if (!value.empty()) {
            text += fmt::format("{}: {}\n", label, EscapeXml(value));
        }
    };
    for (const BrokenClause &broken : result.broken) {
        add(EscapeXml(broken.clause), broken.text);
    }
    add("reason", result.reason);
    add("last step", result.lastStep);
    add("fault", result.fault);
    add("minidump", result.dumpFile);
    add("repeat", result.repeat);
    return text;
}

// One line for lists of failures.
std::string Summary(const CheckResult &result)
{
    if (!result.fault.empty()) {
        return result.fault;
    }
    if (!result.broken.empty()) {
        return result.broken[0].clause + ": " + result.broken[0].text;
    }
    return !result.reason.empty() ? result.reason : std::string(NameOf(result.outcome));
}

std::string OutcomeElement(const CheckResult &result)
{
    if (IsSkipped(result)) {
        return fmt::format("      <skipped message=\"{}\"/>\n", EscapeXml(result.reason));
    }
    if (!IsFailure(result) && !IsError(result)) {
        return {};
    }
    const std::string_view element = IsFailure(result) ? "failure" : "error";
    return fmt::format("      <{0} type=\"{1}\" message=\"{2}\">{3}</{0}>\n", element, NameOf(result.outcome),
                       EscapeXml(Summary(result)), Details(result));
}

std::string Warnings(const CheckResult &result)
{
    std::string text;
    for (const std::string &warning : result.warnings) {
        text += "warning: " + EscapeXml(warning) + "\n";
    }
    return text.empty() ? text : "      <system-out>" + text + "</system-out>\n";
}

// The class is the group of the check: "arguments" of "arguments.wrong-ids".
std::string TestCase(const CheckResult &result)
{
    return fmt::format("    <testcase classname=\"velto-host.check.{}\" name=\"{}\" time=\"{:.3f}\">\n{}{}"
                       "    </testcase>\n",
                       EscapeXml(result.name.substr(0, result.name.find('.'))), EscapeXml(result.name),
                       result.seconds, OutcomeElement(result), Warnings(result));
}

std::string Properties(const Run &run)
{
    const auto property = [](std::string_view name, std::string_view value) {
        return fmt::format("      <property name=\"{}\" value=\"{}\"/>\n", name, EscapeXml(value));
    };
    std::string xml = "    <properties>\n";
    if (!run.files.empty()) {
        xml += property("module", run.files[0].name) + property("module.version", run.files[0].version) +
               property("module.sha256", run.files[0].sha256);
    }
    return xml + property("module.commit", run.moduleCommit) + property("seed", fmt::to_string(run.seed)) +
           property("level", fmt::to_string(run.level)) + property("verdict", NameOf(Verdict(run))) +
           property("checker", run.checkerVersion) + property("system", run.system) + "    </properties>\n";
}

using Results = std::vector<const CheckResult *>;

std::string Counts(const Results &results)
{
    const auto count = [&](bool (*isSo)(const CheckResult &)) {
        return std::count_if(results.begin(), results.end(),
                             [isSo](const CheckResult *result) { return isSo(*result); });
    };
    double seconds = 0;
    for (const CheckResult *result : results) {
        seconds += result->seconds;
    }
    return fmt::format(R"(tests="{}" failures="{}" errors="{}" skipped="{}" time="{:.3f}")", results.size(),
                       count(IsFailure), count(IsError), count(IsSkipped), seconds);
}

std::string Suite(const Run &run, int level, const Results &results)
{
    std::string xml =
        fmt::format("  <testsuite name=\"level {}\" {}{}>\n", level, Counts(results),
                    run.beganAt.empty() ? "" : fmt::format(" timestamp=\"{}\"", EscapeXml(run.beganAt)));
    xml += Properties(run);
    for (const CheckResult *result : results) {
        xml += TestCase(*result);
    }
    return xml + "  </testsuite>\n";
}

} // namespace

std::string JunitReport(const Run &run)
{
    std::map<int, Results> levels;
    Results all;
    for (const CheckResult &result : run.results) {
        levels[result.level].push_back(&result);
        all.push_back(&result);
    }
    std::string xml = fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                  "<testsuites name=\"velto-host check\" {}>\n",
                                  Counts(all));
    for (const auto &[level, results] : levels) {
        xml += Suite(run, level, results);
    }
    return xml + "</testsuites>\n";
}

} // namespace velto::check
