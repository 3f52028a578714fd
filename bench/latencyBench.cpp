// How long a message is on its way from the board to the application's callback: half the time that
// a message and its answer take. A board process sends, the application gets the message through
// the library and answers from the callback by the vendor's call, with the same bytes. Beside it,
// between the same two processors, pairs of lock-free queues between two threads, and between two
// processes iceoryx and UDP datagrams over the loopback interface, polled and waited for.

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "benchBoard.h"
#include "benchIceoryx.h"
#include "benchMain.h"
#include "benchMessage.h"
#include "benchProcess.h"
#include "benchQueue.h"
#include "benchSocket.h"
#include "device/ChannelSender.h"

namespace velabench {

namespace {

constexpr std::uint64_t roundTrips = 20'000;
constexpr std::uint64_t roundTripsOfASocket = 2'000;

std::uint64_t CountOf(std::uint64_t count) {
    return IsSmokeRun() ? 200 : count;
}

// Half a round trip, in ns.
struct Figures {
    double median = 0;
    double worst = 0;  // of 1000, all but the worst are below
};

// What the two sides of a run share; the figures are the board's.
struct Run {
    CMeeting start;
    Figures figures;
};

Cpus g_cpus{};
CBenchBoard* g_board = nullptr;

// The application: answers each message from the callback.
class CAnswer final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Answer(body, l1); }
    void OnDmaType18Msg(const unsigned char* body) override { Answer(body, l1); }
    void OnDmaType19Msg(const unsigned char* body) override { Answer(body, l5); }
    void OnDmaType20Msg(const unsigned char* body) override { Answer(body, l5); }
    std::uint64_t m_ulCount = 0;

  private:
    // The body is byte 12 of a message, whose head goes back too.
    void Answer(const unsigned char* body, const Kind& kind) {
        if (enyx_hw_c2a_stream_send(g_board->AnswerStream(), body - ZCE_BOARD_HEAD_SIZE,
                                    kind.Size()) != 0) {
            Die("the answer was not taken");
        }
        ++m_ulCount;
    }
};

CAnswer g_answer;

// The board's side: `send(n)` sends the n-th message, `take()` says whether the answer is there.
template <class Send, class Take>
void Measure(Run& run, std::uint64_t count, Send send, Take take) {
    std::vector<std::int64_t> times;
    times.reserve(count);
    run.start.Meet();
    CPatience patience;
    const std::uint64_t warmUp = count / 10;
    for (std::uint64_t n = 0; n < warmUp + count; ++n) {
        const std::int64_t begin = NowNs();
        send(n);
        while (!take()) {
            patience.Wait();
        }
        const std::int64_t end = NowNs();
        patience.Success();
        if (n >= warmUp) {
            times.push_back(end - begin);
        }
    }
    std::sort(times.begin(), times.end());
    run.figures.median = static_cast<double>(times[count / 2]) / 2;
    run.figures.worst = static_cast<double>(times[count - 1 - count / 1000]) / 2;
}

std::uint64_t RoundTrips(std::uint64_t count) {
    return count + count / 10;
}

template <class PingPong>
Figures FiguresOf(PingPong pingPong) {
    CShared<Run> run;
    Pin(g_cpus.application);
    pingPong(*run);
    return run->figures;
}

// The application's side of a run.
template <class Poll>
void AnswerAll(std::uint64_t count, Poll poll) {
    CPatience patience;
    for (std::uint64_t answered = 0; answered < count;) {
        if (poll()) {
            ++answered;
            patience.Success();
        } else {
            patience.Wait();
        }
    }
}

bool MeasureRing(Run& run, const Kind& kind, std::uint64_t count) {
    Pin(g_cpus.board);
    ZceBoard::BoardShm& shm = g_board->Shm();
    ZceBoard::CChannelSender channel(ZceBoard::ViewOf(shm.a2c[libraryChannel]), libraryChannel);
    ZceBoard::CRingConsumer answers(ZceBoard::ViewOf(shm.c2a[answerChannel]),
                                    ZceBoard::C2A_TAG_GENERATION);
    const Bodies& bodies = BodiesOf(kind);
    std::uint64_t answered = 0;
    bool bGood = channel.IsOpen();
    const auto check = [&](const unsigned char* data, std::uint32_t size) {
        std::uint64_t ulSeq = 0;
        std::memcpy(&ulSeq, data + ZCE_BOARD_HEAD_SIZE, sizeof(ulSeq));
        bGood = bGood && size == kind.Size() && ulSeq == ++answered;
    };
    Measure(
        run, count,
        [&](std::uint64_t n) {
            channel.SendMarketData(kind.type, bodies[n % bodyCount], kind.bodySize);
        },
        [&] { return answers.PollOnce(check) == 1; });
    return bGood;
}

