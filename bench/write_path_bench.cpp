// Time per call of WriteStreamBuffer through the shipped DLL, and of FFmpeg's bare decoder on the same
// units. The repetitions of all benchmarks run in random order, so that other load on the machine
// affects all of them alike.
//
//   velto-write-path-bench [--benchmark_...] FILE.aac...
#include <windows.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>

#include "bench/aac_units.h"
#include "bench/bare_decoder.h"
#include "bench/module_writer.h"
#include "bench/repetitions.h"
#include "bench/write_path_parts.h"

namespace velto::bench {
namespace {

constexpr int unitsPerRepetition = 235; // five seconds of sound
constexpr int repetitions = 41;

// Repeats the units of a file endlessly.
class UnitLoop {
public:
    explicit UnitLoop(std::vector<AacUnit> units) : m_units(std::move(units)) {}
    AacUnit &Next() { return m_units[m_next++ % m_units.size()]; }

private:
    std::vector<AacUnit> m_units;
    size_t m_next = 0;
};

void Register(const std::string &name, const std::function<void(benchmark::State &)> &function)
{
    Repeat(benchmark::RegisterBenchmark(name.c_str(), function), unitsPerRepetition, repetitions,
           benchmark::kMicrosecond);
}

void RegisterFile(const std::string &path, ModuleWriter &module, BareDecoder &decoder, UnitLoop &written,
                  UnitLoop &decoded)
{
    const std::string name = std::filesystem::path(path).stem().string();
    Register("WriteStreamBuffer/" + name, [&](benchmark::State &state) {
        for (auto _ : state) {
            if (module.Write(written.Next()) != VELTO_OK) {
                state.SkipWithError("the module refused a unit");
            }
        }
    });
    Register("BareDecoder/" + name, [&](benchmark::State &state) {
        for (auto _ : state) {
            benchmark::DoNotOptimize(decoder.Decode(decoded.Next()));
        }
    });
}

// Opens the sound device and fills its buffer, in real time.
void WarmUp(ModuleWriter &module, UnitLoop units)
{
    for (int i = 0; i < 100; ++i) {
        module.Write(units.Next());
        Sleep(20);
    }
}

int Run(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: velto-write-path-bench [--benchmark_...] FILE.aac...\n");
        return 2;
    }
    ModuleWriter module;
    BareDecoder decoder;
    std::deque<UnitLoop> loops; // the benchmarks keep references to its elements
    for (int i = 1; i < argc; ++i) {
        const std::vector<AacUnit> units = ReadAacUnits(argv[i]);
        UnitLoop &written = loops.emplace_back(units);
        UnitLoop &decoded = loops.emplace_back(units);
        RegisterFile(argv[i], module, decoder, written, decoded);
    }
    WarmUp(module, loops.front());
    RegisterWritePathParts(unitsPerRepetition, repetitions);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace
} // namespace velto::bench

int main(int argc, char **argv)
{
    try {
        const int result = velto::bench::Run(argc, argv);
        std::fflush(nullptr);
        // The results are written. An ordinary exit while the module's threads run sometimes crashes under
        // Wine 8.
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(result));
        return result;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "velto-write-path-bench: %s\n", problem.what());
        return 1;
    }
}
