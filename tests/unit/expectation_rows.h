// The table of faults of one direction: what is expected of each failing call. The fault walk looks its cases
// up here, and docs/faults.md prints the rows.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "fault_walk.h"

namespace velto_test {

// What a row says of the results that it covers.
enum class Lasting { Either, Once, Always };

// `Moment`: the enumeration of the moments that a direction distinguishes.
template <typename Moment>
class ExpectationRows {
public:
    // The rows added after this call apply to these moments. `name` is for the document.
    void During(std::vector<Moment> moments, const std::string &name)
    {
        m_moments = std::move(moments);
        m_momentName = name;
    }

    // `use`: the number of the failing use within the step; 0 for any. `text`: empty if no line is required.
    void Add(const std::string &call, FaultKind kind, const std::wstring &text, const std::string &tag,
             Recovery recovery, int use = 0)
    {
        Add(call, kind, Expected(text, tag, recovery), use);
    }
    void Add(const std::string &call, FaultKind kind, Expectation expected, int use = 0,
             Lasting lasting = Lasting::Either)
    {
        m_rows.push_back({call, m_moments, m_momentName, kind, "", use, lasting, std::move(expected)});
    }
    // For a single result, named as in the table of calls.
    void AddNamed(const std::string &call, const std::string &result, Expectation expected, int use = 0,
                  Lasting lasting = Lasting::Either)
    {
        m_rows.push_back(
            {call, m_moments, m_momentName, FaultKind::Failure, result, use, lasting, std::move(expected)});
    }

    static Expectation Expected(const std::wstring &text, const std::string &tag, Recovery recovery,
                                bool missesDeviceChanges = false)
    {
        Expectation expected;
        if (!text.empty()) {
            expected.line = Line{tag, text};
        }
        expected.recovery = recovery;
        expected.missesDeviceChanges = missesDeviceChanges;
        return expected;
    }

    // Returns the first row that matches.
    std::optional<Expectation> Find(const FaultCase &faulty, Moment moment, int use)
    {
        for (Row &row : m_rows) {
            if (Matches(row, faulty) && (row.use == 0 || row.use == use) &&
                std::find(row.moments.begin(), row.moments.end(), moment) != row.moments.end()) {
                row.used = true;
                return row.expected;
            }
        }
        return std::nullopt;
    }

    std::vector<FaultRow> AsText() const
    {
        std::vector<FaultRow> rows;
        for (const Row &row : m_rows) {
            rows.push_back({row.momentName, row.call + UseText(row.use), ResultText(row),
                            LineText(row.expected), RemedyText(row.expected), row.used});
        }
        return rows;
    }

private:
    struct Row {
        std::string call;
        std::vector<Moment> moments;
        std::string momentName;
        FaultKind kind;
        std::string result; // if not empty, only this result
        int use;
        Lasting lasting;
        Expectation expected;
        bool used = false;
    };

    static bool Matches(const Row &row, const FaultCase &faulty)
    {
        const bool isResult =
            row.result.empty() ? row.kind == faulty.fault.kind : row.result == faulty.fault.name;
        const bool isLasting =
            row.lasting == Lasting::Either || faulty.lasting == (row.lasting == Lasting::Always);
        return row.call == faulty.call.name && isResult && isLasting;
    }

    static std::string UseText(int use) { return use == 0 ? "" : ", call " + std::to_string(use); }
    static std::string ResultText(const Row &row)
    {
        static const char *const kinds[] = {"any error", "no object", "an unusual value", "another success",
                                            "nothing for a while"};
        const std::string text = row.result.empty() ? kinds[static_cast<int>(row.kind)] : row.result;
        return row.lasting == Lasting::Always ? text + ", each time"
               : row.lasting == Lasting::Once ? text + ", once"
                                              : text;
    }
    static std::string LineText(const Expectation &expected)
    {
        if (!expected.line) {
            return "";
        }
        return expected.line->tag + ": " +
               std::string(expected.line->text.begin(), expected.line->text.end());
    }
    static std::string RemedyText(const Expectation &expected)
    {
        static const char *const remedies[] = {"nothing needed", "a change of a device property",
                                               "another default device", "closing and opening"};
        const std::string text = remedies[static_cast<int>(expected.recovery)];
        return expected.missesDeviceChanges ? text + "; other default devices are not followed" : text;
    }

    std::vector<Moment> m_moments;
    std::string m_momentName;
    std::vector<Row> m_rows;
};

// Replaces a placeholder such as `$1` with its value in the line.
inline void Fill(Expectation &expected, const std::wstring &placeholder, const std::wstring &value)
{
    if (!expected.line) {
        return;
    }
    std::wstring &text = expected.line->text;
    for (size_t at = text.find(placeholder); at != std::wstring::npos; at = text.find(placeholder)) {
        text.replace(at, placeholder.size(), value);
    }
}

} // namespace velto_test