Figures OverRing(const Kind& kind) {
    const std::uint64_t count = CountOf(roundTrips);
    return FiguresOf([&](Run& run) {
        CChild board([&] { return MeasureRing(run, kind, count); });
        run.start.Meet();
        AnswerAll(RoundTrips(count), [] { return g_board->Recv() == 1; });
        board.Join();
    });
}

// The way back of the message that was sent last is checked by its sequence number.
template <class Body>
class CExpectation {
  public:
    void operator()(const Message<Body>& message) {
        std::uint64_t ulSeq = 0;
        std::memcpy(&ulSeq, message.body, sizeof(ulSeq));
        m_bGood = m_bGood && ulSeq == ++m_answered;
    }
    bool IsGood() const { return m_bGood; }

  private:
    std::uint64_t m_answered = 0;
    bool m_bGood = true;
};

template <class Body, template <class> class Queue>
Figures OverQueues(const Kind& kind) {
    const std::uint64_t count = CountOf(roundTrips);
    const auto there = std::make_unique<Queue<Message<Body>>>();
    const auto back = std::make_unique<Queue<Message<Body>>>();
    CExpectation<Body> expectation;
    const auto answer = [&back](const Message<Body>& message) { back->Push(message); };
    return FiguresOf([&](Run& run) {
        std::thread board([&] {
            Pin(g_cpus.board);
            CMessages<Body> messages(kind);
            Measure(
                run, count, [&](std::uint64_t /*n*/) { there->Push(messages.Next()); },
                [&] { return back->Poll(std::ref(expectation)) == 1; });
        });
        run.start.Meet();
        AnswerAll(RoundTrips(count), [&] { return there->Poll(answer) == 1; });
        board.join();
        if (!expectation.IsGood()) {
            Die("an answer is missing or in a wrong order");
        }
    });
}

// What the two iceoryx processes and this one share.
CShared<Run>* g_samples = nullptr;
CIceoryxPair* g_iceoryx = nullptr;

template <class Body>
bool MeasureSamples(CIceoryxEnd<Message<Body>>& end, const Kind& kind) {
    CMessages<Body> messages(kind);
    CExpectation<Body> expectation;
    bool bGood = true;
    Measure(
        **g_samples, CountOf(roundTrips),
        [&](std::uint64_t /*n*/) { bGood = end.Push(messages.Next()) && bGood; },
        [&] { return end.Poll(std::ref(expectation)) == 1; });
    return bGood && expectation.IsGood();
}

template <class Body>
bool AnswerSamples(CIceoryxEnd<Message<Body>>& end) {
    bool bGood = true;
    const auto answer = [&](const Message<Body>& message) { bGood = end.Push(message) && bGood; };
    (*g_samples)->start.Meet();
    AnswerAll(RoundTrips(CountOf(roundTrips)), [&] { return end.Poll(answer) == 1; });
    return bGood;
}

bool SampleSender(IceoryxEnds& ends, int type) {
    Pin(g_cpus.board);
    return type == static_cast<int>(l1.type) ? MeasureSamples<ZceBoardL1_t>(ends.l1End, l1)
                                             : MeasureSamples<ZceBoardL5_t>(ends.l5End, l5);
}

bool SampleAnswerer(IceoryxEnds& ends, int type) {
    Pin(g_cpus.application);
    return type == static_cast<int>(l1.type) ? AnswerSamples<ZceBoardL1_t>(ends.l1End)
                                             : AnswerSamples<ZceBoardL5_t>(ends.l5End);
}

Figures OverIceoryx(const Kind& kind) {
    new (&**g_samples) Run();
    g_iceoryx->Do(static_cast<int>(kind.type));
    return (*g_samples)->figures;
}

// What two processors can do at all: a number goes there in a cache line, and comes back in another
// one.
Figures OverCacheLines() {
    struct Line {
        alignas(2 * ZceBoard::CACHE_LINE) std::atomic<std::uint64_t> number{0};
    };
    const std::uint64_t count = CountOf(roundTrips);
    const CShared<Line> there;
    const CShared<Line> back;
    return FiguresOf([&](Run& run) {
        CChild board([&] {
            Pin(g_cpus.board);
            std::uint64_t sent = 0;
            Measure(
                run, count,
                [&](std::uint64_t n) {
                    there->number.store(sent = n + 1, std::memory_order_release);
                },
                [&] { return back->number.load(std::memory_order_acquire) == sent; });
            return true;
        });
        run.start.Meet();
        std::uint64_t taken = 0;
        AnswerAll(RoundTrips(count), [&] {
            const std::uint64_t number = there->number.load(std::memory_order_acquire);
            const bool bNew = number != taken;
            if (bNew) {
                taken = number;
                back->number.store(number, std::memory_order_release);
            }
            return bNew;
        });
        board.Join();
    });
}

