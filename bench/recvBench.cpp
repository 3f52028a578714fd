// What the library puts on top of the vendor's poll: a delivered message and an idle poll through
// VelaRecv, beside the same ring polled by the vendor's call with the callback called directly.
//
// Everything is in one process and on one thread: the ring is filled between the timed stretches,
// so that the figures are the receiving side's alone. What counts is the ratio at the end.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "BoardMemory.h"
#include "DrvEnyx/enyxHw.h"
#include "IVelaZceMdApi.h"
#include "Ring.h"
#include "ZceBoardMsg.h"

namespace {

constexpr unsigned int libraryChannel = 3;
constexpr unsigned int vendorChannel = 4;
constexpr std::uint32_t messageSize = ZCE_BOARD_HEAD_SIZE + sizeof(ZceBoardL1_t);
constexpr int batch = 4096;  // messages of a timed stretch; they fit into the ring

class SumSpi final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(body); }
    std::uint64_t m_ulSum = 0;

  private:
    // What any application does first: looks at the message.
    void Take(const unsigned char* body) {
        std::uint64_t ulSeq = 0;
        std::memcpy(&ulSeq, body, sizeof(ulSeq));
        m_ulSum += ulSeq;
    }
};

[[noreturn]] void Die(const char* what) {
    std::fprintf(stderr, "recv_bench: %s\n", what);
    std::exit(1);
}

// A board of this process's own, the library on one of its channels, the bare vendor call on
// another.
class Bench {
  public:
    Bench() {
        const std::string own = "bench" + std::to_string(getpid()) + "-";
        setenv("ZCE_BOARD_SHM_PREFIX", own.c_str(), 1);
        std::int32_t pid = 0;
        if (m_board.Create(0, pid) != 0) {
            Die("no shared memory for a board");
        }
        StartLibrary("/tmp/" + own + "config.ini");
        OpenStream();
        m_libraryRing = Producer(libraryChannel);
        m_vendorRing = Producer(vendorChannel);
    }
    ~Bench() {
        enyx_hw_a2c_stream_destroy(m_stream);
        IVelaZceMdApi::DestroyVelaZceMdApi(*m_api);
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    int PollLibrary() { return m_api->VelaRecv(); }
    int PollVendor() { return enyx_hw_a2c_stream_poll_once(m_stream, &Bench::OnMessage, m_direct); }
    void FillLibrary() { Fill(m_libraryRing); }
    void FillVendor() { Fill(m_vendorRing); }
    std::uint64_t Sum() const { return m_spi.m_ulSum; }

  private:
    static void OnMessage(const unsigned char* data, unsigned int /*size*/, void* context) {
        static_cast<IVelaZceMdSpi*>(context)->OnDmaType17Msg(data + ZCE_BOARD_HEAD_SIZE);
    }

    void StartLibrary(const std::string& config) {
        std::ofstream(config) << "[config]\ndevice = xilinx0:" << libraryChannel << "\n";
        m_api = IVelaZceMdApi::CreateVelaZceMdApi();
        const int result = m_api->VelaStart(m_spi, config.c_str());
        unlink(config.c_str());
        if (result != 0) {
            Die("VelaStart failed");
        }
    }

    void OpenStream() {
        enyx_hw_filter* filter = enyx_hw_filter_create();
        enyx_hw_filter_set_index(filter, 0);
        enyx_hw_accelerator_descriptor* accelerator = nullptr;
        enyx_hw_a2c_stream_descriptor* stream = nullptr;
        if (enyx_hw_enumerate_accelerators(filter, &accelerator, 1) != 1) {
            Die("no accelerator");
        }
        enyx_hw_filter_destroy(filter);
        filter = enyx_hw_filter_create();
        enyx_hw_filter_set_name(filter,
                                ("CUSTOM_CHAN" + std::to_string(vendorChannel) + "_DATA").c_str());
        if (enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator_get(accelerator), filter,
                                                      &stream, 1) != 1) {
            Die("no stream");
        }
        m_stream = enyx_hw_a2c_stream_create(stream, 0);
        enyx_hw_free_accelerator_descriptors(&accelerator, 1);
        enyx_hw_free_a2c_stream_descriptors(&stream, 1);
        enyx_hw_filter_destroy(filter);
        if (m_stream == nullptr) {
            Die("the stream cannot be opened");
        }
    }

