// A sample of the minutes of a day, and of the seconds at which its phases change: a start at each,
// as a whole process on the software board, and what its channels are given in the session that
// follows. The branch, the waits and the outcome of each stand in the table.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <thread>

#include "startDay.h"

using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

// The board as the start finds it.
enum class Board {
    Fresh,  // another day's date, nothing heard
    Ran,    // today's date, the list heard in the auction, decoding
    Idle    // the same, but not decoding
};
enum class Cache { None, Good };
// What becomes of the start.
enum class End {
    Learns,      // waits for the next auction, and learns the list in it
    LearnsPart,  // its first packet alone: the auction is over at the second one
    Misses,      // too late to learn, too early to recover: nothing is subscribed
    FromCache,
    FromTables,
    FindsNothing  // the tables, but the exchange was silent while it waited
};

struct Row {
    unsigned int time;  // of the start
    Board board;
    Cache cache;
    bool resets;
    End end;
    unsigned int seconds;  // that the start takes: 1 for the core, 2 looking at the counters, 1
                           // reset, and the wait
};

constexpr Row rows[] = {
    // The night, until the board may be kept: each start resets it.
    {0, Board::Ran, Cache::None, true, End::Learns, 2},
    {1500, Board::Fresh, Cache::None, true, End::Learns, 2},
    {31700, Board::Ran, Cache::Good, true, End::Learns, 2},
    {75900, Board::Ran, Cache::None, true, End::Learns, 2},
    {75959, Board::Ran, Cache::None, true, End::Learns, 2},
    {80000, Board::Ran, Cache::None, false, End::Learns, 1},
    // Before and in the auction of the day.
    {82000, Board::Fresh, Cache::None, true, End::Learns, 2},
    {82959, Board::Ran, Cache::Good, false, End::Learns, 1},
    {83000, Board::Fresh, Cache::Good, true, End::Learns, 2},
    {84200, Board::Ran, Cache::None, false, End::Learns, 1},
    {85300, Board::Fresh, Cache::None, true, End::Learns, 2},
    {85430, Board::Idle, Cache::None, false, End::Learns, 1},
    // Its end: what comes before the second packet after 08:55:10 is all that is learnt.
    {85520, Board::Ran, Cache::None, false, End::LearnsPart, 1},
    {85700, Board::Fresh, Cache::None, true, End::LearnsPart, 2},
    {85930, Board::Idle, Cache::Good, false, End::LearnsPart, 1},
    {85958, Board::Ran, Cache::Good, false, End::Misses, 1},
    {85957, Board::Fresh, Cache::None, true, End::Misses, 2},
    {85959, Board::Idle, Cache::None, false, End::Misses, 1},
    // The morning. A start at 08:59:59 comes out in trading time if it looks at the counters or
    // resets the board.
    {85959, Board::Ran, Cache::None, false, End::FromTables, 3},
    {85959, Board::Fresh, Cache::None, true, End::FromTables, 242},
    {90000, Board::Ran, Cache::Good, false, End::FromCache, 3},
    {90000, Board::Idle, Cache::None, false, End::FromTables, 1},
    {90001, Board::Fresh, Cache::Good, true, End::FromCache, 122},
    {91700, Board::Ran, Cache::None, false, End::FromTables, 3},
    {94500, Board::Idle, Cache::Good, false, End::FromCache, 1},
    {100800, Board::Fresh, Cache::None, true, End::FromTables, 242},
    {101449, Board::Ran, Cache::None, false, End::FromTables, 3},
    // The break of the morning.
    {101450, Board::Ran, Cache::None, false, End::FromTables, 1},
    {101600, Board::Fresh, Cache::None, true, End::FromTables, 1202},
    {102300, Board::Ran, Cache::Good, false, End::FromCache, 1},
    {102900, Board::Fresh, Cache::Good, true, End::FromCache, 122},
    {102959, Board::Fresh, Cache::None, true, End::FromTables, 242},
    {103000, Board::Ran, Cache::None, false, End::FromTables, 3},
    {110500, Board::Ran, Cache::Good, false, End::FromCache, 3},
    {112000, Board::Fresh, Cache::None, true, End::FromTables, 242},
    // A look at the counters at 11:30:00 finds them standing, and the board is reset. After that,
    // lunch counts as trading time for the host: a list that is there is found.
    {112956, Board::Ran, Cache::Good, false, End::FromCache, 3},
    {112959, Board::Ran, Cache::Good, true, End::FromCache, 124},
    {112959, Board::Ran, Cache::None, true, End::FindsNothing, 244},
    {113000, Board::Ran, Cache::None, false, End::FromTables, 1},
    {121500, Board::Ran, Cache::None, false, End::FromTables, 1},
    {121500, Board::Fresh, Cache::Good, true, End::FromCache, 122},
    {124500, Board::Fresh, Cache::None, true, End::FindsNothing, 242},
    {132958, Board::Idle, Cache::None, false, End::FromTables, 1},
    // The afternoon.
    {133000, Board::Ran, Cache::Good, false, End::FromCache, 3},
    {141500, Board::Ran, Cache::None, false, End::FromTables, 3},
    {144900, Board::Fresh, Cache::None, true, End::FromTables, 242},
    {145956, Board::Ran, Cache::None, false, End::FromTables, 3},
    // From 15:00:00 on a start waits for the auction of the night.
    {145959, Board::Idle, Cache::Good, false, End::Learns, 1},
    {150100, Board::Ran, Cache::Good, true, End::Learns, 4},
    {153000, Board::Idle, Cache::None, false, End::Learns, 1},
    {155957, Board::Ran, Cache::None, true, End::Learns, 4},
    {160100, Board::Ran, Cache::None, true, End::Learns, 2},
    {183000, Board::Fresh, Cache::None, true, End::Learns, 2},
    {201459, Board::Ran, Cache::None, true, End::Learns, 2},
    {201500, Board::Ran, Cache::None, false, End::Learns, 1},
    {203000, Board::Ran, Cache::Good, false, End::Learns, 1},
    {204500, Board::Fresh, Cache::None, true, End::Learns, 2},
    {205430, Board::Idle, Cache::None, false, End::Learns, 1},
    {205700, Board::Ran, Cache::Good, false, End::LearnsPart, 1},
    {205957, Board::Fresh, Cache::Good, true, End::Misses, 2},
    {205959, Board::Idle, Cache::None, false, End::Misses, 1},
    // The night session.
    {205959, Board::Ran, Cache::Good, false, End::FromCache, 3},
    {210000, Board::Fresh, Cache::None, true, End::FromTables, 242},
    {210001, Board::Ran, Cache::None, false, End::FromTables, 3},
    {220700, Board::Ran, Cache::Good, false, End::FromCache, 3},
    {225500, Board::Fresh, Cache::None, true, End::FromTables, 242},
    {232956, Board::Ran, Cache::None, false, End::FromTables, 3},
    // After it a start waits for the auction of the next day.
    {232959, Board::Idle, Cache::None, true, End::Learns, 2},
    {233100, Board::Ran, Cache::Good, true, End::Learns, 2},
    {235958, Board::Fresh, Cache::None, true, End::Learns, 2},
};

