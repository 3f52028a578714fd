// How messages a second from a board process to the callback grow with the messages' size, and the
// time of a burst with its length; beside it lock-free queues between two threads on the same two
// processors. Dots of plots: there are no bounds here.

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "benchBoard.h"
#include "benchClock.h"
#include "benchMain.h"
#include "benchMessage.h"
#include "benchProcess.h"
#include "benchQueue.h"
#include "device/ChannelSender.h"

namespace velabench {

namespace {

constexpr std::size_t sizes[] = {16, 32, 64, 128, 256, 512, 1024, 2048};
constexpr int bursts[] = {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10'000};
constexpr std::size_t burstMessageSize = 148;
constexpr std::uint64_t messagesOfARun = 50'000;
constexpr double burstPauseNs = 3000;

// What the two sides of a run share.
struct Run {
    alignas(ZceBoard::CACHE_LINE) std::atomic<int> taken{0};                           // bursts
    alignas(ZceBoard::CACHE_LINE) std::array<std::uint64_t, messagesOfARun> sentAt{};  // of bursts
    CMeeting start;
};

// A run is so many bursts of so many messages; without pauses it is one burst.
struct Plan {
    std::size_t bursts;
    std::size_t messages;  // of a burst
};
Plan PlanOf(std::size_t messages) {
    const std::size_t all = IsSmokeRun() ? 1000 : messagesOfARun;
    return {std::clamp<std::size_t>(all / messages, IsSmokeRun() ? 1 : 5, 2000), messages};
}

// The messages' bodies begin with their number, from 1. As an application would, it looks at the
// whole message: a word of each cache line.
class CNumberSink final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(body); }

    explicit CNumberSink(std::size_t size = ZCE_BOARD_HEAD_SIZE) : m_size(size) {}
    std::uint32_t m_uiLast = 0;
    std::uint32_t m_uiWrong = 0;

  private:
    void Take(const unsigned char* body) {
        std::uint32_t number = 0;
        std::memcpy(&number, body, sizeof(number));
        m_uiWrong += number != ++m_uiLast ? 1 : 0;
        for (std::size_t at = ZCE_BOARD_HEAD_SIZE + sizeof(number); at + sizeof(number) <= m_size;
             at += ZceBoard::CACHE_LINE) {
            std::memcpy(&number, body - ZCE_BOARD_HEAD_SIZE + at, sizeof(number));
            m_uiSum += number;
        }
    }

    std::size_t m_size;
    std::uint32_t m_uiSum = 0;
};

Cpus g_cpus{};
CNumberSink g_sink;
CBenchBoard* g_board = nullptr;

template <std::size_t Size>
struct Sized {
    std::array<unsigned char, Size> bytes;
    const unsigned char* Body() const { return bytes.data() + ZCE_BOARD_HEAD_SIZE; }
};

// Messages to send one after the other. The number is set long before the message is copied.
template <std::size_t Size>
class CNumbered {
  public:
    CNumbered() {
        for (std::size_t k = 0; k < count; ++k) {
            const ZceBoardHead_t head{ZCE_BOARD_TYPE_L1_SINGLE, libraryChannel,
                                      Size - ZCE_BOARD_HEAD_SIZE, 0};
            std::memcpy(m_messages[k].bytes.data(), &head, sizeof(head));
            SetNumber(k, static_cast<std::uint32_t>(k + 1));
        }
    }
    const Sized<Size>& Next() {
        constexpr std::size_t half = count / 2;
        const std::size_t now = m_ulSent++;
        if (now >= half) {
            SetNumber((now + half) % count, static_cast<std::uint32_t>(now + half + 1));
        }
        return m_messages[now % count];
    }

  private:
    static constexpr std::size_t count = 64;
    void SetNumber(std::size_t k, std::uint32_t number) {
        std::memcpy(m_messages[k].bytes.data() + ZCE_BOARD_HEAD_SIZE, &number, sizeof(number));
    }
    std::array<Sized<Size>, count> m_messages{};
    std::size_t m_ulSent = 0;
};

void WaitForRoom(CPatience& patience) {
    constexpr int pauses = 64;
    for (int k = 0; k < pauses; ++k) {
        ZceBoard::PauseProcessor();
    }
    patience.Wait();
}

// The sending side: each burst when the one before has been taken, and after a pause.
template <std::size_t Size, class Push>
void Send(Run& run, const Plan& plan, Push push) {
    CNumbered<Size> messages;
    const auto pause = static_cast<std::uint64_t>(burstPauseNs / NsOfTick());
    CPatience patience;
    for (std::size_t burst = 0; burst < plan.bursts; ++burst) {
        while (run.taken.load() < static_cast<int>(burst)) {
            patience.Wait();
        }
        SpinFor(pause);
        run.sentAt[burst] = Ticks();
        for (std::size_t n = 0; n < plan.messages; ++n) {
            const Sized<Size>& message = messages.Next();
            while (!push(message)) {
                WaitForRoom(patience);
            }
        }
        patience.Success();
    }
}

// The receiving side: the ticks of each burst, from its first message's sending to its last one's
// callback.
template <class Poll>
std::vector<std::uint64_t> Receive(Run& run, const Plan& plan, Poll poll) {
    std::vector<std::uint64_t> times;
    times.reserve(plan.bursts);
    CPatience patience;
    for (std::size_t burst = 1; burst <= plan.bursts; ++burst) {
        while (g_sink.m_uiLast < burst * plan.messages) {
            if (poll() == 1) {
                patience.Success();
            } else {
                patience.Wait();
            }
        }
        const std::uint64_t end = Ticks();
        times.push_back(end - run.sentAt[burst - 1]);
        run.taken.store(static_cast<int>(burst));
    }
    if (g_sink.m_uiWrong != 0) {
        Die("messages are missing or in a wrong order");
    }
    return times;
}

double MedianNs(std::vector<std::uint64_t> times, std::size_t messages) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return static_cast<double>(*middle) * NsOfTick() / static_cast<double>(messages);
}