    ZceBoard::CRingProducer Producer(unsigned int channel) {
        const ZceBoard::RingView ring = ZceBoard::ViewOf(m_board.Shm().a2c[channel]);
        ZceBoard::CRingProducer producer(ring);
        producer.Begin(ring.control->generation.load());
        return producer;
    }

    static void Fill(ZceBoard::CRingProducer& ring) {
        for (int i = 0; i < batch; ++i) {
            unsigned char* message = ring.PrepareWrite(messageSize);
            if (message == nullptr) {
                Die("the ring is full");
            }
            std::memset(message, i, messageSize);
            const std::uint32_t type = ZCE_BOARD_TYPE_L1_SINGLE;
            std::memcpy(message, &type, sizeof(type));
            ring.CommitWrite(messageSize);
        }
    }

    ZceBoard::CBoardMemory m_board;
    SumSpi m_spi;
    IVelaZceMdSpi* m_direct = &m_spi;
    IVelaZceMdApi* m_api = nullptr;
    enyx_hw_a2c_stream* m_stream = nullptr;
    ZceBoard::CRingProducer m_libraryRing;
    ZceBoard::CRingProducer m_vendorRing;
};

Bench* g_bench = nullptr;

template <class Poll>
void TimePolls(benchmark::State& state, Poll poll, int expected) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    int delivered = 0;
    for (int i = 0; i < batch; ++i) {
        delivered += poll();
    }
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    if (delivered != expected) {
        state.SkipWithError("messages are missing");
    }
    state.SetIterationTime(elapsed.count() / batch);
}

void VelaRecvMessage(benchmark::State& state) {
    while (state.KeepRunning()) {
        g_bench->FillLibrary();
        TimePolls(
            state, [] { return g_bench->PollLibrary(); }, batch);
    }
    benchmark::DoNotOptimize(g_bench->Sum());
}

void VendorPollMessage(benchmark::State& state) {
    while (state.KeepRunning()) {
        g_bench->FillVendor();
        TimePolls(
            state, [] { return g_bench->PollVendor(); }, batch);
    }
    benchmark::DoNotOptimize(g_bench->Sum());
}

void VelaRecvIdle(benchmark::State& state) {
    while (state.KeepRunning()) {
        TimePolls(
            state, [] { return g_bench->PollLibrary(); }, 0);
    }
}

void VendorPollIdle(benchmark::State& state) {
    while (state.KeepRunning()) {
        TimePolls(
            state, [] { return g_bench->PollVendor(); }, 0);
    }
}

constexpr int batches = 300;
BENCHMARK(VelaRecvMessage)->UseManualTime()->Iterations(batches);
BENCHMARK(VendorPollMessage)->UseManualTime()->Iterations(batches);
BENCHMARK(VelaRecvIdle)->UseManualTime()->Iterations(batches);
BENCHMARK(VendorPollIdle)->UseManualTime()->Iterations(batches);

// The console's table, and the medians for the ratios.
class MedianReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                m_medians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatio(const char* what, const std::string& ours, const std::string& bare) {
        std::printf(
            "%s: VelaRecv %.1f ns, the vendor's poll and a direct call %.1f ns, ratio %.2f\n", what,
            m_medians[ours], m_medians[bare], m_medians[ours] / m_medians[bare]);
    }

  private:
    std::map<std::string, double> m_medians;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1,
                     {"--benchmark_repetitions=15", "--benchmark_report_aggregates_only=true",
                      "--benchmark_enable_random_interleaving=true"});
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) {
        return 2;
    }
    Bench bench;
    g_bench = &bench;
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatio("a delivered message", "VelaRecvMessage", "VendorPollMessage");
    reporter.PrintRatio("an idle poll", "VelaRecvIdle", "VendorPollIdle");
    return 0;
}
