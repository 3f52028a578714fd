// The one-way latency of single messages from a board process to the callback, on two processors:
// through VelaRecv, and by the vendor's poll with the callback called straight from its handler. It
// is one ring, one board process and one run: stretches of the two polls take turns.

#include <vector>

#include "benchLive.h"
#include "benchMain.h"

namespace velabench {

namespace {

constexpr int stretchesOfARun = 40;  // of each poll
constexpr double meanPauseNs = 2000;

Cpus g_cpus{};
CStampSink g_sink;
CBenchBoard* g_board = nullptr;

template <bool BFiveLevels>
void OnMessage(const unsigned char* data, unsigned int /*size*/, void* context) {
    auto* spi = static_cast<IVelaZceMdSpi*>(context);
    if constexpr (BFiveLevels) {
        spi->OnDmaType19Msg(data + ZCE_BOARD_HEAD_SIZE);
    } else {
        spi->OnDmaType17Msg(data + ZCE_BOARD_HEAD_SIZE);
    }
}

template <bool BFiveLevels>
void Compare(benchmark::State& state) {
    const Kind& kind = BFiveLevels ? l5 : l1;
    const int stretches = IsSmokeRun() ? 2 : stretchesOfARun;
    while (state.KeepRunning()) {
        CShared<Live> live;
        g_sink = CStampSink();
        Pin(g_cpus.application);
        NsOfTick();
        CChild board([&] { return SendLive(*live, g_cpus.board, *g_board, kind, meanPauseNs); });
        live->start.Meet();
        std::vector<std::uint64_t> library;
        std::vector<std::uint64_t> vendor;
        std::vector<std::uint64_t> warmUp;
        IVelaZceMdSpi* direct = &g_sink;
        const auto pollLibrary = [] { return g_board->Recv(); };
        const auto pollVendor = [direct] {
            return enyx_hw_a2c_stream_poll_once(g_board->LibraryStream(), OnMessage<BFiveLevels>,
                                                direct);
        };
        int stretch = 0;
        ReceiveLive(*live, g_sink, ++stretch, warmUp, pollVendor);
        ReceiveLive(*live, g_sink, ++stretch, warmUp, pollLibrary);
        for (int k = 0; k < stretches; ++k) {
            ReceiveLive(*live, g_sink, ++stretch, vendor, pollVendor);
            ReceiveLive(*live, g_sink, ++stretch, library, pollLibrary);
        }
        live->wanted.store(-1);
        board.Join();
        const auto set = [&](const char* name, double part) {
            const std::string text = name;
            const double ours = Quantile(library, part) * NsOfTick();
            const double bare = Quantile(vendor, part) * NsOfTick();
            state.counters["VelaRecv " + text] = ours;
            state.counters["bare " + text] = bare;
            state.counters["ratio " + text] = ours / bare;
        };
        set("median", 0.5);
        set("99", 0.99);
        state.SetIterationTime(Quantile(library, 0.5) * NsOfTick() * 1e-9);
    }
}

void Print(const CMedians& medians, const Kind& kind) {
    constexpr double bound = 1.03;
    const std::string bench = kind.name;
    for (const char* part : {"median", "99"}) {
        const std::string text = part;
        const std::string name = std::string("live-").append(bench).append("-").append(text);
        std::printf(
            "%s, one way of a live message, %s: VelaRecv %.1f ns, the vendor's poll and a "
            "direct call %.1f ns\n",
            kind.name, part, medians.Counter(bench, "VelaRecv " + text),
            medians.Counter(bench, "bare " + text));
        PrintRatioAtMost(name, medians.Counter(bench, "ratio " + text), bound);
    }
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    constexpr int repetitions = 15;
    ReadOptions(argc, argv, repetitions);
    GoAhead();
    g_cpus = PickCpus();
    Register(l1.name, Compare<false>);
    Register(l5.name, Compare<true>);
    CBenchBoard board(g_sink);
    g_board = &board;
    CMedians medians;
    RunAll(medians);
    Print(medians, l1);
    Print(medians, l5);
    Finish();
    return 0;
}
