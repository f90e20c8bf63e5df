#include "velto-host/report_command.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "velto-host/device_commands.h"
#include "velto-host/json.h"
#include "velto-host/log_files.h"
#include "velto-host/module.h"
#include "velto-host/portable/log_report.h"
#include "velto-host/portable/privacy.h"
#include "velto-host/version_info.h"
#include "velto-host/windows_text.h"
#include "velto-host/zip_file.h"

namespace velto::host {
namespace {

constexpr char contents[] =
    "Report of velto-host for support.\r\n"
    "\r\n"
    "report.json      versions, checksums and build ids of the DLLs; the system's version; the sound\r\n"
    "                 endpoints with state, roles and mix format; the module's capabilities; settings\r\n"
    "log/             the module's log files\r\n"
    "explanation.txt  the text that velto-host log prints about them\r\n"
    "\r\n"
    "Left out: the names and ids of the sound endpoints, unless --with-names was given; in all files, the\r\n"
    "path of the user's folder, and the names of this folder, of the user and of the computer in other\r\n"
    "paths. Other folders keep their names. The report has no sound.\r\n";

// The path with short names, as it is in TEMP of users with long names; empty if there is none.
std::string ShortPath(const std::string &path)
{
    const std::wstring wide = ToWide(path);
    std::wstring shorter(GetShortPathNameW(wide.c_str(), nullptr, 0), L'\0');
    const DWORD length = GetShortPathNameW(wide.c_str(), shorter.data(), static_cast<DWORD>(shorter.size()));
    shorter.resize(length < shorter.size() ? length : 0);
    return ToUtf8(shorter);
}

Json RegistryText(HKEY root, const wchar_t *key, const wchar_t *name)
{
    wchar_t text[256] = {};
    DWORD bytes = sizeof(text);
    return RegGetValueW(root, key, name, RRF_RT_REG_SZ, nullptr, text, &bytes) == ERROR_SUCCESS
               ? Json(ToUtf8(text))
               : Json();
}

Json RegistryNumber(HKEY root, const wchar_t *key, const wchar_t *name)
{
    DWORD number = 0;
    DWORD bytes = sizeof(number);
    return RegGetValueW(root, key, name, RRF_RT_REG_DWORD, nullptr, &number, &bytes) == ERROR_SUCCESS
               ? Json(number)
               : Json();
}

Json Settings(const Privacy &privacy)
{
    const auto variable = [&](const wchar_t *name) {
        const std::string value = ToUtf8(EnvironmentVariable(name));
        return value.empty() ? Json() : Json(privacy.PathWithout(value));
    };
    constexpr wchar_t consent[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\CapabilityAccessManager\\"
                                  L"ConsentStore\\microphone";
    constexpr wchar_t programs[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\CapabilityAccessManager\\"
                                   L"ConsentStore\\microphone\\NonPackaged";
    constexpr wchar_t mirror[] = L"SOFTWARE\\NORVEL\\NRAudio\\NrMirror";
    return {{"logFile", privacy.PathWithout(ToUtf8(ModuleLogFile().wstring()))},
            {"VELTO_LOG_FILE", variable(L"VELTO_LOG_FILE")},
            {"VELTO_LOG_LEVEL", variable(L"VELTO_LOG_LEVEL")},
            {"streamType", RegistryNumber(HKEY_CURRENT_USER, mirror, L"StreamType")},
            {"microphoneConsent", RegistryText(HKEY_CURRENT_USER, consent, L"Value")},
            {"microphoneConsentOfPrograms", RegistryText(HKEY_CURRENT_USER, programs, L"Value")},
            {"microphoneConsentOfPc", RegistryText(HKEY_LOCAL_MACHINE, consent, L"Value")}};
}

Json Binaries(const std::string &modulePath, const Privacy &privacy)
{
    Json binaries = Json::Array();
    for (const BinaryFacts &each : ExamineBinaries(modulePath)) {
        if (each.error.empty()) {
            binaries.Append({{"name", each.name},
                             {"version", each.version},
                             {"product", each.product},
                             {"buildId", each.buildId},
                             {"sha256", each.sha256},
                             {"bytes", each.bytes}});
        } else {
            binaries.Append({{"name", each.name}, {"error", privacy.Without(each.error)}});
        }
    }
    return binaries;
}

Json Capabilities(const std::string &modulePath, const Privacy &privacy)
{
    try {
        Module module(modulePath);
        return DescribeCapabilities(module);
    } catch (const ModuleError &error) {
        return {{"error", privacy.Without(error.what())}};
    }
}

// The name of a file as a part of an entry's name, which has no angle brackets: Windows could not unpack it.
std::string EntryName(const std::filesystem::path &file, const Privacy &privacy)
{
    std::string name = privacy.PathWithout(ToUtf8(file.filename().wstring()));
    std::erase_if(name, [](char c) { return c == '<' || c == '>'; });
    return name;
}

// Adds the log files and their explanation. The list of the files is for report.json.
Json AddLogs(ZipFile &zip, const Privacy &privacy)
{
    Json listed = Json::Array();
    LogAnalysis analysis;
    for (const std::filesystem::path &file : ModuleLogFiles()) {
        const std::string name = EntryName(file, privacy);
        try {
            std::string content;
            ReadBlocks(file, [&](std::string_view block) { content += block; });
            LineSplitter lines([&](std::string_view line) { analysis.Add(line); });
            lines.Add(content);
            lines.Finish();
            zip.Add("log/" + name, privacy.Without(content));
            listed.Append({{"name", name}, {"bytes", content.size()}});
        } catch (const FileError &error) {
            listed.Append({{"name", name}, {"error", privacy.Without(error.what())}});
        }
    }
    const LogResult result = analysis.Finish();
    if (result.messages > 0) {
        std::string text;
        for (const std::string &line : LogReport(result, LogOptions().mostEntries)) {
            text += privacy.Without(line) + "\r\n";
        }
        zip.Add("explanation.txt", text);
    }
    return listed;
}

} // namespace

ExitCode WriteReport(const ReportOptions &options, const std::string &modulePath, const Output &output)
{
    RefuseToReplace(ModuleLogFiles(), ToWide(options.file));
    const std::string profile = ToUtf8(EnvironmentVariable(L"USERPROFILE"));
    const Privacy privacy({profile, ShortPath(profile)}, ToUtf8(EnvironmentVariable(L"USERNAME")),
                          ToUtf8(EnvironmentVariable(L"COMPUTERNAME")));
    ZipFile zip;
    zip.Add("README.txt", contents);
    // Before the module is loaded, which may write to the log.
    const Json logs = AddLogs(zip, privacy);
    const Json report{{"program", ProgramVersion()},
                      {"system", SystemVersion()},
                      {"binaries", Binaries(modulePath, privacy)},
                      {"endpoints", DescribeEndpoints(options.withNames)},
                      {"capabilities", Capabilities(modulePath, privacy)},
                      {"settings", Settings(privacy)},
                      {"logs", logs}};
    zip.Add("report.json", report.IndentedText() + "\n");
    zip.Write(std::filesystem::path(ToWide(options.file)));
    output.Say("{} has:", options.file);
    for (const std::string &name : zip.Names()) {
        output.Say("  {}", name);
    }
    output.Say("Names of endpoints are {}. Look at the files before you send the report.",
               options.withNames ? "included" : "left out");
    output.Result({{"file", options.file}, {"entries", zip.Names()}, {"exitCode", int{EXIT_OK}}});
    return EXIT_OK;
}

} // namespace velto::host
