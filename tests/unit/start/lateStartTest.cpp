// The last starts before a session that still learn the list, those that learn a part of it, those
// that are too late to learn and too early to recover, and the first that recovers: to the second,
// for several states of the board and several rhythms of the exchange's broadcast.
//
// What decides: the first packet of a process is always learnt, the next one from ten seconds after
// 08:55:00 (20:55:00) on only finds the end of the call auction, the one after that subscribes; and
// in trading time, from 09:00:01 (21:00:01) on, a packet does nothing but close the transfer.

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>

#include "slowBuild.h"
#include "startBench.h"

namespace velatest {
namespace {

constexpr unsigned int today = 20261120;
constexpr unsigned int yesterday = 20261119;

enum class Outcome { WholeList, PartOfList, Nothing, Recovers };

// Times of the call of VelaStart, as hhmmss; a period's packets come at its multiples.
struct LateRow {
    const char* board;
    unsigned int tradeDate;
    unsigned int decode;  // register 0x11
    CompactBoard::Counters counters;
    unsigned int period;       // seconds from packet to packet
    unsigned int lastWhole;    // the last start that learns all
    unsigned int lastPart;     // ... that subscribes a part of the list
    unsigned int lastNothing;  // ... that neither learns nor recovers
};

std::ostream& operator<<(std::ostream& out, const LateRow& row) {
    return out << row.board << ", a packet every " << row.period << " s, " << row.lastWhole;
}

constexpr auto moving = CompactBoard::Counters::Moving;
constexpr auto standing = CompactBoard::Counters::Standing;

// Opening the board takes a second. A board of another day is then reset, which takes another one.
// A start that reaches 09:00:00 with a decoding board looks at its counters for two seconds and so
// comes out inside trading time.
constexpr LateRow rows[] = {
    {"kept, not decoding", today, 0, standing, 1, 85505, 85957, 85959},
    {"kept, not decoding", today, 0, standing, 5, 85449, 85949, 85959},
    {"kept, not decoding", today, 0, standing, 30, 85329, 85859, 85959},
    {"kept, counters moving", today, 3, moving, 1, 85505, 85957, 85958},
    {"kept, counters moving", today, 3, moving, 5, 85449, 85949, 85958},
    {"kept, counters standing", today, 3, standing, 1, 85505, 85957, 85958},
    {"of yesterday, reset", yesterday, 0, standing, 1, 85504, 85956, 85958},
    {"of yesterday, reset", yesterday, 3, moving, 5, 85448, 85948, 85958},
    {"of yesterday, reset", yesterday, 0, standing, 30, 85328, 85858, 85958},
    {"kept, not decoding", today, 0, standing, 1, 205505, 205957, 205959},
    {"kept, not decoding", today, 0, standing, 5, 205449, 205949, 205959},
    {"kept, not decoding", today, 0, standing, 30, 205329, 205859, 205959},
    {"kept, counters moving", today, 3, moving, 1, 205505, 205957, 205958},
    {"kept, counters standing", today, 3, standing, 5, 205449, 205949, 205958},
    {"of yesterday, reset", yesterday, 0, standing, 1, 205504, 205956, 205958},
    {"of yesterday, reset", yesterday, 3, moving, 5, 205448, 205948, 205958},
    {"of yesterday, reset", yesterday, 0, standing, 30, 205328, 205858, 205958},
};

// The exchange repeats these without end.
const std::array<Insts_t, 4> broadcast = {{
    {{1, "AP210"}, {2, "CF209"}},
    {{3, "CF301"}, {4, "SR209"}},
    {{5, "SR209C5000"}, {6, "SR209P5000"}},
    {{7, "TA209"}, {0, "SPD-SR209&SR301"}},
}};
constexpr std::size_t listSize = 8;

class LateStart : public testing::TestWithParam<LateRow> {
  public:
    LateStart() {
        PutFile("test.ini",
                "[config]\ndevice=xilinx0:0\n[channel0]\ninsts=all\noptions=recv\nspd=recv\n");
    }

