// How the benchmarks are repeated.
#pragma once

#include <benchmark/benchmark.h>

namespace velto::bench {

// Runs a benchmark `repetitions` times for `iterations` each, and measures wall time.
inline void Repeat(benchmark::internal::Benchmark *registered, int iterations, int repetitions,
                   benchmark::TimeUnit unit)
{
    registered->Iterations(iterations)->Repetitions(repetitions)->UseRealTime()->Unit(unit);
}

} // namespace velto::bench
