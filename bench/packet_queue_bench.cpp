// Time to hand a packet of 400 bytes from the encoder to a reader: through AVPktBufQueue, and through a
// queue that allocates a packet for each hand-over.
//
// OneThread: both sides on one thread, the cost without contention, as at the usual 47 packets a second.
// TwoThreads: a thread for each side, both as fast as they can.
// HandOver: the queue's work alone. Copying: also writes and reads the 400 bytes.
//
//   velto-packet-queue-bench [--benchmark_...]
#include <benchmark/benchmark.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <queue>
#include <thread>

#include "bench/counted_new.h"
#include "bench/repetitions.h"
#include "capture/avpkt_buf_queue.h"

namespace velto::bench {
namespace {

constexpr uint32_t packetBytes = 400;
constexpr uint32_t maxPacketBytes = 1536;
constexpr int packetsPerRepetition = 50000;
constexpr int repetitions = 21;

std::array<uint8_t, packetBytes> encoded;

struct Copying {
    static void Fill(AVEncodePacket &packet)
    {
        std::memcpy(packet.data, encoded.data(), packetBytes);
        packet.size = packetBytes;
    }
    static void Use(const AVEncodePacket &packet)
    {
        static std::array<uint8_t, packetBytes> target;
        std::memcpy(target.data(), packet.data, packet.size);
        benchmark::DoNotOptimize(target);
    }
};

struct HandOver {
    static void Fill(AVEncodePacket &packet) { packet.size = packetBytes; }
    static void Use(const AVEncodePacket &packet) { benchmark::DoNotOptimize(packet.size); }
};

class PooledQueue {
public:
    PooledQueue()
    {
        m_queue.SetPacketBufferSize(maxPacketBytes);
        m_queue.Init(PacketPoolSize(48000, 1024));
    }

    template <typename Fill>
    void Write(Fill fill)
    {
        AVEncodePacket *packet = m_queue.PopFree();
        fill(*packet);
        m_queue.PushData(packet);
    }

    // Asks for the count first, as ReadStreamBuffer does.
    template <typename Use>
    void Read(Use use)
    {
        benchmark::DoNotOptimize(m_queue.DataCount());
        AVEncodePacket *packet = m_queue.PopData();
        use(*packet);
        m_queue.PushFree(packet);
    }

private:
    AVPktBufQueue m_queue;
};

class AllocatingQueue {
public:
    template <typename Fill>
    void Write(Fill fill)
    {
        auto packet = std::make_unique<AVEncodePacket>();
        packet->AllocBuffer(packetBytes, false);
        fill(*packet);
        const std::lock_guard lock(m_mutex);
        m_queue.push(std::move(packet));
        m_filled.notify_one();
    }

    template <typename Use>
    void Read(Use use)
    {
        benchmark::DoNotOptimize(Count());
        std::unique_ptr<AVEncodePacket> packet;
        {
            std::unique_lock lock(m_mutex);
            m_filled.wait(lock, [this] { return !m_queue.empty(); });
            packet = std::move(m_queue.front());
            m_queue.pop();
        }
        use(*packet);
    }

private:
    size_t Count()
    {
        const std::lock_guard lock(m_mutex);
        return m_queue.size();
    }

    std::queue<std::unique_ptr<AVEncodePacket>> m_queue;
    std::mutex m_mutex;
    std::condition_variable m_filled;
};

void CountAllocations(benchmark::State &state, uint64_t before)
{
    state.counters["allocations"] = static_cast<double>(Allocations() - before);
}

template <typename Queue, typename Work>
void OneThread(benchmark::State &state)
{
    Queue queue;
    const uint64_t before = Allocations();
    for (auto _ : state) {
        queue.Write(Work::Fill);
        queue.Read(Work::Use);
    }
    CountAllocations(state, before);
}

template <typename Queue, typename Work>
void TwoThreads(benchmark::State &state)
{
    Queue queue;
    std::thread writer([&] {
        for (int i = 0; i < packetsPerRepetition; ++i) {
            queue.Write(Work::Fill);
        }
    });
    for (auto _ : state) {
        queue.Read(Work::Use);
    }
    writer.join();
}

void Register(const char *name, void (*function)(benchmark::State &))
{
    Repeat(benchmark::RegisterBenchmark(name, function), packetsPerRepetition, repetitions,
           benchmark::kNanosecond);
}

int Run(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    Register("Pooled/OneThread/HandOver", OneThread<PooledQueue, HandOver>);
    Register("Allocating/OneThread/HandOver", OneThread<AllocatingQueue, HandOver>);
    Register("Pooled/OneThread/Copying", OneThread<PooledQueue, Copying>);
    Register("Allocating/OneThread/Copying", OneThread<AllocatingQueue, Copying>);
    Register("Pooled/TwoThreads/Copying", TwoThreads<PooledQueue, Copying>);
    Register("Allocating/TwoThreads/Copying", TwoThreads<AllocatingQueue, Copying>);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace
} // namespace velto::bench

int main(int argc, char **argv)
{
    return velto::bench::Run(argc, argv);
}
