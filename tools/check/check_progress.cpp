#include "check/check_progress.h"

#include <algorithm>
#include <cstdio>

#include "velto-host/output.h"

namespace velto::check {
namespace {

using host::Format;

constexpr size_t longestLine = 79; // a longer line would wrap, and could not be rewritten

void Print(const std::string &text)
{
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

std::string ClausesOf(const CheckResult &result)
{
    std::vector<std::string> clauses;
    for (const BrokenClause &broken : result.broken) {
        clauses.push_back(broken.clause);
    }
    std::sort(clauses.begin(), clauses.end());
    clauses.erase(std::unique(clauses.begin(), clauses.end()), clauses.end());
    std::string text;
    for (const std::string &clause : clauses) {
        text += " " + clause;
    }
    return text;
}

std::string DetailOf(const CheckResult &result)
{
    return result.broken.empty() ? (result.reason.empty() ? "" : ": " + result.reason)
                                 : ":" + ClausesOf(result);
}

} // namespace

CheckProgress::CheckProgress(size_t checks) : m_isConsole(host::Output::IsConsole()), m_checks(checks) {}

CheckProgress::~CheckProgress()
{
    ClearRunning();
}

void CheckProgress::Begin(const Check &check)
{
    m_running.emplace_back(check.name);
    ClearRunning();
    ShowRunning();
}

void CheckProgress::End(const CheckResult &result)
{
    std::erase(m_running, result.name);
    ClearRunning();
    Print(Format("[{:>{}}/{}] {:<7}  {} ({:.1f} s){}\n", ++m_ended, std::to_string(m_checks).size(), m_checks,
                 NameOf(result.outcome), result.name, result.seconds, DetailOf(result)));
    ShowRunning();
}

void CheckProgress::ShowRunning()
{
    if (!m_isConsole || m_running.empty()) {
        return;
    }
    std::string line = "running:";
    for (const std::string &name : m_running) {
        line += " " + name;
    }
    line.resize(std::min(line.size(), longestLine));
    m_shown = line.size();
    Print(line);
}

void CheckProgress::ClearRunning()
{
    if (m_shown > 0) {
        Print("\r" + std::string(m_shown, ' ') + "\r");
        m_shown = 0;
    }
}

} // namespace velto::check
