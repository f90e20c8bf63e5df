#include "check/portable/report_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "check/portable/clause_results.h"
#include "check/portable/report_pictures.h"
#include "check/portable/report_style.h"
#include "velto-host/portable/html_text.h"

namespace velto::check {
namespace {

using host::EscapeXml;

constexpr std::array<std::string_view, 10> levelTitles{"loads and fills its table",
                                                       "capabilities",
                                                       "wrong arguments",
                                                       "parameters, listener, ownership, hygiene",
                                                       "speaker",
                                                       "microphone",
                                                       "lifecycle",
                                                       "storm, load cycles",
                                                       "idle release, devices",
                                                       "fuzz"};

bool IsFailed(const CheckResult &result)
{
    return result.outcome == Outcome::FAILED || result.outcome == Outcome::CRASHED ||
           result.outcome == Outcome::HUNG || result.outcome == Outcome::BROKEN;
}

// A failure of the module or of the checker, which is shown first. An interrupted check may have found one.
bool HasFailure(const CheckResult &result)
{
    return IsFailed(result) && !(IsInterrupted(result) && result.broken.empty());
}

bool IsSkipped(const CheckResult &result)
{
    return result.outcome == Outcome::SKIPPED;
}

// The style of an outcome's word.
std::string_view StyleOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::PASSED:
        return "good";
    case Outcome::WARNED:
    case Outcome::BROKEN:
        return "warn";
    case Outcome::SKIPPED:
        return "off";
    default:
        return "bad";
    }
}

std::string_view StyleOf(ClauseOutcome outcome)
{
    switch (outcome) {
    case ClauseOutcome::PASSED:
        return "good";
    case ClauseOutcome::BROKEN:
        return "bad";
    default:
        return "off";
    }
}

template <typename Number>
std::string Counted(Number count, std::string_view one, std::string_view several)
{
    return fmt::format("{} {}", count, count == 1 ? one : several);
}

std::string Section(std::string_view id, std::string_view title, const std::string &content)
{
    return content.empty() ? std::string()
                           : fmt::format("<section aria-labelledby=\"{0}\">\n<h2 id=\"{0}\">{1}</h2>\n{2}"
                                         "</section>\n",
                                         id, EscapeXml(title), content);
}

// `head` and `rows` are HTML.
std::string Table(std::string_view head, const std::string &rows)
{
    return rows.empty() ? std::string()
                        : fmt::format("<div class=\"scroll\"><table>\n<thead><tr>{}</tr></thead>\n<tbody>\n{}"
                                      "</tbody>\n</table></div>\n",
                                      head, rows);
}

std::string Command(std::string_view text)
{
    return fmt::format("<code class=\"command\">{}</code>\n", EscapeXml(text));
}

std::string ModuleName(const Run &run)
{
    return run.files.empty() ? "unknown module" : run.files[0].name;
}

std::string VerdictWord(Outcome verdict)
{
    switch (verdict) {
    case Outcome::PASSED:
        return "Passed";
    case Outcome::FAILED:
        return "Failed";
    default:
        return "No verdict";
    }
}

// One sentence that a person without knowledge of the checks understands.
std::string VerdictSentence(const Run &run, const std::vector<ClauseResult> &clauses)
{
    const auto count = [&](ClauseOutcome outcome) {
        return std::count_if(clauses.begin(), clauses.end(),
                             [=](const ClauseResult &clause) { return clause.outcome == outcome; });
    };
    const int reached = LevelReached(run);
    const std::string level = !run.only.empty()
                                  ? fmt::format("Only {} was examined, no level as a whole", run.only)
                              : reached == 0 ? "No level was reached"
                                             : fmt::format("Level {} of {} was reached", reached, run.level);
    switch (Verdict(run)) {
    case Outcome::PASSED:
        return fmt::format("{}. {}, none is broken.", level,
                           Counted(count(ClauseOutcome::PASSED), "clause passed", "clauses passed"));
    case Outcome::FAILED:
        return fmt::format("{}. {}, {}.", level,
                           Counted(count(ClauseOutcome::BROKEN), "clause is broken", "clauses are broken"),
                           Counted(count(ClauseOutcome::PASSED), "passed", "passed"));
    default:
        break;
    }
    const auto interrupted = std::ranges::count_if(run.results, IsInterrupted);
    return interrupted > 0
               ? fmt::format("The run was interrupted: {} of {} checks were not finished. {}.", interrupted,
                             run.results.size(), level)
               : "The checker could not finish its work. This report says nothing about the module.";
}