constexpr unsigned int shards = 8;
constexpr unsigned int noon = 120000;
constexpr unsigned int afternoonEnd = 150000;
constexpr const char* masterStreamOpen = "Init dma channel :CUSTOM_CHAN0_DATA success.";

class StartSample : public StartDay, public testing::WithParamInterface<unsigned int> {
  protected:
    void Try(const Row& row) {
        const std::string name = std::to_string(row.time) + "-" + std::to_string(m_tried++);
        SCOPED_TRACE(name);
        Prepare(row, name);
        ASSERT_FALSE(HasFatalFailure());
        m_clock.Set(today, row.time);
        auto master = Start(name);
        ASSERT_TRUE(master->WaitFor(masterStreamOpen)) << master->Output();
        EXPECT_EQ(m_clock.TimeOfDay(), TimeOfSeconds(DaySeconds(row.time) + row.seconds));
        ExpectBranch(row, master->Output());
        const bool night = row.time > noon;
        switch (row.end) {
            case End::Learns:
                LearnsInTheNextAuction(row, *master, name);
                break;
            case End::LearnsPart:
                LearnsAPart(*master, name);
                break;
            case End::Misses:
                Misses(*master, night ? 210130 : 90130);
                break;
            case End::FindsNothing:
                EXPECT_THAT(master->Output(), HasSubstr("All instrument count is zero.\n"));
                ExpectNothing(*master);
                break;
            default:
                ExpectDelivered(*master, name, m_listed);
                break;
        }
    }

    void Prepare(const Row& row, const std::string& name) {
        ResetBoard();
        if (row.board != Board::Fresh) {
            LetBoardLearn(today, row.time < 203000 ? 83100 : 203100);
        }
        if (row.board == Board::Idle) {
            m_access->Write(0x11, 0);
        }
        Where(name);
        if (row.cache == Cache::Good) {
            WriteFile(Path(name) + "/bin",
                      CacheFile(m_listed, today, row.time < afternoonEnd ? 85511 : 205511));
        }
    }