    // A start at this second of the day, and what comes of it until half a minute into the session.
    Outcome StartAt(unsigned int second, unsigned int sessionBegin) {
        const LateRow& row = GetParam();
        bench.board.Clear();
        bench.board.tradeDate = row.tradeDate;
        bench.board.decode = row.decode;
        bench.board.counters = row.counters;
        FakeClock::Set(today, TimeOf(second));
        std::remove("bin");
        bench.Start();
        if (bench.board.mapTrans == 0) {
            EXPECT_EQ(bench.board.decode, 3U);
            return Outcome::Recovers;
        }
        const unsigned int ready = SecondsOf(LocalNow());
        EXPECT_LE(ready, sessionBegin);
        bench.board.decode = 0;  // so that the subscription is seen
        unsigned int packetsInSession = 0;
        for (unsigned int now = ready; now <= sessionBegin + 30; ++now) {
            if (now % row.period == 0 && bench.board.mapTrans == 1) {
                FakeClock::SetTime(TimeOf(now));
                packetsInSession += now > sessionBegin ? 1 : 0;
                EXPECT_EQ(bench.Receive(MapPacket(broadcast.at(now / row.period % 4))), 0);
            }
        }
        EXPECT_EQ(bench.board.mapTrans, 0U) << "the transfer is closed either way";
        if (bench.board.decode == 0) {
            EXPECT_EQ(packetsInSession, 1U) << "the one that closed it";
            EXPECT_EQ(bench.Receive(MarketMessage(17)), 1) << "the process itself goes on";
            return Outcome::Nothing;
        }
        EXPECT_EQ(packetsInSession, 0U);
        EXPECT_GT(bench.Insts().size(), 0U);
        return bench.Insts().size() == listSize ? Outcome::WholeList : Outcome::PartOfList;
    }

    StartBench bench;
};

TEST_P(LateStart, IsFoundToTheSecond) {
    const LateRow& row = GetParam();
    const unsigned int sessionBegin = row.lastNothing < 120000 ? 90000 : 210000;
    const std::array<unsigned int, 3> last = {row.lastWhole, row.lastPart, row.lastNothing};
    std::array<unsigned int, 3> found{};
    const unsigned int first = SecondsOf(sessionBegin) - 430;
    // Away from the bounds not every second of a start that resets the board: it writes a million
    // words.
    const unsigned int stride = row.tradeDate == today ? 1 : 7;
    unsigned int starts = 0;
    for (unsigned int second = first; second <= SecondsOf(sessionBegin) + 10; ++second) {
        const bool nearBound = std::any_of(last.begin(), last.end(), [second](unsigned int bound) {
            return SecondsOf(bound) <= second + 1 && second <= SecondsOf(bound) + 1;
        });
        if (!SweepsAll() && !nearBound && (slowBuild || second % stride != 0)) {
            continue;
        }
        ++starts;
        const Outcome outcome = StartAt(second, SecondsOf(sessionBegin));
        const auto kind = static_cast<std::size_t>(outcome);
        for (std::size_t later = 0; later < kind; ++later) {
            EXPECT_NE(found.at(later), 0U) << "outcomes come in their order";
        }
        if (outcome != Outcome::Recovers) {
            found.at(kind) = TimeOf(second);
        }
        // Each start for itself, not the bounds alone.
        const auto expected = std::count_if(last.begin(), last.end(), [second](unsigned int bound) {
            return second > SecondsOf(bound);
        });
        EXPECT_EQ(kind, static_cast<std::size_t>(expected)) << "start at " << TimeOf(second);
    }
    EXPECT_EQ(found, last);
    const auto next = [](unsigned int hhmmss) { return Shown(TimeOf(SecondsOf(hhmmss) + 1)); };
    std::printf(
        "late start, board %s, a packet every %u s: all learnt until %s, a part until %s, neither "
        "learnt nor recovered from %s to %s, recovered from %s (%u starts%s)\n",
        row.board, row.period, Shown(found[0]).c_str(), Shown(found[1]).c_str(),
        next(found[1]).c_str(), Shown(found[2]).c_str(), next(found[2]).c_str(), starts,
        slowBuild && !SweepsAll() ? ", reduced to those near the bounds" : "");
}

INSTANTIATE_TEST_SUITE_P(Board, LateStart, testing::ValuesIn(rows));

// What the user of such a start sees.
TEST(LateStartLines, SayThatItIsTooLate) {
    StartBench bench(StartBench::Log::On);
    bench.board.tradeDate = today;
    FakeClock::Set(today, 85958);
    bench.Start();
    EXPECT_EQ(LocalNow(), 85959U);
    EXPECT_EQ(bench.board.mapTrans, 1U);
    bench.log.Clear();
    bench.Receive(MapPacket(broadcast[0]));
    FakeClock::SetTime(90000);
    bench.Receive(MapPacket(broadcast[1]));
    FakeClock::SetTime(90001);
    bench.Receive(MapPacket(broadcast[2]));
    EXPECT_EQ(bench.board.mapTrans, 0U);
    EXPECT_EQ(bench.board.decode, 0U);
    EXPECT_EQ(
        bench.log.Lines(),
        (Lines_t{
            "INFO Write to bin :index:1,inst:AP210,",
            "INFO Write to bin :index:2,inst:CF209,",
            "INFO Call auction time has expired, totally parse 2 instrumentid.",
            "INFO Write end tag to bin.",
            "WARN Now is in trade time! Note that you should start program before each trade!",
            "INFO Fpga stop transmit inst map pkt.",
        }));
}

}  // namespace
}  // namespace velatest
