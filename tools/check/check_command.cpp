#include "check/check_command.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <vector>

#include "check/all_checks.h"
#include "check/check_progress.h"
#include "check/check_summary.h"
#include "check/file_identity.h"
#include "check/machine_info.h"
#include "check/module_log.h"
#include "check/portable/plan.h"
#include "check/portable/report_json.h"
#include "check/portable/report_junit.h"
#include "check/portable/report_page.h"
#include "check/portable/report_verify.h"
#include "check/report_file.h"
#include "check/runner.h"
#include "check/temporary_folder.h"
#include "velto-host/module.h"
#include "velto-host/output.h"
#include "velto-host/stream_control.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

namespace fs = std::filesystem;
using host::FileError;
using host::Format;
using host::Json;
using host::Output;
using Clock = std::chrono::steady_clock;

constexpr char program[] = "velto-host";
constexpr char listSchema[] = "urn:velto:velto-host-check-list:1";
constexpr char verifySchema[] = "urn:velto:velto-host-check-verify:1";

std::string NowInUtc()
{
    SYSTEMTIME now{};
    GetSystemTime(&now);
    return Format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond);
}

// ---- --list

Json DescribeCheck(const Check &check)
{
    Json clauses = Json::Array();
    for (const std::string_view clause : check.clauses) {
        clauses.Append(std::string(clause));
    }
    return {{"name", std::string(check.name)},
            {"level", check.level},
            {"clauses", clauses},
            {"timeLimitSeconds", static_cast<int64_t>(check.timeLimit.count())}};
}

void PrintCheck(const Check &check, const Output &output)
{
    std::string clauses;
    for (const std::string_view clause : check.clauses) {
        clauses += (clauses.empty() ? "" : " ") + std::string(clause);
    }
    output.Say("{:>2}  {:<45} {}", check.level, check.name, clauses);
}

int ListChecks(const std::vector<const Check *> &plan, bool json)
{
    const Output output(program, json, listSchema);
    Json checks = Json::Array();
    for (const Check *check : plan) {
        checks.Append(DescribeCheck(*check));
        if (!json) {
            PrintCheck(*check, output);
        }
    }
    output.Result({{"checks", checks}});
    return host::EXIT_OK;
}

// ---- --verify

Run ReadReport(const std::string &file)
{
    std::ifstream stream(fs::path(host::ToWide(file)), std::ios::binary);
    if (!stream) {
        throw FileError("cannot read " + file);
    }
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    try {
        return ReadJsonReport(text);
    } catch (const std::runtime_error &error) {
        throw FileError(file + ": " + error.what());
    }
}

int Verify(const CheckOptions &options, const std::string &modulePath, bool json)
{
    const Output output(program, json, verifySchema);
    const Run report = ReadReport(options.verifyReport);
    const Verification verification = VerifyReport(report, IdentifyFiles(modulePath));
    for (const std::string &line : verification.lines) {
        output.Say("{}", line);
    }
    output.Result({{"isOfTheseBytes", verification.isOfTheseBytes},
                   {"hasPassed", verification.hasPassed},
                   {"level", report.level},
                   {"levelReached", LevelReached(report)},
                   {"lines", verification.lines}});
    return verification.isOfTheseBytes && verification.hasPassed ? host::EXIT_OK : host::EXIT_CHECK_FAILED;
}

// ---- A run

PlanOptions PlanOptionsOf(const CheckOptions &options, int level)
{
    return {.level = level, .only = options.only, .listen = options.listen, .speak = options.speak};
}

// All files are opened before the first check: a run may take hours.
struct Reports {
    explicit Reports(const CheckOptions &options)
    {
        Open(json, options.jsonFile);
        Open(junit, options.junitFile);
        Open(html, options.htmlFile);
    }

    void Write(const Run &run)
    {
        if (json) {
            json->Write(JsonReport(run));
        }
        if (junit) {
            junit->Write(JunitReport(run));
        }
        if (html) {
            html->Write(HtmlReport(run));
        }
    }

    std::optional<ReportFile> json;
    std::optional<ReportFile> junit;
    std::optional<ReportFile> html;

private:
    static void Open(std::optional<ReportFile> &file, const std::string &path)
    {
        if (!path.empty()) {
            file.emplace(path);
        }
    }
};

fs::path CreateDumpsFolder(const std::string &folder)
{
    if (folder.empty()) {
        return {};
    }
    fs::path path = fs::absolute(host::ToWide(folder));
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        throw FileError("cannot create the folder " + folder);
    }
    return path;
}

