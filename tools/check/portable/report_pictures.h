// The pictures of the report's page, as SVG within HTML.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "check/portable/results.h"

namespace velto::check {

// The loudness of what was heard over time, with its gaps; "" without an envelope.
std::string EnvelopePicture(const HeardSound &heard);

// The frames' numbers in the order in which they were heard; "" without frames. In order, they form a rising
// line.
std::string FrameOrderPicture(const HeardSound &heard);

// How long the calls of one slot took.
struct SlotTimes {
    std::string name;
    std::optional<double> p50Us;
    std::optional<double> p99Us;
    std::optional<double> budgetUs;
};

// A bar for each slot, on a logarithmic scale; "" without one.
std::string SlotTimesPicture(const std::vector<SlotTimes> &times);

// "850 ns", "12.3 µs", "4.56 ms", "1.20 s".
std::string DurationText(double microseconds);

} // namespace velto::check