// All three give ns a message.
template <std::size_t Size>
double ThroughRing(const Plan& plan) {
    CShared<Run> run;
    g_sink = CNumberSink(Size);
    Pin(g_cpus.application);
    CChild board([&] {
        Pin(g_cpus.board);
        ZceBoard::CChannelSender channel(ZceBoard::ViewOf(g_board->Shm().a2c[libraryChannel]),
                                         libraryChannel);
        run->start.Meet();
        if (!channel.IsOpen()) {
            return false;
        }
        Send<Size>(*run, plan, [&](const Sized<Size>& message) {
            return channel.SendWhole(message.bytes.data(), Size);
        });
        return true;
    });
    run->start.Meet();
    const auto times = Receive(*run, plan, [] { return g_board->Recv(); });
    board.Join();
    return MedianNs(times, plan.messages);
}

template <std::size_t Size, template <class> class Queue>
double ThroughQueue(const Plan& plan) {
    const CShared<Run> run;
    const auto queue = std::make_unique<Queue<Sized<Size>>>();
    g_sink = CNumberSink(Size);
    IVelaZceMdSpi* spi = &g_sink;
    benchmark::DoNotOptimize(spi);  // the call is a virtual one
    const auto deliver = [spi](const Sized<Size>& message) { spi->OnDmaType17Msg(message.Body()); };
    Pin(g_cpus.application);
    std::thread sender([&] {
        Pin(g_cpus.board);
        run->start.Meet();
        Send<Size>(*run, plan, [&](const Sized<Size>& message) { return queue->Push(message); });
    });
    run->start.Meet();
    const auto times = Receive(*run, plan, [&] { return queue->Poll(deliver); });
    sender.join();
    return MedianNs(times, plan.messages);
}

constexpr const char* ways[] = {"board", "boost", "atomic_queue", "readerwriterqueue"};

template <std::size_t Size>
void Compare(benchmark::State& state, const Plan& plan) {
    while (state.KeepRunning()) {
        const double ns[] = {ThroughRing<Size>(plan), ThroughQueue<Size, CBoostQueue>(plan),
                             ThroughQueue<Size, COptimistQueue>(plan),
                             ThroughQueue<Size, CReaderWriterQueue>(plan)};
        state.SetIterationTime(ns[0] * 1e-9);
        for (std::size_t k = 0; k < std::size(ways); ++k) {
            state.counters[ways[k]] = ns[k];
        }
    }
}

std::string SizeName(std::size_t size) {
    return "size-" + std::to_string(size);
}
std::string BurstName(int length) {
    return "burst-" + std::to_string(length);
}

template <std::size_t... Index>
void RegisterSizes(std::index_sequence<Index...> /*all*/) {
    // Long bursts, five of a run.
    const std::size_t burst = IsSmokeRun() ? 1000 : messagesOfARun / 5;
    (Register(SizeName(sizes[Index]),
              [burst](benchmark::State& state) { Compare<sizes[Index]>(state, PlanOf(burst)); }),
     ...);
}

void Print(const CMedians& medians) {
    constexpr double nsOfASecond = 1e9;
    for (const char* way : ways) {
        for (const std::size_t size : sizes) {
            PrintPoint("throughput-by-size", way, static_cast<double>(size),
                       nsOfASecond / medians.Counter(SizeName(size), way));
        }
        for (const int length : bursts) {
            PrintPoint("burst-time", way, length, medians.Counter(BurstName(length), way));
        }
    }
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    constexpr int repetitions = 7;
    ReadOptions(argc, argv, repetitions);
    GoAhead();
    g_cpus = PickCpus();
    NsOfTick();
    RegisterSizes(std::make_index_sequence<std::size(sizes)>());
    for (const int length : bursts) {
        Register(BurstName(length), [length](benchmark::State& state) {
            Compare<burstMessageSize>(state, PlanOf(static_cast<std::size_t>(length)));
        });
    }
    CBenchBoard board(g_sink);
    g_board = &board;
    CMedians medians;
    RunAll(medians);
    Print(medians);
    Finish();
    return 0;
}
