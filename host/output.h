// Where this program writes: a result that a program reads goes to stdout alone, and what is meant
// for people then moves to stderr.
#pragma once

#include <cstdio>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace velto::host {

using Json = nlohmann::ordered_json; // keys in the order in which they were written

class Output {
public:
    explicit Output(bool json);

    bool IsJson() const { return m_json; }

    // A line for people.
    template <typename... Arguments>
    void Say(fmt::format_string<Arguments...> text, Arguments &&...arguments) const
    {
        Line(m_people, fmt::format(text, std::forward<Arguments>(arguments)...));
    }

    // A line on stderr.
    template <typename... Arguments>
    void Complain(fmt::format_string<Arguments...> text, Arguments &&...arguments) const
    {
        Line(stderr, "velto-host: " + fmt::format(text, std::forward<Arguments>(arguments)...));
    }

    // The one object for programs, when asked for. Replaces what is not UTF-8.
    void Result(const Json &result) const;

    // True when people can watch stderr: a status line may be rewritten in place.
    static bool IsWatched();

private:
    static void Line(std::FILE *stream, const std::string &text);

    bool m_json;
    std::FILE *m_people;
};

} // namespace velto::host