template <class Body, int Flags>
Figures OverUdp(const Kind& kind) {
    const std::uint64_t count = CountOf(roundTripsOfASocket);
    return FiguresOf([&](Run& run) {
        const CSocketPair sockets;
        CChild board([&] {
            Pin(g_cpus.board);
            CMessages<Body> messages(kind);
            Message<Body> message;
            bool bGood = true;
            Measure(
                run, count,
                [&](std::uint64_t /*n*/) {
                    bGood = sockets.SendToApplication(&messages.Next(), sizeof(message)) && bGood;
                },
                [&] { return sockets.TakeAtBoard(&message, sizeof(message), Flags); });
            return bGood;
        });
        run.start.Meet();
        Message<Body> message;
        AnswerAll(RoundTrips(count), [&] {
            return sockets.TakeAtApplication(&message, sizeof(message), Flags) &&
                   sockets.SendToBoard(&message, sizeof(message));
        });
        board.Join();
    });
}

constexpr struct {
    const char* name;
    const char* text;
    double atLeast;  // of its time divided by the board's; 0: no bound
} ways[] = {{"board", "board to callback", 0},
            {"boost", "boost::lockfree::spsc_queue, threads", 1},
            {"atomic_queue", "atomic_queue, threads", 1},
            {"readerwriterqueue", "readerwriterqueue, threads", 1},
            {"iceoryx", "iceoryx, processes", 1},
            {"udp-polled", "UDP loopback, polled", 0},
            {"udp-blocking", "UDP loopback, waited for", 0},
            {"cache-line", "a cache line alone", 0}};
constexpr std::size_t udpPolled = 5;

// One repetition is one run of each, one right after the other: the machine may be another one a
// second later.
template <class Body>
void Compare(benchmark::State& state, const Kind& kind) {
    while (state.KeepRunning()) {
        const Figures figures[] = {OverRing(kind),
                                   OverQueues<Body, CBoostQueue>(kind),
                                   OverQueues<Body, COptimistQueue>(kind),
                                   OverQueues<Body, CReaderWriterQueue>(kind),
                                   OverIceoryx(kind),
                                   OverUdp<Body, MSG_DONTWAIT>(kind),
                                   OverUdp<Body, 0>(kind),
                                   OverCacheLines()};
        const Figures& board = figures[0];
        state.SetIterationTime(board.median * 1e-9);
        for (std::size_t k = 0; k < std::size(ways); ++k) {
            const std::string name = ways[k].name;
            state.counters[name] = figures[k].median;
            state.counters[name + " 99.9"] = figures[k].worst;
            state.counters[name + "/board"] = figures[k].median / board.median;
            state.counters[name + "/board 99.9"] = figures[k].worst / board.worst;
        }
        state.counters["board/udp-polled"] = board.median / figures[udpPolled].median;
        state.counters["board/udp-polled 99.9"] = board.worst / figures[udpPolled].worst;
    }
}

void PrintKind(const CMedians& medians, const Kind& kind) {
    constexpr double socketBound = 0.05;
    const std::string bench = kind.name;
    std::printf("%s, messages of %u bytes, one way, ns:     median    99.9 %%\n", kind.name,
                kind.Size());
    for (const auto& way : ways) {
        const std::string name = way.name;
        std::printf("    %-38s %8.0f %9.0f\n", way.text, medians.Counter(bench, name),
                    medians.Counter(bench, name + " 99.9"));
    }
    const std::string prefix = "latency-" + bench + "-";
    for (const auto& way : ways) {
        const std::string ratio = std::string(way.name) + "/board";
        if (way.atLeast > 0) {
            PrintRatioAtLeast(prefix + ratio, medians.Counter(bench, ratio), way.atLeast);
            PrintRatioAtLeast(prefix + ratio + "-99.9", medians.Counter(bench, ratio + " 99.9"),
                              way.atLeast);
        }
    }
    PrintRatioAtMost(prefix + "board/udp-polled", medians.Counter(bench, "board/udp-polled"),
                     socketBound);
    PrintRatioAtMost(prefix + "board/udp-polled-99.9",
                     medians.Counter(bench, "board/udp-polled 99.9"), socketBound);
    PrintRatio(prefix + "cache-line/board", medians.Counter(bench, "cache-line/board"));
    PrintRatio(prefix + "udp-blocking/board", medians.Counter(bench, "udp-blocking/board"));
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    GoAhead();
    g_cpus = PickCpus();
    CShared<Run> samples;
    g_samples = &samples;
    CIceoryxPair iceoryx(SampleSender, SampleAnswerer);
    g_iceoryx = &iceoryx;
    Register(l1.name, [](benchmark::State& state) { Compare<ZceBoardL1_t>(state, l1); });
    Register(l5.name, [](benchmark::State& state) { Compare<ZceBoardL5_t>(state, l5); });
    CBenchBoard board(g_answer);
    g_board = &board;
    CMedians medians;
    RunAll(medians);
    PrintKind(medians, l1);
    PrintKind(medians, l5);
    Finish();
    return 0;
}
