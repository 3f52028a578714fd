// What the library puts on top of the vendor's poll: a delivered message and an idle poll through
// VelaRecv, beside the same ring polled by the vendor's call with the callback called directly.
//
// Everything is in one process and on one thread: the ring is filled between the timed stretches,
// so that the figures are the receiving side's alone. What counts is the ratio at the end.

#include <cstring>

#include "benchBoard.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "memory/Ring.h"

namespace velabench {

namespace {

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

SumSpi g_spi;
CBenchBoard* g_board = nullptr;
ZceBoard::CRingProducer g_libraryRing;
ZceBoard::CRingProducer g_vendorRing;

void OnMessage(const unsigned char* data, unsigned int /*size*/, void* context) {
    static_cast<IVelaZceMdSpi*>(context)->OnDmaType17Msg(data + ZCE_BOARD_HEAD_SIZE);
}

int PollLibrary() {
    return g_board->Recv();
}

int PollVendor() {
    IVelaZceMdSpi* direct = &g_spi;
    return enyx_hw_a2c_stream_poll_once(g_board->VendorStream(), OnMessage, direct);
}

ZceBoard::CRingProducer Producer(unsigned int channel) {
    const ZceBoard::RingView ring = ZceBoard::ViewOf(g_board->Shm().a2c[channel]);
    ZceBoard::CRingProducer producer(ring);
    producer.Begin(ring.control->generation.load());
    return producer;
}

void Fill(ZceBoard::CRingProducer& ring) {
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

// Seconds of a stretch of polls.
template <class Poll>
double TimePolls(Poll poll, int expected) {
    const std::int64_t begin = NowNs();
    int delivered = 0;
    for (int i = 0; i < batch; ++i) {
        delivered += poll();
    }
    const std::int64_t end = NowNs();
    if (delivered != expected) {
        Die("messages are missing");
    }
    return static_cast<double>(end - begin) * 1e-9;
}

// One repetition: stretches of the library's poll and of the vendor's in turns.
void Compare(benchmark::State& state, bool bMessages) {
    const int stretches = IsSmokeRun() ? 3 : 300;
    const int expected = bMessages ? batch : 0;
    while (state.KeepRunning()) {
        double library = 0;
        double vendor = 0;
        for (int k = 0; k < stretches; ++k) {
            if (bMessages) {
                Fill(g_libraryRing);
            }
            library += TimePolls(PollLibrary, expected);
            if (bMessages) {
                Fill(g_vendorRing);
            }
            vendor += TimePolls(PollVendor, expected);
        }
        benchmark::DoNotOptimize(g_spi.m_ulSum);
        const double polls = static_cast<double>(batch) * stretches;
        state.SetIterationTime(library / polls);
        state.counters["VelaRecv"] = library / polls * 1e9;
        state.counters["bare"] = vendor / polls * 1e9;
        state.counters["ratio"] = library / vendor;
    }
}

void Print(const CMedians& medians, const char* what, const std::string& name) {
    constexpr double bound = 2.5;
    std::printf("%s: VelaRecv %.1f ns, the vendor's poll and a direct call %.1f ns\n", what,
                medians.Counter(name, "VelaRecv"), medians.Counter(name, "bare"));
    PrintRatioAtMost("recv-" + name, medians.Counter(name, "ratio"), bound);
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    GoAhead();
    Register("message", [](benchmark::State& state) { Compare(state, true); });
    Register("idle", [](benchmark::State& state) { Compare(state, false); });
    CBenchBoard board(g_spi);
    g_board = &board;
    g_libraryRing = Producer(libraryChannel);
    g_vendorRing = Producer(vendorChannel);
    CMedians medians;
    RunAll(medians);
    Print(medians, "a delivered message", "message");
    Print(medians, "an idle poll", "idle");
    Finish();
    return 0;
}
