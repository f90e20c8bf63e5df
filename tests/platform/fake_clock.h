// A steady clock that moves only when a test calls Advance.
#pragma once

#include <chrono>

class FakeClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static TimePoint Now() { return now; }
    static void Advance(std::chrono::milliseconds time) { now += time; }

private:
    static inline TimePoint now{std::chrono::hours{1}};
};
