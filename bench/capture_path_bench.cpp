// Time of the capture path, from the device's packets of samples to the encoded packets that the host reads,
// of its floor (capture_floor.h), and of the bare converter and encoder, on the same samples. The module and
// the floor take turns, so that other load on the machine affects both alike; all repetitions run in random
// order.
//
//   velto-capture-path-bench [--benchmark_...] FILE.f32
//
// FILE.f32: interleaved stereo floats, read once as 48000 Hz and once as 44100 Hz.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "bench/bare_encoder.h"
#include "bench/capture_floor.h"
#include "bench/module_recorder.h"

namespace velto::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int packets = 480; // of 10 ms: 4.8 s, exactly 225 units at 48000 Hz
constexpr int repetitions = 31;

std::vector<float> ReadSamples(const char *path, size_t values)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<float> samples(values);
    file.read(reinterpret_cast<char *>(samples.data()), static_cast<std::streamsize>(values * sizeof(float)));
    if (static_cast<size_t>(file.gcount()) != values * sizeof(float)) {
        throw std::runtime_error(std::string(path) + " is too short");
    }
    return samples;
}

// Registers a benchmark that reports the time for a second of sound.
void Register(const std::string &name, const std::function<double()> &record)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [record](benchmark::State &state) {
                                     for (auto _ : state) {
                                         state.SetIterationTime(record() / (packets * 0.01));
                                     }
                                 })
        ->Iterations(1)
        ->Repetitions(repetitions)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

struct Comparison {
    Comparison(const char *path, uint32_t rateHz)
        : packetFrames(rateHz / 100),
          samples(ReadSamples(path, size_t{packetFrames} * packets * 2)),
          module(rateHz),
          floor(rateHz),
          bare(static_cast<int>(rateHz))
    {
    }

    uint32_t packetFrames;
    std::vector<float> samples;
    AudioCaptureProbe module;
    CaptureFloor floor;
    BareEncoder bare;
    bool moduleFirst = true; // in the next repetition

    double RecordBare()
    {
        const auto begin = Clock::now();
        for (size_t at = 0; at < samples.size(); at += size_t{packetFrames} * 2) {
            benchmark::DoNotOptimize(bare.Encode(&samples[at], static_cast<int>(packetFrames)));
        }
        return std::chrono::duration<double>(Clock::now() - begin).count();
    }

    // Records with the module and the floor once each, and reports their times for a second of sound.
    void Alternate(benchmark::State &state)
    {
        double moduleTime = 0;
        double floorTime = 0;
        for (auto _ : state) {
            if (moduleFirst) {
                moduleTime = module.Record(samples, packetFrames);
            }
            floorTime = floor.Record(samples, packetFrames);
            if (!moduleFirst) {
                moduleTime = module.Record(samples, packetFrames);
            }
            moduleFirst = !moduleFirst;
        }
        state.counters["moduleUs"] = moduleTime * 1e6 / (packets * 0.01);
        state.counters["floorUs"] = floorTime * 1e6 / (packets * 0.01);
    }

    // True if both encoded the samples into the same number of packets, of the same total size.
    bool Agree() const
    {
        return module.Packets() > 0 && module.Packets() == floor.Packets() && module.Bytes() == floor.Bytes();
    }
};

int Run(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: velto-capture-path-bench [--benchmark_...] FILE.f32\n");
        return 2;
    }
    Comparison at48000(argv[1], 48000);
    Comparison at44100(argv[1], 44100);
    for (Comparison *comparison : {&at48000, &at44100}) {
        const std::string rate = std::to_string(comparison->packetFrames * 100);
        benchmark::RegisterBenchmark(("Capture/" + rate).c_str(),
                                     [comparison](benchmark::State &state) { comparison->Alternate(state); })
            ->Iterations(1)
            ->Repetitions(repetitions)
            ->Unit(benchmark::kMicrosecond);
        Register("BareEncoder/" + rate, [comparison] { return comparison->RecordBare(); });
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (const Comparison *comparison : {&at48000, &at44100}) {
        std::printf("module: %d packets, %zu bytes; floor: %d packets, %zu bytes\n",
                    comparison->module.Packets(), comparison->module.Bytes(), comparison->floor.Packets(),
                    comparison->floor.Bytes());
    }
    return at48000.Agree() && at44100.Agree() ? 0 : 1;
}

} // namespace
} // namespace velto::bench

int main(int argc, char **argv)
{
    try {
        return velto::bench::Run(argc, argv);
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "velto-capture-path-bench: %s\n", problem.what());
        return 1;
    }
}
