// What the library puts on top of the vendor's poll: a delivered message and an idle poll through
// VelaRecv, beside the same ring polled by the vendor's call with the callback called directly, and
// beside the least that such a poll has to do, written by hand (leastPath.h); for messages of
// several sizes, for bursts of several lengths, and how the vendor's poll grows with the number of
// channels that one thread looks at.
//
// Everything is in one process and on one thread: the ring is filled between the timed stretches,
// so that the figures are the receiving side's alone. What counts is the ratio at the end.

#include <sched.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "benchBoard.h"
#include "benchClock.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "leastPath.h"
#include "memory/Ring.h"

namespace velabench {

namespace {

// A stretch's messages stay in the processor's own cache between the filling and the polls.
constexpr std::uint64_t stretchBytes = std::uint64_t{256} << 10;
constexpr int idlePolls = 4096;  // of a timed stretch
constexpr std::uint32_t plainSize = ZCE_BOARD_HEAD_SIZE + sizeof(ZceBoardL1_t);

constexpr std::uint32_t sizes[] = {16, 32, 64, 128, 256, 512, 1024, 2048};
constexpr std::uint32_t boundSizes[] = {64, 256, 1024};  // those that have a bound
constexpr int bursts[] = {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10'000};
constexpr unsigned int channelCounts[] = {1, 2, 3, 4, 6, 8, 12, 16};
constexpr int messagesOfAChannel = 64;

// How many messages of this size are in a stretch.
int BatchOf(std::uint32_t size) {
    return static_cast<int>(
        std::min<std::uint64_t>(4096, stretchBytes / ZceBoard::RecordSize(size)));
}

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
        std::uint32_t number = 0;
        std::memcpy(&number, body, sizeof(number));
        m_ulSum += number;
    }
};

SumSpi g_spi;
CBenchBoard* g_board = nullptr;
IPolled* g_least = nullptr;                    // of the library's channel
std::vector<ZceBoard::CRingProducer> g_rings;  // by channel

void OnMessage(const unsigned char* data, unsigned int /*size*/, void* context) {
    static_cast<IVelaZceMdSpi*>(context)->OnDmaType17Msg(data + ZCE_BOARD_HEAD_SIZE);
}

int PollLibrary() {
    return g_board->Recv();
}

int PollVendor() {
    IVelaZceMdSpi* direct = &g_spi;
    return enyx_hw_a2c_stream_poll_once(g_board->LibraryStream(), OnMessage, direct);
}

int PollLeast() {
    const int got = g_least->Recv();
    if (got < 0) [[unlikely]] {
        Die("the end was not asked for");
    }
    return got;
}

// The sum of the numbers that are in the messages.
std::uint64_t Fill(unsigned int channel, std::uint32_t size, int count) {
    ZceBoard::CRingProducer& ring = g_rings[channel];
    std::uint64_t sum = 0;
    for (int i = 0; i < count; ++i) {
        unsigned char* message = ring.PrepareWrite(size);
        if (message == nullptr) {
            Die("the ring is full");
        }
        std::memset(message, i, size);
        const std::uint32_t type = ZCE_BOARD_TYPE_L1_SINGLE;
        std::memcpy(message, &type, sizeof(type));
        std::uint32_t number = 0;
        std::memcpy(&number, message + ZCE_BOARD_HEAD_SIZE, sizeof(number));
        sum += number;
        ring.CommitWrite(size);
    }
    return sum;
}

// The time of a stretch of polls, in ticks, which must hand out messages of this sum.
template <class Poll>
std::uint64_t TimePolls(Poll poll, int count, int expected, std::uint64_t sum) {
    g_spi.m_ulSum = 0;
    const std::uint64_t begin = Ticks();
    int delivered = 0;
    for (int i = 0; i < count; ++i) {
        delivered += poll();
    }
    const std::uint64_t ticks = Ticks() - begin;
    if (delivered != expected || g_spi.m_ulSum != sum) {
        Die("messages are missing");
    }
    return ticks;
}

// What two looks at the clock cost by themselves, in ticks.
std::uint64_t ClockTicks() {
    static const std::uint64_t ticks = [] {
        std::uint64_t least = ~std::uint64_t{0};
        for (int k = 0; k < 1000; ++k) {
            const std::uint64_t begin = Ticks();
            least = std::min(least, Ticks() - begin);
        }
        return least;
    }();
    return ticks;
}

// Of one repetition: stretches of the library's poll, of the vendor's and of the least one in
// turns.
class CTurns {
  public:
    void Add(std::uint64_t library, std::uint64_t vendor, std::uint64_t least) {
        m_library += library - std::min(library, ClockTicks());
        m_vendor += vendor - std::min(vendor, ClockTicks());
        m_least += least - std::min(least, ClockTicks());
    }
    void Tell(benchmark::State& state, double polls) const {
        const double library = static_cast<double>(m_library) * NsOfTick() / polls;
        const double vendor = static_cast<double>(m_vendor) * NsOfTick() / polls;
        const double least = static_cast<double>(m_least) * NsOfTick() / polls;
        state.SetIterationTime(library * 1e-9);
        state.counters["VelaRecv"] = library;
        state.counters["bare"] = vendor;
        state.counters["ratio"] = library / vendor;
        state.counters["least"] = least / vendor;
    }

