// What a check reports while it runs. In velto-host the events go to a file of the check's own process, one
// line of JSON each, so that they survive a crash; in unit tests they are collected in memory.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velto::check {

class EventSink {
public:
    virtual ~EventSink() = default;

    // The check begins a step. A crash or a hang until the next step breaks `clauses`.
    virtual void OnStep(std::string_view text, const std::vector<std::string_view> &clauses) = 0;
    virtual void OnFailure(std::string_view clause, std::string_view text) = 0;
    // Something that a maintainer should look at and that breaks no clause.
    virtual void OnWarning(std::string_view text) = 0;
    // The check, or the rest of it, cannot run here.
    virtual void OnSkipped(std::string_view reason) = 0;
    // A figure that may differ from run to run, for example "WriteStreamBuffer p99" in "µs".
    virtual void OnMeasured(std::string_view name, double value, std::string_view unit) = 0;
};

} // namespace velto::check