std::string Head(const Run &run, const std::vector<ClauseResult> &clauses)
{
    const Outcome verdict = Verdict(run);
    std::string html = fmt::format("<header class=\"verdict {}\">\n<h1>Contract check of {} <span "
                                   "class=\"word\">{}</span></h1>\n<p>{}</p>\n",
                                   NameOf(verdict), EscapeXml(ModuleName(run)), VerdictWord(verdict),
                                   EscapeXml(VerdictSentence(run, clauses)));
    if (!run.files.empty()) {
        const FileIdentity &module = run.files[0];
        html += fmt::format("<p class=\"soft\">Version {}, commit {}<br/>SHA-256 <code>{}</code></p>\n",
                            module.version.empty() ? "unknown" : EscapeXml(module.version),
                            run.moduleCommit.empty() ? "unknown" : EscapeXml(run.moduleCommit),
                            module.sha256.empty() ? "unknown" : EscapeXml(module.sha256));
    }
    return html + fmt::format("<p class=\"soft\">{}, {:.0f} s, on {}</p>\n</header>\n",
                              EscapeXml(run.beganAt), run.seconds, EscapeXml(run.system));
}

// How the checks of a level ended.
struct LevelCounts {
    LevelCounts(const Run &run, int level)
    {
        for (const CheckResult &result : run.results) {
            if (result.level == level) {
                ++all;
                failed += HasFailure(result) ? 1 : 0;
                skipped += IsSkipped(result) ? 1 : 0;
                interrupted += IsInterrupted(result) ? 1 : 0;
            }
        }
    }

    int all = 0;
    int failed = 0;
    int skipped = 0;
    int interrupted = 0;
};

std::string_view StateOf(const LevelCounts &counts)
{
    return counts.all == 0                ? "not run"
           : counts.failed > 0            ? "failed"
           : counts.interrupted > 0       ? "not finished"
           : counts.skipped == counts.all ? "skipped"
                                          : "passed";
}

std::string DetailOf(const LevelCounts &counts)
{
    std::string detail = counts.all == 0 ? "" : fmt::format(", {}", Counted(counts.all, "check", "checks"));
    if (counts.failed > 0) {
        detail += fmt::format(", {} failed", counts.failed);
    }
    if (counts.interrupted > 0) {
        detail += fmt::format(", {} interrupted", counts.interrupted);
    }
    if (counts.skipped > 0 && counts.skipped != counts.all) {
        detail += fmt::format(", {} skipped", counts.skipped);
    }
    return detail;
}

// A box for each level: the checks that it has, and how they ended.
std::string Levels(const Run &run)
{
    std::string html = "<ol class=\"levels\">\n";
    for (size_t i = 0; i < levelTitles.size(); ++i) {
        const int level = static_cast<int>(i) + 1;
        const LevelCounts counts(run, level);
        const std::string_view state = StateOf(counts);
        html += fmt::format("<li class=\"{}\"><b>Level {}: {}</b>{}{}</li>\n",
                            state.starts_with("not ") ? "off" : state, level, levelTitles[i], state,
                            DetailOf(counts));
    }
    return html + "</ol>\n";
}

std::string Fact(std::string_view name, std::string_view value)
{
    return value.empty() ? std::string() : fmt::format("<p>{}: {}</p>\n", name, value);
}

std::string FailedCheck(const CheckResult &result)
{
    std::string html = fmt::format(
        "<article class=\"card{}\">\n<h3>{} <span class=\"{}\">{}</span></h3>\n",
        result.outcome == Outcome::BROKEN ? " checker" : "", EscapeXml(result.name), StyleOf(result.outcome),
        result.outcome == Outcome::BROKEN ? "the checker failed" : NameOf(result.outcome));
    if (!result.broken.empty()) {
        html += "<ul>\n";
        for (const BrokenClause &broken : result.broken) {
            html += fmt::format("<li><b>{}</b> {}</li>\n", EscapeXml(broken.clause), EscapeXml(broken.text));
        }
        html += "</ul>\n";
    }
    const auto code = [](const std::string &text) {
        return text.empty() ? text : "<code>" + EscapeXml(text) + "</code>";
    };
    html += Fact("Fault", code(result.fault)) + Fact("Last step", EscapeXml(result.lastStep)) +
            Fact("Reason", EscapeXml(result.reason)) + Fact("Minidump", code(result.dumpFile));
    if (!result.repeat.empty()) {
        html += "<p>Repeat with</p>\n" + Command(result.repeat);
    }
    return html + "</article>\n";
}

