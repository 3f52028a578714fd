// Messages a second from the board to the application's callback, on one channel: a board process
// that sends as zce-board does, and an application that receives through the library. Beside it,
// between the same two processors, lock-free queues between two threads, and between two processes
// iceoryx and UDP datagrams over the loopback interface.
//
// Every message is the board's, a head of 12 bytes and the body, and counts when the callback has
// seen it.

#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <thread>

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

// Short runs, so that on a busy machine some of them are not interrupted.
constexpr std::uint64_t messagesOfARun = 200'000;
constexpr std::uint64_t samplesOfARun = 20'000;  // iceoryx
constexpr std::uint64_t datagramsOfARun = 10'000;
// A run of which other processes have taken more than this part is repeated, so many times at most;
// the one that was disturbed least counts.
constexpr double lostAtMost = 0.02;
constexpr int attempts = 5;

// How many messages a run takes: those before the clock starts, and those that are measured.
struct Load {
    std::uint64_t warmUp;
    std::uint64_t measured;
    std::uint64_t All() const { return warmUp + measured; }
};

Load LoadOf(std::uint64_t measured) {
    return IsSmokeRun() ? Load{100, 1000} : Load{measured / 4, measured};
}

// What the two sides of a run share.
struct Run {
    alignas(ZceBoard::CACHE_LINE) std::atomic<std::uint64_t> arrived{0};  // datagrams, samples
    alignas(ZceBoard::CACHE_LINE) std::uint64_t dropped = 0;  // these two by the sender, at its end
    double lost = 0;
    CMeeting start;
};

Cpus g_cpus{};
CSink g_sink;
CBenchBoard* g_board = nullptr;

// The receiving side of a run: `poll` gives 1 for a message that the callback has seen.
template <class Poll>
CStretch Receive(const Load& load, Poll poll) {
    const auto until = [&poll](std::uint64_t count) {
        CPatience patience;
        while (g_sink.m_ulCount < count) {
            if (poll() == 1) {
                patience.Success();
            } else {
                patience.Wait();
            }
        }
    };
    until(load.warmUp);
    CStretch measured;
    until(load.All());
    measured.End();
    return measured;
}

// Messages a second, of one way of sending: `sendAndReceive` does a run.
template <class SendAndReceive>
double Rate(const Load& load, SendAndReceive sendAndReceive) {
    double least = 2;
    double seconds = 0;
    for (int k = 0; k < (IsSmokeRun() ? 1 : attempts) && least > lostAtMost; ++k) {
        CShared<Run> run;
        g_sink = CSink();
        Pin(g_cpus.application);
        const CStretch received = sendAndReceive(*run);
        if (g_sink.m_ulCount != load.All() || g_sink.m_ulBack != 0 ||
            g_sink.m_ulLast != load.All() + run->dropped) {
            Die("messages are missing or in a wrong order");
        }
        const double lost = std::max(received.Lost(), run->lost);
        if (lost < least) {
            least = lost;
            seconds = received.Seconds();
        }
    }
    return static_cast<double>(load.measured) / seconds;
}

// The receiver is behind: time for it to take some out.
void WaitForRoom(CPatience& patience) {
    constexpr int pauses = 64;
    for (int k = 0; k < pauses; ++k) {
        ZceBoard::PauseProcessor();
    }
    patience.Wait();
}

// The board's end: what it does for each tick of an instrument that the channel has subscribed to.
// What found no room is sent again.
bool SendLikeTheBoard(Run& run, const Kind& kind, std::uint64_t count) {
    Pin(g_cpus.board);
    const Bodies& bodies = BodiesOf(kind);
    ZceBoard::CChannelSender channel(ZceBoard::ViewOf(g_board->Shm().a2c[libraryChannel]),
                                     libraryChannel);
    run.start.Meet();
    CStretch sending;
    CPatience patience;
    for (std::uint64_t n = 0; n < count; ++n) {
        const ZceBoardL5_t& body = bodies[n % bodyCount];
        if (!channel.IsOpen()) {
            return false;
        }
        std::uint64_t dropped = channel.Total().dropped;
        channel.SendMarketData(kind.type, body, kind.bodySize);
        while (channel.Total().dropped != dropped) {
            WaitForRoom(patience);
            dropped = channel.Total().dropped;
            channel.SendMarketData(kind.type, body, kind.bodySize);
        }
        patience.Success();
    }
    sending.End();
    run.dropped = channel.Total().dropped;
    run.lost = sending.Lost();
    return true;
}

