// A table of the expected outcomes of failing calls, filled row by row.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "fault_walk.h"

namespace velto_test {

// `Step`: the enumeration of a scenario's kinds of steps.
template <typename Step>
class ExpectationRows {
public:
    // The rows added after this call apply to these steps.
    void During(std::vector<Step> steps) { m_steps = std::move(steps); }

    // `use`: the number of the failing use within the step; 0 for any. `text`: empty if no line is required.
    void Add(const std::string &call, FaultKind kind, const std::wstring &text, const std::string &tag,
             std::vector<Recovery> recoveries, int use = 0)
    {
        std::vector<Line> lines;
        if (!text.empty()) {
            lines.push_back({tag, text});
        }
        Add(call, kind, {std::move(lines), std::move(recoveries)}, use);
    }
    void Add(const std::string &call, FaultKind kind, Expectation expected, int use = 0)
    {
        m_rows.push_back({call, m_steps, kind, use, std::move(expected)});
    }

    // Returns the first row that matches.
    std::optional<Expectation> Find(const FaultCase &faulty, Step step, int use) const
    {
        for (const Row &row : m_rows) {
            if (row.call == faulty.call.name && row.kind == faulty.fault.kind &&
                (row.use == 0 || row.use == use) &&
                std::find(row.steps.begin(), row.steps.end(), step) != row.steps.end()) {
                return row.expected;
            }
        }
        return std::nullopt;
    }

private:
    struct Row {
        std::string call;
        std::vector<Step> steps;
        FaultKind kind;
        int use;
        Expectation expected;
    };

    std::vector<Step> m_steps;
    std::vector<Row> m_rows;
};

// Replaces a placeholder such as `$1` with its value in all lines.
inline void Fill(Expectation &expected, const std::wstring &placeholder, const std::wstring &value)
{
    for (Line &line : expected.lines) {
        for (size_t at = line.text.find(placeholder); at != std::wstring::npos;
             at = line.text.find(placeholder)) {
            line.text.replace(at, placeholder.size(), value);
        }
    }
}

} // namespace velto_test