std::string FailedChecks(const Run &run)
{
    std::string html;
    for (const CheckResult &result : run.results) {
        if (HasFailure(result)) {
            html += FailedCheck(result);
        }
    }
    return html;
}

std::string FactBox(std::string_view name, const std::string &value)
{
    return fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", name, value);
}

std::string Figure(std::string_view caption, const std::string &picture)
{
    return picture.empty()
               ? picture
               : fmt::format("<figure>{}<figcaption>{}</figcaption></figure>\n", picture, caption);
}

// "–" for a value that was not measured.
std::string Measured(double value, fmt::format_string<double> text)
{
    return std::isfinite(value) ? fmt::vformat(text, fmt::make_format_args(value)) : "–";
}

std::string HeardBy(const CheckResult &result)
{
    const HeardSound &heard = *result.heard;
    std::string html = fmt::format("<h3>{}: {}</h3>\n", EscapeXml(result.name), EscapeXml(heard.source));
    if (heard.framesHeard == 0) {
        html += fmt::format("<p class=\"bad\">Nothing of the {} frames that were sent was heard.</p>\n",
                            heard.framesSent);
    }
    if (heard.channelsSwapped) {
        html += "<p class=\"bad\">Left was heard on the right, and right on the left.</p>\n";
    }
    html += "<dl class=\"facts\">\n" +
            FactBox("Frames heard", fmt::format("{} of {}", heard.framesHeard, heard.framesSent)) +
            FactBox("Repeated", fmt::to_string(heard.framesRepeated)) +
            FactBox("Out of order", fmt::to_string(heard.framesOutOfOrder)) +
            FactBox("Gaps", fmt::to_string(heard.gapsAtSeconds.size()));
    if (heard.framesHeard > 0) {
        html += FactBox("Delay", Measured(heard.delayMs, "{:.0f} ms")) +
                FactBox("Level", Measured(heard.levelDb, "{:+.1f} dB")) +
                FactBox("Speed", Measured(heard.speed * 100, "{:.2f} %"));
    }
    return html + "</dl>\n" +
           Figure("Peak level of the recording. Each red line is the beginning of a gap.",
                  EnvelopePicture(heard)) +
           Figure("The number of each frame, in the order in which the frames were heard. Sound in order is "
                  "a rising "
                  "line; late and repeated frames are red.",
                  FrameOrderPicture(heard));
}

std::string Heard(const Run &run)
{
    std::string html;
    for (const CheckResult &result : run.results) {
        if (result.heard) {
            html += HeardBy(result);
        }
    }
    return html;
}

// Null for a unit that is no time.
std::optional<double> Microseconds(const Measurement &value)
{
    static const std::map<std::string_view, double> units{
        {"ns", 1e-3}, {"µs", 1}, {"us", 1}, {"ms", 1e3}, {"s", 1e6}};
    const auto unit = units.find(value.unit);
    return unit == units.end() ? std::nullopt : std::optional(value.value * unit->second);
}

// Which value of SlotTimes a measurement is; null for none.
std::optional<double> SlotTimes::*MemberOf(const Measurement &value, std::string &call)
{
    struct Suffix {
        std::string_view text;
        std::optional<double> SlotTimes::*member;
    };
    constexpr std::array<Suffix, 3> suffixes{
        {{" p50", &SlotTimes::p50Us}, {" p99", &SlotTimes::p99Us}, {" budget", &SlotTimes::budgetUs}}};
    for (const Suffix &suffix : suffixes) {
        if (value.name.ends_with(suffix.text) && Microseconds(value)) {
            call = value.name.substr(0, value.name.size() - suffix.text.size());
            call.erase(call.find_last_not_of(',') + 1); // of "a long name, p50"
            return suffix.member;
        }
    }
    return nullptr;
}

// The same call of another check is another entry, with the check's name.
std::vector<SlotTimes> TimesOf(const Run &run)
{
    std::vector<SlotTimes> all;
    for (const CheckResult &result : run.results) {
        std::vector<SlotTimes> times;
        for (const Measurement &value : result.measured) {
            std::string call;
            if (const auto member = MemberOf(value, call)) {
                const auto isCall = [&](const SlotTimes &each) { return each.name == call; };
                auto entry = std::find_if(times.begin(), times.end(), isCall);
                if (entry == times.end()) {
                    entry = times.insert(times.end(), SlotTimes{call, {}, {}, {}});
                }
                (*entry).*member = Microseconds(value);
            }
        }
        for (SlotTimes &each : times) {
            const auto isSame = [&](const SlotTimes &other) { return other.name == each.name; };
            if (std::any_of(all.begin(), all.end(), isSame)) {
                each.name += " (" + result.name + ")";
            }
            all.push_back(std::move(each));
        }
    }
    return all;
}