double ThroughRing(const Kind& kind) {
    const Load load = LoadOf(messagesOfARun);
    return Rate(load, [&](Run& run) {
        CChild board([&] { return SendLikeTheBoard(run, kind, load.All()); });
        run.start.Meet();
        const CStretch received = Receive(load, [] { return g_board->Recv(); });
        board.Join();
        return received;
    });
}

template <class Body, class Queue>
void SendToQueue(Run& run, Queue& queue, const Kind& kind, std::uint64_t count) {
    Pin(g_cpus.board);
    CMessages<Body> messages(kind);
    run.start.Meet();
    CStretch sending;
    CPatience patience;
    for (std::uint64_t n = 0; n < count; ++n) {
        const Message<Body>& message = messages.Next();
        while (!queue.Push(message)) {
            WaitForRoom(patience);
        }
        patience.Success();
    }
    sending.End();
    run.lost = sending.Lost();
}

// The callback as some application's, whose class is not known here: the call is a virtual one.
IVelaZceMdSpi& Callback() {
    IVelaZceMdSpi* spi = &g_sink;
    benchmark::DoNotOptimize(spi);
    return *spi;
}

template <class Body, template <class> class Queue>
double ThroughQueue(const Kind& kind) {
    const Load load = LoadOf(messagesOfARun);
    const auto queue = std::make_unique<Queue<Message<Body>>>();
    IVelaZceMdSpi& spi = Callback();
    const auto deliver = [&spi](const Message<Body>& message) { spi.OnDmaType17Msg(message.body); };
    return Rate(load, [&](Run& run) {
        std::thread sender([&] { SendToQueue<Body>(run, *queue, kind, load.All()); });
        run.start.Meet();
        const CStretch received = Receive(load, [&] { return queue->Poll(deliver); });
        sender.join();
        return received;
    });
}

// What the two iceoryx processes and this one share.
struct Samples {
    Run run;
    std::uint64_t count = 0;  // these by the receiver, at its end
    std::uint64_t back = 0;
    std::uint64_t last = 0;
    CStretch received;
};
CShared<Samples>* g_samples = nullptr;
CIceoryxPair* g_iceoryx = nullptr;

template <class Body>
bool SendSamples(CIceoryxEnd<Message<Body>>& end, const Kind& kind) {
    const Load load = LoadOf(samplesOfARun);
    Run& run = (*g_samples)->run;
    CMessages<Body> messages(kind);
    run.start.Meet();
    CStretch sending;
    CPatience patience;
    std::uint64_t arrived = 0;
    for (std::uint64_t n = 0; n < load.All(); ++n) {
        while (n - arrived >= iceoryxOnTheWay) {
            arrived = run.arrived.load(std::memory_order_relaxed);
            patience.Wait();
        }
        patience.Success();
        if (!end.Push(messages.Next())) {
            return false;
        }
    }
    sending.End();
    run.lost = sending.Lost();
    return true;
}

template <class Body>
bool ReceiveSamples(CIceoryxEnd<Message<Body>>& end) {
    constexpr std::uint64_t toldEach = 32;
    Samples& samples = **g_samples;
    IVelaZceMdSpi& spi = Callback();
    const auto deliver = [&spi](const Message<Body>& message) { spi.OnDmaType17Msg(message.body); };
    g_sink = CSink();
    samples.run.start.Meet();
    samples.received = Receive(LoadOf(samplesOfARun), [&] {
        const int got = end.Poll(deliver);
        if (got == 1 && g_sink.m_ulCount % toldEach == 0) {
            samples.run.arrived.store(g_sink.m_ulCount, std::memory_order_relaxed);
        }
        return got;
    });
    samples.count = g_sink.m_ulCount;
    samples.back = g_sink.m_ulBack;
    samples.last = g_sink.m_ulLast;
    return true;
}

bool SampleSender(IceoryxEnds& ends, int type) {
    Pin(g_cpus.board);
    return type == static_cast<int>(l1.type) ? SendSamples<ZceBoardL1_t>(ends.l1End, l1)
                                             : SendSamples<ZceBoardL5_t>(ends.l5End, l5);
}

bool SampleReceiver(IceoryxEnds& ends, int type) {
    Pin(g_cpus.application);
    return type == static_cast<int>(l1.type) ? ReceiveSamples<ZceBoardL1_t>(ends.l1End)
                                             : ReceiveSamples<ZceBoardL5_t>(ends.l5End);
}

double ThroughIceoryx(const Kind& kind) {
    return Rate(LoadOf(samplesOfARun), [&](Run& run) {
        Samples& samples = **g_samples;
        new (&samples) Samples();
        g_iceoryx->Do(static_cast<int>(kind.type));
        g_sink.m_ulCount = samples.count;
        g_sink.m_ulBack = samples.back;
        g_sink.m_ulLast = samples.last;
        run.lost = samples.run.lost;
        return samples.received;
    });
}

