#include "check/microphone_command.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "velto-host/portable/microphone.h"
#include "velto-host/stream_control.h"

namespace velto::check {

using host::EXIT_OK;
using host::ExitCode;
using host::Json;
using host::Microphone;
using host::Module;
using host::Output;
using host::SecondsSince;

namespace {

using Clock = host::StreamTimer::Clock;

constexpr double packetTimeoutSeconds = 10;
constexpr uint32_t samplesPerRun = 10; // how often Cycles measures the process

void Sleep(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// Reads until a packet arrives. False after ten seconds.
bool ReadPacket(Microphone &microphone)
{
    const auto begin = Clock::now();
    while (SecondsSince(begin) < packetTimeoutSeconds) {
        if (microphone.Read() == Microphone::Outcome::PACKET) {
            return true;
        }
        Sleep(0.005);
    }
    return false;
}

Json OpenTwice(const Module &module)
{
    Microphone first(module.Table(), VELTO_ID_MIC);
    Microphone second(module.Table(), VELTO_ID_MODEM_MIC);
    Json report{{"firstOpen", first.Open()}};
    report["firstGavePacket"] = ReadPacket(first);
    report["secondOpen"] = second.Open();
    report["secondGavePacket"] = ReadPacket(second);
    report["close"] = first.Close();
    report["emptyAfterClose"] = second.Read() == Microphone::Outcome::NOTHING;
    report["closeAgain"] = second.Close();
    return report;
}

// One thread waits for a packet of a silent microphone while another one closes it.
Json CloseWhileReading(const Module &module)
{
    constexpr uint32_t tenSeconds = 48000 * 4 * 10; // bytes of PCM; a read waits at most their playing time
    Microphone microphone(module.Table(), VELTO_ID_MIC);
    Json report{{"open", microphone.Open()}};
    uint8_t data[8192];
    StreamFrameHeader header{0, tenSeconds, 0};
    int32_t readResult = -1;
    const auto begin = Clock::now();
    std::atomic<double> readEnded{0};
    std::thread reader([&] {
        StreamFrame frame{data, {}, &header};
        const host::DeviceId &id = microphone.Device();
        readResult = module->ReadStreamBuffer(id.Text(), id.Length(), nullptr, &frame);
        readEnded = SecondsSince(begin);
    });
    Sleep(2);
    const double closeBegan = SecondsSince(begin);
    report["readWasWaiting"] = readEnded == 0;
    report["close"] = microphone.Close();
    const double closeEnded = SecondsSince(begin);
    reader.join();
    report["closeSeconds"] = closeEnded - closeBegan;
    report["readEndedAfterCloseBegan"] = readEnded - closeBegan;
    report["read"] = readResult;
    report["size"] = header.size;
    return report;
}

// Frees the module without closing the recording. Notifications of the recording continue until the process
// ends.
Json UnloadWhileOpen(Module &module)
{
    Microphone microphone(module.Table(), VELTO_ID_MIC);
    Json report{{"open", microphone.Open()}};
    Sleep(1); // in this time, the threads of a recording without a microphone end
    module.Unload();
    report["moduleGone"] = !module.IsLoaded();
    return report;
}

Json Cycles(const Module &module, uint32_t count, const Output &output)
{
    Microphone microphone(module.Table(), VELTO_ID_MIC);
    Json usages = Json::Array();
    uint32_t withPacket = 0;
    uint32_t nonzero = 0;
    const auto begin = Clock::now();
    for (uint32_t cycle = 1; cycle <= count; ++cycle) {
        nonzero += microphone.Open() != VELTO_OK ? 1 : 0;
        withPacket += ReadPacket(microphone) ? 1 : 0;
        nonzero += microphone.Close() != VELTO_OK ? 1 : 0;
        if (cycle % std::max(count / samplesPerRun, 1U) == 0) {
            Json usage = host::MeasureProcess();
            usage["cycle"] = cycle;
            output.Say("{}", usage.Text());
            usages.Append(std::move(usage));
        }
    }
    return {{"cycles", count},
            {"withPacket", withPacket},
            {"nonzeroResults", nonzero},
            {"seconds", SecondsSince(begin)},
            {"usage", usages}};
}

} // namespace

ExitCode RunMicrophoneCommand(Module &module, const MicrophoneOptions &options, const Output &output)
{
    Json report = options.sequence == sequenceOpenTwice           ? OpenTwice(module)
                  : options.sequence == sequenceCloseWhileReading ? CloseWhileReading(module)
                  : options.sequence == sequenceUnloadWhileOpen   ? UnloadWhileOpen(module)
                                                                  : Cycles(module, options.count, output);
    output.Say("{}: {}", options.sequence, report.Text());
    Sleep(options.hold);
    report["exitCode"] = int{EXIT_OK};
    module.Unload();
    output.Result(report);
    return EXIT_OK;
}

} // namespace velto::check