std::string OtherValues(const Run &run)
{
    std::string rows;
    for (const CheckResult &result : run.results) {
        for (const Measurement &value : result.measured) {
            std::string call;
            if (MemberOf(value, call) == nullptr) {
                rows += fmt::format("<tr><td>{}</td><td>{}</td><td class=\"n\">{} {}</td></tr>\n",
                                    EscapeXml(result.name), EscapeXml(value.name),
                                    Measured(value.value, "{:.6g}"), EscapeXml(value.unit));
            }
        }
    }
    return Table("<th>Check</th><th>What</th><th class=\"n\">Value</th>", rows);
}

std::string Times(const Run &run)
{
    return Figure("How long calls took: the dark bar ends at the median (p50), the light one at the 99th "
                  "percentile "
                  "(p99); the dashed line is the budget. A bar beyond its budget is red. The scale is "
                  "logarithmic. "
                  "Numbers: p50 · p99 · budget.",
                  SlotTimesPicture(TimesOf(run))) +
           OtherValues(run);
}

std::string WarningRows(const Run &run)
{
    std::string rows;
    for (const CheckResult &result : run.results) {
        for (const std::string &warning : result.warnings) {
            rows +=
                fmt::format("<tr><td>{}</td><td>{}</td></tr>\n", EscapeXml(result.name), EscapeXml(warning));
        }
    }
    return rows;
}

std::string SkippedRows(const Run &run)
{
    std::string rows;
    for (const CheckResult &result : run.results) {
        if (IsSkipped(result)) {
            rows += fmt::format("<tr><td>{}</td><td>{}</td></tr>\n", EscapeXml(result.name),
                                EscapeXml(result.reason));
        }
    }
    return rows;
}

// Why no check of the run covers a clause, or which checks do.
std::string CoveredBy(const ClauseResult &clause)
{
    if (clause.clause != nullptr && clause.clause->coverage == Coverage::HOST) {
        return "binds the host";
    }
    if (clause.clause != nullptr && clause.clause->coverage == Coverage::TESTS) {
        return "cannot be seen from outside: " + EscapeXml(clause.clause->tests);
    }
    std::string text;
    for (const CheckResult *check : clause.checks) {
        const bool isNotable = check->outcome != Outcome::PASSED && check->outcome != Outcome::WARNED;
        text += fmt::format("{}{}{}", text.empty() ? "" : ", ", EscapeXml(check->name),
                            isNotable ? fmt::format(" ({})", NameOf(check->outcome)) : "");
    }
    return text.empty() ? "not in this run" : text;
}

std::string ClauseRow(const ClauseResult &clause)
{
    return fmt::format("<tr><td class=\"id\">{}</td><td class=\"state {}\">{}</td><td>{}<br/>"
                       "<span class=\"soft\">{}</span></td></tr>\n",
                       EscapeXml(clause.id), StyleOf(clause.outcome), NameOf(clause.outcome),
                       clause.clause != nullptr ? host::HtmlOfMarkdown(clause.clause->text)
                                                : "a clause that this version of the program does not know",
                       CoveredBy(clause));
}

std::string Clauses(const std::vector<ClauseResult> &clauses)
{
    constexpr std::string_view head =
        "<th>Id</th><th>Outcome</th><th>Clause, and the checks that cover it</th>";
    std::string html;
    const auto add = [&](const std::string &title, auto isInGroup) {
        std::string rows;
        std::map<ClauseOutcome, int> counts;
        for (const ClauseResult &clause : clauses) {
            if (isInGroup(clause)) {
                rows += ClauseRow(clause);
                ++counts[clause.outcome];
            }
        }
        std::string summary;
        for (const auto &[outcome, count] : counts) {
            summary += fmt::format("{}{} {}", summary.empty() ? "" : ", ", count, NameOf(outcome));
        }
        if (!rows.empty()) {
            html += fmt::format("<h3>{} <span class=\"soft\">{}</span></h3>\n{}", title, summary,
                                Table(head, rows));
        }
    };
    for (const ClauseGroupInfo &group : AllClauseGroups()) {
        add(fmt::format("{}: {}", group.name, EscapeXml(group.title)), [&](const ClauseResult &clause) {
            return clause.clause != nullptr && clause.clause->group == group.group;
        });
    }
    add("Unknown clauses", [](const ClauseResult &clause) { return clause.clause == nullptr; });
    return html;
}