// The sender keeps no more than this many on their way, so that the receiving socket has room for
// all and none is lost.
constexpr std::uint64_t datagramsOnTheWay = 64;

template <class Body>
bool SendDatagrams(Run& run, const CSocketPair& sockets, const Kind& kind, std::uint64_t count) {
    Pin(g_cpus.board);
    CMessages<Body> messages(kind);
    run.start.Meet();
    CStretch sending;
    CPatience patience;
    for (std::uint64_t n = 0; n < count; ++n) {
        while (n - run.arrived.load(std::memory_order_relaxed) >= datagramsOnTheWay) {
            patience.Wait();
        }
        patience.Success();
        const Message<Body>& message = messages.Next();
        if (!sockets.SendToApplication(&message, sizeof(message))) {
            return false;
        }
    }
    sending.End();
    run.lost = sending.Lost();
    return true;
}

template <class Body>
double ThroughUdp(const Kind& kind) {
    const Load load = LoadOf(datagramsOfARun);
    IVelaZceMdSpi& spi = Callback();
    return Rate(load, [&](Run& run) {
        const CSocketPair sockets;
        CChild sender([&] { return SendDatagrams<Body>(run, sockets, kind, load.All()); });
        run.start.Meet();
        Message<Body> message;
        const CStretch received = Receive(load, [&] {
            if (!sockets.TakeAtApplication(&message, sizeof(message), MSG_DONTWAIT)) {
                return 0;
            }
            spi.OnDmaType17Msg(message.body);
            run.arrived.store(g_sink.m_ulCount, std::memory_order_relaxed);
            return 1;
        });
        sender.Join();
        return received;
    });
}

constexpr struct {
    const char* name;
    const char* text;
} ways[] = {{"board", "board to callback"},
            {"boost", "boost::lockfree::spsc_queue, between threads"},
            {"atomic_queue", "atomic_queue, between threads"},
            {"readerwriterqueue", "readerwriterqueue, between threads"},
            {"iceoryx", "iceoryx, between processes"},
            {"udp", "UDP loopback, between processes"}};

// One repetition is one run of each, one right after the other: the machine may be another one a
// second later.
template <class Body>
void Compare(benchmark::State& state, const Kind& kind) {
    while (state.KeepRunning()) {
        const double rates[] = {ThroughRing(kind),
                                ThroughQueue<Body, CBoostQueue>(kind),
                                ThroughQueue<Body, COptimistQueue>(kind),
                                ThroughQueue<Body, CReaderWriterQueue>(kind),
                                ThroughIceoryx(kind),
                                ThroughUdp<Body>(kind)};
        const double ring = rates[0];
        state.SetIterationTime(1 / ring);
        for (std::size_t k = 0; k < std::size(ways); ++k) {
            state.counters[ways[k].name] = rates[k];
        }
        state.counters["board/best-queue"] = ring / std::max({rates[1], rates[2], rates[3]});
        state.counters["board/iceoryx"] = ring / rates[4];
        state.counters["board/udp"] = ring / rates[5];
    }
}

void PrintKind(const CMedians& medians, const Kind& kind) {
    constexpr double million = 1e6;
    const std::string name = kind.name;
    std::printf("%s, messages of %u bytes, millions a second:\n", kind.name, kind.Size());
    for (const auto& way : ways) {
        std::printf("    %-46s %8.3f\n", way.text, medians.Counter(name, way.name) / million);
    }
    const auto ratio = [&](const char* what, double bound) {
        PrintRatioAtLeast("throughput-" + name + "-" + what, medians.Counter(name, what), bound);
    };
    ratio("board/best-queue", 1.2);
    ratio("board/iceoryx", 5);
    ratio("board/udp", 10);
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    constexpr int repetitions = 9;
    ReadOptions(argc, argv, repetitions);
    GoAhead();
    g_cpus = PickCpus();
    CShared<Samples> samples;
    g_samples = &samples;
    CIceoryxPair iceoryx(SampleSender, SampleReceiver);
    g_iceoryx = &iceoryx;
    Register(l1.name, [](benchmark::State& state) { Compare<ZceBoardL1_t>(state, l1); });
    Register(l5.name, [](benchmark::State& state) { Compare<ZceBoardL5_t>(state, l5); });
    CBenchBoard board(g_sink);
    g_board = &board;
    CMedians medians;
    RunAll(medians);
    PrintKind(medians, l1);
    PrintKind(medians, l5);
    Finish();
    return 0;
}