fs::path ExistingModule(const std::string &modulePath)
{
    fs::path module = host::Module::FullPath(modulePath);
    std::error_code error;
    if (!fs::is_regular_file(module, error)) {
        throw host::ModuleError("there is no module " + host::ToUtf8(module.wstring()));
    }
    return module;
}

void AnnounceSound(const CheckOptions &options, const std::vector<const Check *> &plan, const Output &output)
{
    const auto count = [&](bool (*isIt)(const Check &)) {
        return std::count_if(plan.begin(), plan.end(), [&](const Check *check) { return isIt(*check); });
    };
    if (options.listen) {
        output.Complain("{} checks play through the loudspeaker and record what it plays",
                        count(IsListening));
    }
    if (options.speak) {
        output.Complain("{} checks play through the loudspeaker and expect this sound from the microphone",
                        count(IsSpeaking));
    }
}

Run BeginRun(const CheckOptions &options, const std::string &modulePath, int level)
{
    Run run;
    run.files = IdentifyFiles(modulePath);
    run.level = level;
    run.seed = options.seed;
    run.only = options.only;
    run.listen = options.listen;
    run.beganAt = NowInUtc();
    DescribeMachine(run, options.withNames);
    return run;
}

int ExitCodeOf(const Run &run, const host::Interruption &interruption)
{
    if (interruption.IsRaised()) {
        return host::EXIT_INTERRUPTED;
    }
    switch (Verdict(run)) {
    case Outcome::PASSED:
        return host::EXIT_OK;
    case Outcome::BROKEN:
        return host::EXIT_CHECK_BROKEN;
    default:
        return host::EXIT_CHECK_FAILED;
    }
}

// Refuses the whole run: the checks would examine other DLLs than the report names.
int RefuseForeignDll(const std::string &foreignDll, bool json)
{
    return Output(program, json, std::string(reportSchema))
        .Fail(host::EXIT_CHECK_BROKEN,
              Format("{}: copy velto-host.exe, and those of its DLLs that are missing there, to the module's "
                     "folder and run it from there",
                     foreignDll));
}

int RunChecks(const CheckOptions &options, const std::vector<const Check *> &plan,
              const std::string &modulePath, int level, bool json)
{
    const Output output(program, json);
    RunnerOptions runnerOptions;
    runnerOptions.module = ExistingModule(modulePath);
    if (const std::string foreignDll = FindForeignDll(runnerOptions.module); !foreignDll.empty()) {
        return RefuseForeignDll(foreignDll, json);
    }
    runnerOptions.moduleArgument = modulePath;
    runnerOptions.seed = options.seed;
    runnerOptions.minutes = options.minutes;
    runnerOptions.jobs = options.jobs;
    runnerOptions.dumpsFolder = CreateDumpsFolder(options.dumpsFolder);
    Reports reports(options);
    const TemporaryFolder folder(fs::temp_directory_path() / Format("velto-check-{}", GetCurrentProcessId()));
    runnerOptions.folder = folder.Path();
    const ModuleLog log(folder.Path());
    AnnounceSound(options, plan, output);

    const host::Interruption interruption;
    const auto begin = Clock::now();
    Run run = BeginRun(options, modulePath, level);
    {
        CheckProgress progress(plan.size());
        Runner runner(runnerOptions,
                      {[&](const Check &check) { progress.Begin(check); },
                       [&](const CheckResult &result) { progress.End(result); }},
                      interruption.Event());
        run.results = runner.Run(plan);
    }
    run.moduleCommit = log.Commit();
    run.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    reports.Write(run);
    PrintSummary(run, output);
    if (json) {
        std::fputs(JsonReport(run).c_str(), stdout);
    }
    return ExitCodeOf(run, interruption);
}

} // namespace

int RunCheckCommand(const CheckOptions &options, const std::string &modulePath, bool json)
{
    if (!options.verifyReport.empty()) {
        return Verify(options, modulePath, json);
    }
    const int level = options.level.value_or(options.list ? highestLevel : defaultLevel);
    PlanOptions planOptions = PlanOptionsOf(options, level);
    // A list without a level names all checks.
    planOptions.speak |= options.list && !options.level;
    std::vector<const Check *> plan;
    try {
        plan = PlanOf(planOptions, AllChecks());
    } catch (const std::invalid_argument &error) {
        return Output(program, json, std::string(reportSchema)).Fail(host::EXIT_USAGE, error.what());
    }
    return options.list ? ListChecks(plan, json) : RunChecks(options, plan, modulePath, level, json);
}

} // namespace velto::check