std::string AllChecks(const Run &run)
{
    std::string rows;
    for (const CheckResult &result : run.results) {
        rows += fmt::format(
            "<tr><td class=\"n\">{}</td><td>{}</td><td class=\"state {}\">{}</td><td class=\"n\">{}"
            "</td></tr>\n",
            result.level, EscapeXml(result.name), StyleOf(result.outcome), NameOf(result.outcome),
            Measured(result.seconds, "{:.2f} s"));
    }
    return Table(R"(<th class="n">Level</th><th>Check</th><th>Outcome</th><th class="n">Time</th>)", rows);
}

std::string Machine(const Run &run)
{
    std::string rows;
    for (const EndpointInfo &endpoint : run.endpoints) {
        rows += fmt::format("<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>\n",
                            EscapeXml(endpoint.direction),
                            endpoint.name.empty() ? "not named" : EscapeXml(endpoint.name),
                            endpoint.roles.empty() ? "none" : EscapeXml(endpoint.roles),
                            endpoint.mixFormat.empty() ? "none" : EscapeXml(endpoint.mixFormat));
    }
    std::string html = Fact("System", EscapeXml(run.system)) + Fact("Processor", EscapeXml(run.processor)) +
                       Fact("Checker", EscapeXml("velto-host " + run.checkerVersion));
    return html +
           (rows.empty()
                ? "<p>No sound endpoint was found.</p>\n"
                : Table("<th>Direction</th><th>Endpoint</th><th>Default for</th><th>Mix format</th>", rows));
}

std::string Files(const Run &run)
{
    std::string rows;
    for (const FileIdentity &file : run.files) {
        rows +=
            fmt::format("<tr><td>{}</td><td>{}</td><td class=\"n\">{}</td><td><code>{}</code></td></tr>\n",
                        EscapeXml(file.name), EscapeXml(file.version), file.bytes,
                        file.sha256.empty() ? "cannot be read" : EscapeXml(file.sha256));
    }
    return Table("<th>File</th><th>Version</th><th class=\"n\">Bytes</th><th>SHA-256</th>", rows);
}

// The command of this run. The module's folder is unknown here, and would be another one elsewhere.
std::string RunCommand(const Run &run)
{
    return fmt::format("velto-host check --module \"{}\" {} --seed {}{}", ModuleName(run),
                       run.only.empty() ? fmt::format("--level {}", run.level) : "--only " + run.only,
                       run.seed, run.listen ? " --listen" : "");
}

std::string HowTo(const Run &run)
{
    return "<p>Repeat the run, in the module's folder. The same module, level and seed give the same checks "
           "with the "
           "same inputs; measured values differ.</p>\n" +
           Command(RunCommand(run)) +
           "<p>Find out whether a report belongs to a module: this needs the JSON report of the run.</p>\n" +
           Command(fmt::format("velto-host check --verify REPORT.json --module \"{}\"", ModuleName(run)));
}

} // namespace

std::string HtmlReport(const Run &run)
{
    const std::vector<ClauseResult> clauses = ClauseResults(run);
    std::string html = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
        "<title>{}: {}, {}</title>\n<style>{}</style>\n</head>\n<body>\n",
        EscapeXml(ModuleName(run)), VerdictWord(Verdict(run)),
        run.only.empty() ? fmt::format("level {}", LevelReached(run)) : EscapeXml(run.only), reportStyle);
    html += Head(run, clauses) + "<main>\n" + Levels(run) +
            Section("failed", "What failed", FailedChecks(run)) +
            Section("heard", "What was heard", Heard(run)) + Section("times", "Measured", Times(run)) +
            Section("warnings", "Warnings", Table("<th>Check</th><th>Look at</th>", WarningRows(run))) +
            Section("skipped", "Skipped checks", Table("<th>Check</th><th>Reason</th>", SkippedRows(run))) +
            Section("clauses", "Clauses of the contract", Clauses(clauses)) +
            Section("checks", "All checks", AllChecks(run)) + Section("machine", "Machine", Machine(run)) +
            Section("files", "Files", Files(run)) + Section("repeat", "Repeat and verify", HowTo(run));
    return html +
           "</main>\n<footer>\n<p>This page needs no other file. MUST and SHOULD are those of RFC 2119.</p>\n"
           "</footer>\n</body>\n</html>\n";
}

} // namespace velto::check