  private:
    std::uint64_t m_library = 0;
    std::uint64_t m_vendor = 0;
    std::uint64_t m_least = 0;
};

void CompareMessages(benchmark::State& state, std::uint32_t size, int count) {
    const int stretches = IsSmokeRun() ? 3 : std::max(20, 100'000 / count);
    while (state.KeepRunning()) {
        CTurns turns;
        for (int k = 0; k < stretches; ++k) {
            std::uint64_t sum = Fill(libraryChannel, size, count);
            const std::uint64_t library = TimePolls(PollLibrary, count, count, sum);
            sum = Fill(libraryChannel, size, count);
            const std::uint64_t vendor = TimePolls(PollVendor, count, count, sum);
            sum = Fill(libraryChannel, size, count);
            turns.Add(library, vendor, TimePolls(PollLeast, count, count, sum));
        }
        turns.Tell(state, static_cast<double>(count) * stretches);
    }
}

void CompareIdle(benchmark::State& state) {
    const int stretches = IsSmokeRun() ? 3 : 100;
    while (state.KeepRunning()) {
        CTurns turns;
        for (int k = 0; k < stretches; ++k) {
            const std::uint64_t library = TimePolls(PollLibrary, idlePolls, 0, 0);
            const std::uint64_t vendor = TimePolls(PollVendor, idlePolls, 0, 0);
            turns.Add(library, vendor, TimePolls(PollLeast, idlePolls, 0, 0));
        }
        turns.Tell(state, static_cast<double>(idlePolls) * stretches);
    }
}

// A round: each of the first `channels` streams polled once.
int PollRound(unsigned int channels) {
    IVelaZceMdSpi* direct = &g_spi;
    int delivered = 0;
    for (unsigned int channel = 0; channel < channels; ++channel) {
        delivered += enyx_hw_a2c_stream_poll_once(g_board->Stream(channel), OnMessage, direct);
    }
    return delivered;
}

// Rounds over several channels that all have messages, and rounds in which none has.
void MeasureChannels(benchmark::State& state, unsigned int channels) {
    const int stretches = IsSmokeRun() ? 2 : 40;
    const auto round = [channels] { return PollRound(channels); };
    while (state.KeepRunning()) {
        std::uint64_t busy = 0;
        std::uint64_t idle = 0;
        for (int k = 0; k < stretches; ++k) {
            std::uint64_t sum = 0;
            for (unsigned int channel = 0; channel < channels; ++channel) {
                sum += Fill(channel, plainSize, messagesOfAChannel);
            }
            const int all = messagesOfAChannel * static_cast<int>(channels);
            busy += TimePolls(round, messagesOfAChannel, all, sum);
            round();  // each ring stays away once after a burst: not a part of an idle round
            idle += TimePolls(round, messagesOfAChannel, 0, 0);
        }
        const double rounds = static_cast<double>(messagesOfAChannel) * stretches;
        state.SetIterationTime(static_cast<double>(busy) * NsOfTick() * 1e-9);
        state.counters["message"] = static_cast<double>(busy) * NsOfTick() / rounds / channels;
        state.counters["idle round"] = static_cast<double>(idle) * NsOfTick() / rounds;
    }
}

std::string SizeName(std::uint32_t size) {
    return "message-" + std::to_string(size);
}
std::string BurstName(int count) {
    return "burst-" + std::to_string(count);
}
std::string ChannelsName(unsigned int count) {
    return "channels-" + std::to_string(count);
}

void RegisterAll() {
    Register("idle", CompareIdle);
    for (const std::uint32_t size : sizes) {
        Register(SizeName(size),
                 [size](benchmark::State& state) { CompareMessages(state, size, BatchOf(size)); });
    }
    for (const int count : bursts) {
        Register(BurstName(count),
                 [count](benchmark::State& state) { CompareMessages(state, plainSize, count); });
    }
    for (const unsigned int count : channelCounts) {
        Register(ChannelsName(count),
                 [count](benchmark::State& state) { MeasureChannels(state, count); });
    }
}

void PrintBound(const CMedians& medians, const std::string& what, const std::string& name) {
    std::printf("%s: VelaRecv %.1f ns, the vendor's poll and a direct call %.1f ns\n", what.c_str(),
                medians.Counter(name, "VelaRecv"), medians.Counter(name, "bare"));
}

void PrintPair(const CMedians& medians, const char* plot, double x, const std::string& name) {
    PrintPoint(plot, "VelaRecv", x, medians.Counter(name, "VelaRecv"));
    PrintPoint(plot, "vendor", x, medians.Counter(name, "bare"));
}

void PrintAll(const CMedians& medians) {
    constexpr double bound = 1.35;
    for (const std::uint32_t size : boundSizes) {
        const std::string name = SizeName(size);
        PrintBound(medians, "a delivered message of " + std::to_string(size) + " bytes", name);
        PrintRatioAtMost("recv-" + name, medians.Counter(name, "ratio"), bound);
        PrintRatio("recv-" + name + "-least", medians.Counter(name, "least"));
    }
    PrintBound(medians, "an idle poll", "idle");
    PrintRatio("recv-idle", medians.Counter("idle", "ratio"));
    PrintRatio("recv-idle-least", medians.Counter("idle", "least"));
    for (const std::uint32_t size : sizes) {
        PrintPair(medians, "message-cost-by-size", size, SizeName(size));
    }
    for (const int count : bursts) {
        PrintPair(medians, "message-cost-by-burst", count, BurstName(count));
    }
    for (const unsigned int count : channelCounts) {
        const std::string name = ChannelsName(count);
        PrintPoint("channels", "message", count, medians.Counter(name, "message"));
        PrintPoint("channels", "idle-round", count, medians.Counter(name, "idle round"));
    }
}

void FindRings() {
    for (unsigned int channel = 0; channel < ZceBoard::CHANNELS; ++channel) {
        const ZceBoard::RingView ring = ZceBoard::ViewOf(g_board->Shm().a2c[channel]);
        g_rings.emplace_back(ring).Begin(ring.control->generation.load());
    }
}

// Not on a processor of its own all along, and not moved while it measures.
void PinHere() {
    Pin(sched_getcpu());
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    constexpr int repetitions = 15;
    ReadOptions(argc, argv, repetitions);
    GoAhead();
    PinHere();
    RegisterAll();
    CBenchBoard board(g_spi, true);
    g_board = &board;
    CLeastPath least(board.LibraryStream(), g_spi);
    g_least = &least;
    FindRings();
    CMedians medians;
    RunAll(medians);
    PrintAll(medians);
    Finish();
    return 0;
}
