#include "traffic/ScenarioTraffic.h"

#include <memory>
#include <string>
#include <vector>

#include "boardMessages.h"
#include "nanoseconds.h"
#include "process/BoardLoop.h"
#include "tests/memory/boardFixture.h"

namespace boardtest {

namespace {

using ZceBoard::Fault;
using ZceBoard::Phase;

using Messages = std::vector<std::vector<unsigned char>>;

// A board that plays a scenario on a host clock in the test's hand, read on channel 0.
class Playing : public BoardFixture {
  protected:
    Playing() {
        for (const char* name : {"SR209", "CF301", "SR209C5000", "SPD-SR209&SR301"}) {
            m_scenario.instruments.Add(name);
        }
        m_scenario.date = 20261120;
        m_scenario.start = 85959;
        m_scenario.levels[0].rate = 300;
        m_scenario.levels[1].rate = 150;
    }

    // Makes the board, subscribes everything for channel 0 and opens it.
    void Begin() {
        m_memory = MakeBoard();
        m_board = std::make_unique<ZceBoard::CBoard>(*m_memory);
        m_traffic = std::make_unique<ZceBoard::CScenarioTraffic>(m_scenario, 20261121);
        m_loop = std::make_unique<ZceBoard::CBoardLoop>(*m_board, *m_traffic, 0);
        ZceBoard::CRegisterFile host(m_memory->Shm());
        for (const auto& instrument : m_scenario.instruments.All()) {
            const uint32_t window = instrument.table == 0 ? 0x11000 : 0x12000;
            host.WriteWord(window + 1, 1);
            host.WriteWord(window, instrument.index * 64U);
        }
        host.WriteWord(0x11, 3);
        host.WriteWord(0x12, 1);
        const ZceBoard::RingView ring = ViewOf(m_memory->Shm().a2c[0]);
        EXPECT_EQ(m_memory->Reopen(m_holder), 0);
        EXPECT_EQ(m_holder.Lock(ZceBoard::LOCK_A2C_FIRST), 0);
        m_consumer = ZceBoard::CRingConsumer(ring, OpenRing(ring, true));
        m_loop->Pass({0, m_realNs});
    }
    // Real time passes in steps of this size.
    void Pass(int64_t ns, int64_t step = MS) {
        for (const int64_t end = m_realNs + ns; m_realNs < end;) {
            m_realNs = std::min(m_realNs + step, end);
            m_loop->Pass({0, m_realNs});
            Drain();
        }
        while (m_loop->HasBacklog()) {
            m_loop->Pass({0, m_realNs});
            Drain();
        }
    }
    void Drain() {
        while (m_consumer.PollOnce([this](const unsigned char* data, uint32_t len) {
            m_messages.emplace_back(data, data + len);
        }) == 1) {}
    }
    size_t Count(uint32_t first, uint32_t last) const {
        size_t count = 0;
        for (const auto& message : m_messages) {
            count += TypeOf(message) >= first && TypeOf(message) <= last ? 1 : 0;
        }
        return count;
    }
    // Everything that a fresh board sends in two seconds.
    Messages TwoSeconds(int64_t step) {
        m_memory.reset();
        m_holder.Close();
        m_messages.clear();
        m_realNs = 77 * SECOND;
        Begin();
        Pass(2 * SECOND, step);
        return m_messages;
    }
    bool FaultIsOn(Fault kind) { return ZceBoard::CFaults(m_memory->Shm()).IsOn(kind); }

