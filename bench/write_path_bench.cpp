// Time per call of WriteStreamBuffer through the shipped DLL, of the floor (write_floor.h), and of FFmpeg's
// bare decoder, on the same units. The module and the floor alternate every few units, so that other load on
// the machine affects both alike; the repetitions of all benchmarks run in random order.
//
//   velto-write-path-bench [--benchmark_...] FILE.aac...
#include <windows.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>

#include "bench/aac_units.h"
#include "bench/bare_decoder.h"
#include "bench/module_writer.h"
#include "bench/repetitions.h"
#include "bench/run_with_module.h"
#include "bench/write_floor.h"
#include "bench/write_path_parts.h"

namespace velto::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int unitsPerRepetition = 235; // five seconds of sound
constexpr int repetitions = 41;
constexpr size_t maxDecodedBytes = 2048 * 2 * sizeof(int16_t); // of a unit with SBR
constexpr int unitsPerTurn = 10;
constexpr int turnPairs = 24;        // per repetition: about as many units as those of the other benchmarks
constexpr int pairRepetitions = 101; // more than the others have, because the goal applies to these

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

// The units of a file, for each of the programs that are compared. None of them may miss a unit, because
// decoding a unit depends on those before it.
struct FileLoops {
    explicit FileLoops(const std::vector<AacUnit> &units) : module(units), floor(units), decoder(units) {}

    UnitLoop module;
    UnitLoop floor;
    UnitLoop decoder;
};

template <typename Write>
Clock::duration TimeOfTurn(UnitLoop &units, Write write)
{
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < unitsPerTurn; ++i) {
        write(units.Next());
    }
    return Clock::now() - begin;
}

// Reports the time per unit of the module and of the floor, which take turns: M F F M M F F M ...
void Alternate(benchmark::State &state, ModuleWriter &module, WriteFloor &floor, FileLoops &loops)
{
    Clock::duration moduleTime{};
    Clock::duration floorTime{};
    bool accepted = true;
    const auto moduleTurn = [&] {
        moduleTime += TimeOfTurn(
            loops.module, [&](AacUnit &unit) { accepted = module.Write(unit) == VELTO_OK && accepted; });
    };
    const auto floorTurn = [&] {
        floorTime += TimeOfTurn(loops.floor, [&](AacUnit &unit) { floor.Write(unit); });
    };
    bool moduleFirst = true;
    for (auto _ : state) {
        if (moduleFirst) {
            moduleTurn();
            floorTurn();
        } else {
            floorTurn();
            moduleTurn();
        }
        moduleFirst = !moduleFirst;
    }
    if (!accepted) {
        state.SkipWithError("the module refused a unit");
    }
    const auto perUnit = [&](Clock::duration time) {
        return std::chrono::duration<double, std::micro>(time).count() / (turnPairs * unitsPerTurn);
    };
    state.counters["moduleUs"] = perUnit(moduleTime);
    state.counters["floorUs"] = perUnit(floorTime);
}

void RegisterFile(const std::string &path, ModuleWriter &module, WriteFloor &floor, BareDecoder &decoder,
                  FileLoops &loops)
{
    const std::string name = std::filesystem::path(path).stem().string();
    Repeat(benchmark::RegisterBenchmark(
               ("Write/" + name).c_str(),
               [&](benchmark::State &state) { Alternate(state, module, floor, loops); }),
           turnPairs, pairRepetitions, benchmark::kMicrosecond);
    Register("BareDecoder/" + name, [&](benchmark::State &state) {
        static uint8_t pcm[maxDecodedBytes];
        for (auto _ : state) {
            decoder.Decode(loops.decoder.Next(), [](size_t) { return pcm; });
        }
        benchmark::DoNotOptimize(pcm);
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
    BlockQueue queue;
    WriteFloor floor(queue);
    BareDecoder decoder;
    std::deque<FileLoops> files; // the benchmarks keep references to its elements
    for (int i = 1; i < argc; ++i) {
        FileLoops &loops = files.emplace_back(ReadAacUnits(argv[i]));
        RegisterFile(argv[i], module, floor, decoder, loops);
    }
    WarmUp(module, files.front().module);
    RegisterWritePathParts(unitsPerRepetition, repetitions);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace
} // namespace velto::bench

int main(int argc, char **argv)
{
    return velto::bench::RunWithModule("velto-write-path-bench", velto::bench::Run, argc, argv);
}
