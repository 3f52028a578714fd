// How long a message is on its way from the board to the application's callback: half the time that
// a message and its answer take. A board process sends, the application gets the message through
// the library and answers from the callback by the vendor's call, with the same bytes. Beside it,
// between the same two processors, two lock-free queues between two threads and UDP datagrams over
// the loopback interface between two processes, polled and waited for.

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include "benchBoard.h"
#include "benchMain.h"
#include "benchMessage.h"
#include "benchProcess.h"
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

template <class Body>
Figures OverQueues(const Kind& kind) {
    const std::uint64_t count = CountOf(roundTrips);
    const auto there = std::make_unique<Queue<Body>>();
    const auto back = std::make_unique<Queue<Body>>();
    const auto take = [](const Message<Body>& message) { benchmark::DoNotOptimize(message); };
    const auto answer = [&back](const Message<Body>& message) { back->push(message); };
    return FiguresOf([&](Run& run) {
        std::thread board([&] {
            Pin(g_cpus.board);
            CMessages<Body> messages(kind);
            Measure(
                run, count, [&](std::uint64_t /*n*/) { there->push(messages.Next()); },
                [&] { return back->consume_one(take); });
        });
        run.start.Meet();
        AnswerAll(RoundTrips(count), [&] { return there->consume_one(answer); });
        board.join();
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
} ways[] = {{"board", "board to callback"},
            {"queue", "queue between threads"},
            {"udp-polled", "UDP loopback, polled"},
            {"udp-blocking", "UDP loopback, waited for"}};

// One repetition is one run of each, one right after the other: the machine may be another one a
// second later.
template <class Body>
void Compare(benchmark::State& state, const Kind& kind) {
    while (state.KeepRunning()) {
        const Figures figures[] = {OverRing(kind), OverQueues<Body>(kind),
                                   OverUdp<Body, MSG_DONTWAIT>(kind), OverUdp<Body, 0>(kind)};
        state.SetIterationTime(figures[0].median * 1e-9);
        for (std::size_t k = 0; k < std::size(ways); ++k) {
            const std::string name = ways[k].name;
            state.counters[name] = figures[k].median;
            state.counters[fmt::format("{} 99.9", name)] = figures[k].worst;
            state.counters[fmt::format("{}/board", name)] = figures[k].median / figures[0].median;
        }
    }
}

void PrintKind(const CMedians& medians, const Kind& kind) {
    const std::string bench = kind.name;
    std::printf("%s, messages of %u bytes, one way, ns:     median    99.9 %%\n", kind.name,
                kind.Size());
    for (const auto& way : ways) {
        const std::string name = way.name;
        std::printf("    %-38s %8.0f %9.0f\n", way.text, medians.Counter(bench, name),
                    medians.Counter(bench, fmt::format("{} 99.9", name)));
    }
    for (const auto& way : ways) {
        if (&way != ways) {
            const std::string ratio = fmt::format("{}/board", way.name);
            PrintRatio(fmt::format("latency-{}-{}", bench, ratio), medians.Counter(bench, ratio));
        }
    }
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    GoAhead();
    g_cpus = PickCpus();
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