    static void ExpectBranch(const Row& row, const std::string& output) {
        const auto said = [&output](const char* text) { return CountIn(output, text); };
        const bool learns =
            row.end == End::Learns || row.end == End::LearnsPart || row.end == End::Misses;
        EXPECT_EQ(said("Reset and Clear fpga table over.\n"), row.resets ? 1U : 0U);
        EXPECT_EQ(said("Fpga start transmit inst map pkt.\n"), learns ? 1U : 0U);
        EXPECT_EQ(said("Now begin recover all inst\n"), learns ? 0U : 1U);
        EXPECT_EQ(said("Get inst from bin success\n"), row.end == End::FromCache ? 1U : 0U);
        EXPECT_EQ(said("New round, fetch from fpga, inst count:54.\n"),
                  row.end == End::FromTables ? 1U : 0U);
        EXPECT_EQ(said("Now Fpga start trans subscribe result! write 0x11 value:0x3.\n"),
                  learns ? 0U : 1U);
    }

    // The next auction is the one of the day until 08:55, of the night until 20:55, and then of the
    // day after. What the start does until then is nothing: the clock is moved on.
    void LearnsInTheNextAuction(const Row& row, Process& master, const std::string& name) {
        const bool tonight = row.time >= 90000 && row.time < 205500;
        const unsigned int date = row.time < 205500 ? today : today + 1;
        const unsigned int auction = tonight ? 205400 : 85400;
        if (m_clock.TimeOfDay() < auction || date != today) {
            m_clock.Set(date, auction);
        }
        LearnThrough(master, name, date, tonight);
        ASSERT_FALSE(HasFatalFailure());
        EXPECT_EQ(m_clock.Date(), date);
        m_clock.Set(date, tonight ? 210005 : 90005);
        ExpectDelivered(master, name, m_listed);
    }

    // A packet of the broadcast has some forty of the instruments; the selection is among these.
    void LearnsAPart(Process& master, const std::string& name) {
        m_clock.Run(2);
        ASSERT_TRUE(master.WaitFor("All channel subs over.")) << master.Output();
        m_clock.Run(0);
        const std::vector<Listed> learnt = InCache(Path(name) + "/bin");
        EXPECT_GT(learnt.size(), 10U);
        EXPECT_LT(learnt.size(), m_listed.size());
        EXPECT_THAT(master.Output(), HasSubstr("totally parse " + std::to_string(learnt.size()) +
                                               " instrumentid.\n"));
        ExpectDelivered(master, name, learnt);
    }

    // The clock goes through the session's first second; the packet that comes in it only closes
    // the transfer, and nothing that follows opens it again.
    void Misses(Process& master, unsigned int later) {
        m_clock.Run(2);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        m_clock.Set(today, later);
        ASSERT_TRUE(master.WaitFor("Fpga stop transmit inst map pkt.")) << master.Output();
        m_clock.Set(today, later + 200);
        EXPECT_THAT(master.Output(), HasSubstr("Now is in trade time! Note that you should start "
                                               "program before each trade!\n"));
        EXPECT_THAT(master.Output(), Not(HasSubstr("All channel subs over.")));
        EXPECT_EQ(m_access->Read(0x12), 0U);
        ExpectNothing(master);
    }

    unsigned int m_tried = 0;
};

TEST_P(StartSample, EndsAsTheTableSays) {
    const auto begun = std::chrono::steady_clock::now();
    unsigned int ends[6] = {};
    unsigned int withReset = 0;
    unsigned int seconds = 0;
    for (std::size_t row = GetParam(); row < std::size(rows); row += shards) {
        Try(rows[row]);
        ASSERT_FALSE(HasFatalFailure()) << "start at " << rows[row].time;
        ++ends[static_cast<std::size_t>(rows[row].end)];
        withReset += rows[row].resets ? 1 : 0;
        seconds += rows[row].seconds;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
    std::printf(
        "start sample %u of %u: %u starts, %u resets; %u learnt all, %u a part, %u nothing; %u "
        "recovered from the cache file, %u from the tables, %u found these empty; %u s of starting "
        "and waiting in %.1f s\n",
        GetParam() + 1, shards, m_tried, withReset, ends[0], ends[1], ends[2], ends[3], ends[4],
        ends[5], seconds, took.count());
}

INSTANTIATE_TEST_SUITE_P(Shard, StartSample, testing::Range(0U, shards));

TEST(StartSampleTable, HasAMinuteOfEveryKind) {
    unsigned int minutes = 0;
    bool ends[6] = {};
    for (const Row& row : rows) {
        ends[static_cast<std::size_t>(row.end)] = true;
        minutes += &row == rows || row.time / 100 != (&row - 1)->time / 100 ? 1 : 0;
    }
    EXPECT_GE(minutes, 48U);
    EXPECT_TRUE(std::all_of(std::begin(ends), std::end(ends), [](bool one) { return one; }));
    std::printf("start sample: %zu starts, at %u different minutes\n", std::size(rows), minutes);
}

}  // namespace

}  // namespace velatest
