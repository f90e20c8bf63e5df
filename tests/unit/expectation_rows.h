// A table of what is expected of failing calls, written down row by row.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "fault_walk.h"

namespace velto_test {

// `Step` is the kind of a step of a road.
template <typename Step>
class ExpectationRows {
public:
    // The rows that follow are for these steps.
    void During(std::vector<Step> steps) { m_steps = std::move(steps); }

    // `use`: within the step; 0 for any. `text`: empty when no line is promised.
    void Add(const std::string &call, FaultKind kind, const std::wstring &text, const std::string &tag,
             std::vector<Remedy> remedies, int use = 0)
    {
        std::vector<Line> lines;
        if (!text.empty()) {
            lines.push_back({tag, text});
        }
        Add(call, kind, {std::move(lines), std::move(remedies)}, use);
    }
    void Add(const std::string &call, FaultKind kind, Expectation expected, int use = 0)
    {
        m_rows.push_back({call, m_steps, kind, use, std::move(expected)});
    }

    // The first row that fits.
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

// Puts `value` in the place of each `$1` and the like.
inline void Fill(Expectation &expected, const std::wstring &place, const std::wstring &value)
{
    for (Line &line : expected.lines) {
        for (size_t at = line.text.find(place); at != std::wstring::npos; at = line.text.find(place)) {
            line.text.replace(at, place.size(), value);
        }
    }
}

} // namespace velto_test