    ZceBoard::Scenario m_scenario;
    std::unique_ptr<ZceBoard::CBoardMemory> m_memory;
    std::unique_ptr<ZceBoard::CBoard> m_board;
    std::unique_ptr<ZceBoard::CScenarioTraffic> m_traffic;
    std::unique_ptr<ZceBoard::CBoardLoop> m_loop;
    ZceBoard::CBoardFile m_holder;
    ZceBoard::CRingConsumer m_consumer;
    int64_t m_realNs = 5 * SECOND;
    Messages m_messages;
};

TEST_F(Playing, TheSameScenarioGivesTheSameBytesInTheSameOrderWhateverTheMachinesPace) {
    m_scenario.levels[0].burst = 40;
    m_scenario.levels[0].burstEveryMs = 100;
    const Messages smooth = TwoSeconds(MS);
    EXPECT_GT(smooth.size(), 700U);
    EXPECT_EQ(TwoSeconds(MS), smooth);
    EXPECT_EQ(TwoSeconds(7 * MS), smooth);
    EXPECT_EQ(TwoSeconds(1500 * MS), smooth);
    m_scenario.seed = 2;
    EXPECT_NE(TwoSeconds(MS), smooth);
}

TEST_F(Playing, EachLevelHasItsRateInItsPhases) {
    m_scenario.levels[1].phases[static_cast<size_t>(Phase::Auction)] = true;
    Begin();
    Pass(SECOND - MS);  // to 08:59:59.999
    EXPECT_EQ(Count(17, 18), 0U);
    EXPECT_EQ(Count(19, 20), 149U);  // that of ms 1000 is to come
    Pass(2 * SECOND);
    EXPECT_EQ(Count(17, 18), 600U);
    EXPECT_EQ(Count(19, 20), 449U);
}

TEST_F(Playing, ABurstComesOnTopEachTimeItsIntervalHasPassed) {
    m_scenario.start = 90000;
    m_scenario.levels[0].burst = 1000;
    m_scenario.levels[0].burstEveryMs = 500;
    Begin();
    Pass(499 * MS);
    EXPECT_EQ(Count(17, 18), 149U);
    Pass(MS);
    EXPECT_EQ(Count(17, 18), 1150U);
    Pass(500 * MS);
    EXPECT_EQ(Count(17, 18), 2300U);
    EXPECT_EQ(Count(19, 20), 150U);
}

TEST_F(Playing, MessagesBearTheBoardsTimeAndItsDateGoesOnAtMidnight) {
    m_scenario.start = 235959;
    m_scenario.levels[0].phases[0] = true;
    m_scenario.day.Clear();
    Begin();
    Pass(2 * SECOND);
    ASSERT_EQ(Count(17, 18), 600U);
    const auto first = QuoteOf(m_messages.front());
    EXPECT_EQ(first.uiDate, 20261120U);
    EXPECT_EQ(first.uiTime, 235959U);
    EXPECT_EQ(first.ulTimeNs, 86399U * SECOND + 4 * MS);  // 300 a second: the first after 4 ms
    const auto last = QuoteOf(m_messages.back());
    EXPECT_EQ(last.uiDate, 20261121U);
    EXPECT_EQ(last.uiTime, 1U);
    EXPECT_EQ(ZceBoard::CRegisterFile(m_memory->Shm()).ReadWord(0x104), 1U);
}

TEST_F(Playing, TheClockRunsAtItsSpeed) {
    m_scenario.speedMilli = 2500;
    Begin();
    Pass(2 * SECOND);
    EXPECT_EQ(m_traffic->Time().hhmmss, 90004U);
    EXPECT_EQ(Count(17, 18), 4U * 300 + 1);  // from 09:00:00.000 to 09:00:04.000
}

TEST_F(Playing, TheDateOfAScenarioWithoutOneIsTodays) {
    m_scenario.date = 0;
    Begin();
    EXPECT_EQ(m_traffic->Time().date, 20261121U);
}

TEST_F(Playing, ASkippedSpanDoesNotHappen) {
    m_scenario.start = 90000;
    m_scenario.skips = {{SECOND, 3600 * SECOND}};
    Begin();
    Pass(999 * MS);
    EXPECT_EQ(m_traffic->Time().hhmmss, 90000U);
    Pass(MS);
    EXPECT_EQ(m_traffic->Time().hhmmss, 100000U);
    Pass(SECOND);
    EXPECT_EQ(m_traffic->Time().hhmmss, 100001U);
    EXPECT_EQ(Count(17, 18), 600U);
}

TEST_F(Playing, TheEndIsReachedToTheMillisecond) {
    m_scenario.lengthNs = 1500 * MS;
    Begin();
    Pass(1498 * MS);
    EXPECT_FALSE(m_loop->IsOver());
    Pass(MS);
    EXPECT_TRUE(m_loop->IsOver());
    const size_t sent = m_messages.size();
    Pass(SECOND);
    EXPECT_EQ(m_messages.size(), sent);
}

TEST_F(Playing, TheLastMillisecondIsPlayedWholeHoweverMuchIsInIt) {
    m_scenario.start = 90000;
    m_scenario.lengthNs = 1001 * MS;
    m_scenario.levels[0] = {0, 10000, 1000, {false, false, true, false}};
    m_scenario.levels[1].rate = 0;
    Begin();
    Pass(SECOND);
    EXPECT_TRUE(m_loop->IsOver());
    EXPECT_EQ(m_board->Parsed(), 10000U);
}

TEST_F(Playing, FaultsSwitchInTheOrderOfTime) {
    m_scenario.faults = {{{Fault::LinkDown, 1, ZceBoard::FAULT_ANY, 3}, SECOND, {}},
                         {{Fault::LinkDown}, 0, SECOND}};
    Begin();
    Pass(SECOND - MS);
    EXPECT_EQ(ZceBoard::CRegisterFile(m_memory->Shm()).ReadWord(0x103), 0U);
    Pass(MS);
    EXPECT_EQ(ZceBoard::CRegisterFile(m_memory->Shm()).ReadWord(0x103), 3U);
}

TEST_F(Playing, FaultsComeAndGoAtTheirTimes) {
    m_scenario.faults = {{{Fault::CountersStuck}, 0, 500 * MS}, {{Fault::ClockStuck}, SECOND, {}}};
    Begin();
    EXPECT_TRUE(FaultIsOn(Fault::CountersStuck));
    EXPECT_FALSE(FaultIsOn(Fault::ClockStuck));
    Pass(499 * MS);
    EXPECT_TRUE(FaultIsOn(Fault::CountersStuck));
    Pass(MS);
    EXPECT_FALSE(FaultIsOn(Fault::CountersStuck));
    Pass(499 * MS);
    EXPECT_FALSE(FaultIsOn(Fault::ClockStuck));
    Pass(MS);
    EXPECT_TRUE(FaultIsOn(Fault::ClockStuck));
}

TEST_F(Playing, AnAdvanceBringsAboutTheFaultsThatItPassesOverAndNotThoseThatHaveEnded) {
    m_scenario.faults = {{{Fault::CountersStuck}, SECOND, 2 * SECOND},
                         {{Fault::ClockStuck}, SECOND, {}}};
    Begin();
    EXPECT_EQ(m_traffic->AdvanceTo(91000), 0);
    Pass(MS);
    EXPECT_FALSE(FaultIsOn(Fault::CountersStuck));
    EXPECT_TRUE(FaultIsOn(Fault::ClockStuck));
    EXPECT_EQ(m_traffic->Time().hhmmss, 91000U);
    EXPECT_LE(Count(17, 20), 1U);
}

TEST_F(Playing, TheBroadcastGoesByTheScenariosPace) {
    m_scenario.pace.auctionCycleNs = 100 * MS;
    Begin();
    Pass(950 * MS);
    EXPECT_EQ(Count(2, 2), 9U);
}

TEST_F(Playing, ALateMachineFallsBehindAndSaysSo) {
    Begin();
    m_realNs += 10 * SECOND;
    m_loop->Pass({0, m_realNs});
    EXPECT_TRUE(m_loop->HasBacklog());
    EXPECT_NE(m_loop->StatusLine().find(" lag=9744ms"), std::string::npos) << m_loop->StatusLine();
    Pass(0);
    EXPECT_EQ(m_loop->StatusLine().find(" lag="), std::string::npos);
    EXPECT_EQ(Count(17, 18), 9U * 300 + 1);
}

}  // namespace

}  // namespace boardtest
