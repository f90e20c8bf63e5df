#include "check/portable/report_verify.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <fmt/format.h>

namespace velto::check {
namespace {

char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsSameName(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

// A line if the files differ, else "".
std::string Difference(const FileIdentity &reported, const FileIdentity &actual)
{
    if (actual.sha256.empty()) {
        return fmt::format("{} cannot be read", actual.name);
    }
    if (reported.sha256.empty()) {
        return fmt::format("{}: the report has no SHA-256 of it", actual.name);
    }
    return actual.sha256 == reported.sha256 && actual.bytes == reported.bytes
               ? std::string()
               : fmt::format("{} differs: SHA-256 {}, {} bytes; in the report {}, {} bytes", actual.name,
                             actual.sha256, actual.bytes, reported.sha256, reported.bytes);
}

const FileIdentity *FindNeeded(const std::vector<FileIdentity> &files, const std::string &name)
{
    const auto found = std::find_if(files.begin() + 1, files.end(),
                                    [&](const FileIdentity &file) { return IsSameName(file.name, name); });
    return found == files.end() ? nullptr : &*found;
}

std::vector<std::string> Differences(const std::vector<FileIdentity> &reported,
                                     const std::vector<FileIdentity> &actual)
{
    if (reported.empty()) {
        return {"the report names no module"};
    }
    if (actual.empty()) {
        return {fmt::format("{} is missing", reported[0].name)};
    }
    std::vector<std::string> lines{Difference(reported[0], actual[0])};
    for (size_t i = 1; i < reported.size(); ++i) {
        const FileIdentity *file = FindNeeded(actual, reported[i].name);
        lines.push_back(file == nullptr ? fmt::format("{} is missing", reported[i].name)
                                        : Difference(reported[i], *file));
    }
    for (size_t i = 1; i < actual.size(); ++i) {
        if (FindNeeded(reported, actual[i].name) == nullptr) {
            lines.push_back(fmt::format("{} is extra: the report does not name it", actual[i].name));
        }
    }
    std::erase(lines, std::string());
    return lines;
}

} // namespace

Verification VerifyReport(const Run &report, const std::vector<FileIdentity> &actual)
{
    Verification verification;
    verification.lines = Differences(report.files, actual);
    verification.isOfTheseBytes = verification.lines.empty();
    const Outcome verdict = Verdict(report);
    verification.hasPassed = verdict == Outcome::PASSED;
    if (verdict == Outcome::PASSED) {
        verification.lines.push_back(
            report.only.empty()
                ? fmt::format("the report's verdict is passed: level {} of {} reached", LevelReached(report),
                              report.level)
                : fmt::format("the report's verdict is passed, but only {} was examined", report.only));
    } else {
        verification.lines.emplace_back(
            verdict == Outcome::FAILED
                ? "the report's verdict is failed: the module breaks its contract"
                : "the report's verdict is broken: the checker failed, so the report certifies nothing");
    }
    return verification;
}

} // namespace velto::check
