#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "exchange/BoardClock.h"
#include "traffic/Scenario.h"

namespace {

using ZceBoard::Fault;
using ZceBoard::Phase;
using ZceBoard::ReadScenario;
using ZceBoard::Scenario;

constexpr int64_t SECOND = 1'000'000'000;

// A scenario file of a test's own, and a list of instruments beside it.
class ScenarioFile : public testing::Test {
  protected:
    ScenarioFile() {
        m_dir = testing::TempDir() + "/zcescenario.XXXXXX";
        EXPECT_NE(mkdtemp(m_dir.data()), nullptr);
        std::ofstream(m_dir + "/list.txt") << "SR209\nSPD-SR209&SR301\n";
        std::ofstream(m_dir + "/bad.txt") << "SR209\nSR209\n";
    }
    ~ScenarioFile() override {
        for (const char* name : {"/s.ini", "/list.txt", "/bad.txt"}) {
            unlink((m_dir + name).c_str());
        }
        rmdir(m_dir.c_str());
    }

    bool Read(const std::string& content, Scenario& scenario) {
        std::ofstream(m_dir + "/s.ini", std::ios::trunc) << content;
        return ReadScenario(m_dir + "/s.ini", scenario, m_error);
    }
    // Why the file is refused, without its directory in front.
    std::string Refusal(const std::string& content) {
        Scenario scenario;
        EXPECT_FALSE(Read(content, scenario)) << content;
        EXPECT_EQ(m_error.substr(0, m_dir.size() + 1), m_dir + "/") << m_error;
        return m_error.substr(m_dir.size() + 1);
    }
    // The refusal of the least scenario with these lines behind it, from line 6 on.
    std::string RefusalOf(const std::string& more) { return Refusal(LEAST + more); }

    static constexpr const char* LEAST =
        "; least\n[exchange]\ninstruments = list.txt\n[clock]\nstart = 08:55:00\n";
    std::string m_dir;
    std::string m_error;
};

TEST_F(ScenarioFile, TheLeastOneHasTheUsualDayAndBothLevels) {
    Scenario scenario;
    ASSERT_TRUE(Read(LEAST, scenario)) << m_error;
    EXPECT_EQ(scenario.buses, std::vector<uint32_t>{0});
    EXPECT_EQ(scenario.instruments.All().size(), 2U);
    EXPECT_EQ(scenario.seed, 1U);
    EXPECT_EQ(scenario.date, 0U);
    EXPECT_EQ(scenario.start, 85500U);
    EXPECT_EQ(scenario.lengthNs, 0);
    EXPECT_EQ(scenario.speedMilli, 1000);
    EXPECT_EQ(scenario.clockFile, "");
    EXPECT_EQ(scenario.day.At(85959), Phase::Auction);
    EXPECT_EQ(scenario.day.At(90000), Phase::Trading);
    EXPECT_EQ(scenario.pace.auctionCycleNs, 4 * SECOND);
    EXPECT_EQ(scenario.pace.tradingCycleNs, 60 * SECOND);
    for (const ZceBoard::LevelPlan& level : scenario.levels) {
        EXPECT_EQ(level.rate, 10000U);
        EXPECT_EQ(level.burst, 0U);
        EXPECT_EQ(level.phases, (std::array<bool, 4>{false, false, true, false}));
    }
    EXPECT_TRUE(scenario.faults.empty());
}

TEST_F(ScenarioFile, EveryKeyIsTaken) {
    Scenario scenario;
    ASSERT_TRUE(
        Read("[board]\nbus = 2, 0\n"
             "[exchange]\nproducts = all\nseed = 18446744073709551615\n"
             "[clock]\ndate = 20261120\nstart = 20:55:00\nend = 00:10:00\nspeed = 2.5\n"
             "skip = 20:56:00-20:59:00, 23:00:00-00:05:00\nfile = clock.rc\n"
             "[day]\nauction = 20:50:00-21:00:00\n"
             "trading = 21:00:00-22:00:00,22:30:00-24:00:00\nbreak=22:00:00-22:30:00\n"
             "[broadcast]\nauction_cycle = 0.5\ntrading_cycle = 10\n"
             "[level1]\nrate = 7\nburst = 5\nburst_every = 0.25\nphases = auction, closed\n"
             "[level2]\nrate = 0\n"
             "[fault1]\nfault = read-fails register=0x11 every=3\nat = start\n"
             "until = 20:55:01\n"
             "[faultB]\nfault = crash\nat = 00:01:00\n",
             scenario))
        << m_error;
    EXPECT_EQ(scenario.buses, (std::vector<uint32_t>{2, 0}));
    EXPECT_EQ(scenario.instruments.All().size(), 4467U);
    EXPECT_EQ(scenario.seed, 18446744073709551615U);
    EXPECT_EQ(scenario.date, 20261120U);
    EXPECT_EQ(scenario.lengthNs, (3 * 3600 + 15 * 60) * SECOND);
    EXPECT_EQ(scenario.speedMilli, 2500);
    ASSERT_EQ(scenario.skips.size(), 2U);
    EXPECT_EQ(scenario.skips[0].fromNs, 60 * SECOND);
    EXPECT_EQ(scenario.skips[0].toNs, 240 * SECOND);
    EXPECT_EQ(scenario.skips[1].toNs, (3 * 3600 + 10 * 60) * SECOND);
    EXPECT_EQ(scenario.clockFile, "clock.rc");
    EXPECT_EQ(scenario.day.At(83000), Phase::Closed);
    EXPECT_EQ(scenario.day.At(205000), Phase::Auction);
    EXPECT_EQ(scenario.day.At(220000), Phase::Break);
    EXPECT_EQ(scenario.day.At(235959), Phase::Trading);
    EXPECT_EQ(scenario.pace.auctionCycleNs, SECOND / 2);
    EXPECT_EQ(scenario.levels[0].rate, 7U);
    EXPECT_EQ(scenario.levels[0].burst, 5U);
    EXPECT_EQ(scenario.levels[0].burstEveryMs, 250U);
    EXPECT_EQ(scenario.levels[0].phases, (std::array<bool, 4>{true, true, false, false}));
    EXPECT_EQ(scenario.levels[1].rate, 0U);
    ASSERT_EQ(scenario.faults.size(), 2U);
    EXPECT_EQ(scenario.faults[0].setting.kind, Fault::ReadFails);
    EXPECT_EQ(scenario.faults[0].setting.target, 0x11U);
    EXPECT_EQ(scenario.faults[0].setting.every, 3U);
    EXPECT_EQ(scenario.faults[0].atNs, 0);
    EXPECT_EQ(scenario.faults[0].untilNs, SECOND);
    EXPECT_EQ(scenario.faults[1].setting.kind, Fault::Crash);
    EXPECT_EQ(scenario.faults[1].atNs, (3 * 3600 + 6 * 60) * SECOND);
    EXPECT_FALSE(scenario.faults[1].untilNs);
}

TEST_F(ScenarioFile, ABadValueIsNamedWithFileLineSectionAndKey) {
    EXPECT_EQ(RefusalOf("[board]\nbus = 0, 10\n"),
              "s.ini:7: [board] bus = 0, 10: a list of bus indices from 0 to 9 is needed");
    EXPECT_EQ(RefusalOf("[board]\nbus = 1,1\n"),
              "s.ini:7: [board] bus = 1,1: bus 1 is there twice");
    EXPECT_EQ(RefusalOf("[board]\nbus =\n"),
              "s.ini:7: [board] bus = : a list of bus indices from 0 to 9 is needed");
    EXPECT_EQ(RefusalOf("date = 20260230\n"),
              "s.ini:6: [clock] date = 20260230: a date yyyymmdd is needed");
    EXPECT_EQ(RefusalOf("date = 22000101\n"),
              "s.ini:6: [clock] date = 22000101: a date yyyymmdd is needed");
    EXPECT_EQ(RefusalOf("end = 24:00:00\n"),
              "s.ini:6: [clock] end = 24:00:00: a time of day hh:mm:ss is needed");
    EXPECT_EQ(RefusalOf("speed = 0\n"),
              "s.ini:6: [clock] speed = 0: a number from 0.001 to 1000 is needed");
    EXPECT_EQ(RefusalOf("speed = 2x\n"),
              "s.ini:6: [clock] speed = 2x: a number from 0.001 to 1000 is needed");
    EXPECT_EQ(RefusalOf("skip = 09:00:00\n"),
              "s.ini:6: [clock] skip = 09:00:00: \"09:00:00\" is no span of times "
              "hh:mm:ss-hh:mm:ss");
    EXPECT_EQ(RefusalOf("skip = 09:00:00-08:56:00\n"),
              "s.ini:6: [clock] skip = 09:00:00-08:56:00: 09:00:00-08:56:00 is empty");
    EXPECT_EQ(RefusalOf("[day]\ntrading = 09:00:00-10:00:00, 9-10\n"),
              "s.ini:7: [day] trading = 09:00:00-10:00:00, 9-10: \"9-10\" is no span of times "
              "hh:mm:ss-hh:mm:ss");
    EXPECT_EQ(RefusalOf("[day]\nauction = 08:00:00-09:00:01\ntrading = 09:00:00-10:00:00\n"),
              "s.ini:8: [day] trading = 09:00:00-10:00:00: 09:00:00-10:00:00 is empty, runs over "
              "midnight or meets another span");
    EXPECT_EQ(RefusalOf("[broadcast]\nauction_cycle = 0\n"),
              "s.ini:7: [broadcast] auction_cycle = 0: a number from 0.01 to 3600 is needed");
    EXPECT_EQ(RefusalOf("[level2]\nrate = -1\n"),
              "s.ini:7: [level2] rate = -1: a whole number from 0 to 10000000 is needed");
    EXPECT_EQ(
        RefusalOf("[level1]\nphases = open\n"),
        "s.ini:7: [level1] phases = open: \"open\" is none of auction, trading, break, closed");
    EXPECT_EQ(RefusalOf("[level1]\nburst = 5\n"), "s.ini:6: [level1]: burst_every is missing");
    EXPECT_EQ(RefusalOf("[level1]\nburst_every = 5\n"), "s.ini:6: [level1]: burst is missing");
    EXPECT_EQ(RefusalOf("[feeds]\nL1_PORT = 1\n"),
              "s.ini:7: [feeds] l1_port: there is no such address of a feed");
    EXPECT_EQ(RefusalOf("[fault1]\nat = start\n"), "s.ini:6: [fault1]: fault is missing");
    EXPECT_EQ(RefusalOf("[fault1]\nfault = crash\nat = soon\n"),
              "s.ini:8: [fault1] at = soon: \"start\" or a time of day hh:mm:ss is needed");
    EXPECT_EQ(RefusalOf("end = 09:00:00\n[fault1]\nfault = crash\nat = 09:00:00\n"),
              "s.ini:9: [fault1] at = 09:00:00: the first such time after the start is not before "
              "the end");
    EXPECT_EQ(RefusalOf("[fault1]\nfault = crash\nat = 09:00:00\nuntil = 09:00:00\n"),
              "s.ini:9: [fault1] until = 09:00:00: this is not after the fault's beginning");
    EXPECT_EQ(RefusalOf("[fault1]\nfault = explode\n").substr(0, 35),
              "s.ini:7: [fault1] fault = explode: ");
}

TEST_F(ScenarioFile, OnlyOneFaultOfAKindIsThereAtATime) {
    EXPECT_EQ(RefusalOf("[fault1]\nfault = link-down\nat = start\nuntil = 08:55:10\n"
                        "[fault2]\nfault = link-down value=3\nat = 08:55:09\n"),
              "s.ini:10: [fault2]: another link-down of this file is on at the time");
    Scenario scenario;
    EXPECT_TRUE(Read(std::string(LEAST) +
                         "[fault1]\nfault = link-down\nat = start\nuntil = 08:55:10\n"
                         "[fault2]\nfault = link-down value=3\nat = 08:55:10\n",
                     scenario))
        << m_error;
}

TEST_F(ScenarioFile, WhatTheParserWouldPassOverIsRefused) {
    EXPECT_EQ(RefusalOf("[fault: link]\nfault = crash\n"),
              "s.ini:6: [fault: link]: there is no such section");
    EXPECT_EQ(Refusal(std::string("bus = 7\n") + LEAST),
              "s.ini:1: bus = 7: a key stands in front of any section");
    EXPECT_EQ(RefusalOf("[feeds]\nL5-DSTIP = 239.1.1.1\n"),
              "s.ini:7: [feeds] l5-dstip: there is no such address of a feed");
    const std::string pipe = m_dir + "/s.ini";
    unlink(pipe.c_str());
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Scenario scenario;
    EXPECT_FALSE(ReadScenario(pipe, scenario, m_error));
    EXPECT_EQ(m_error, pipe + ": not a regular file");
}

TEST_F(ScenarioFile, ASemicolonBetweenTheItemsOfAListIsNotTakenForAComment) {
    const std::string why = ": ; begins a comment: commas go between the items";
    EXPECT_EQ(RefusalOf("[level1]\nphases = auction; trading\n"),
              "s.ini:7: [level1] phases = auction; trading" + why);
    EXPECT_EQ(RefusalOf("[level2]\nphases = auction, break ;trading;closed\n"),
              "s.ini:7: [level2] phases = auction, break; trading;closed" + why);
    EXPECT_EQ(RefusalOf("[board]\nbus = 0;1\n"), "s.ini:7: [board] bus = 0; 1" + why);
    EXPECT_EQ(RefusalOf("skip = 09:00:00-09:05:00; 09:10:00-09:15:00\n"),
              "s.ini:6: [clock] skip = 09:00:00-09:05:00; 09:10:00-09:15:00" + why);
    EXPECT_EQ(RefusalOf("[day]\nbreak = 10:15:00-10:30:00 # 11:30:00-24:00:00\n"),
              "s.ini:7: [day] break = 10:15:00-10:30:00# 11:30:00-24:00:00: # begins a comment: "
              "commas go between the items");
    Scenario scenario;
    EXPECT_TRUE(Read(std::string(LEAST) +
                         "skip = 09:00:00-09:05:00 ; 09:10:00 comes later\n"
                         "[board]\nbus = 1 ; 2 boards are too many\n"
                         "[day]\nauction = 08:55:00-09:00:00 ; - \n"
                         "[level1]\nrate = 5 ; 6\nphases = auction ; trading comes later\n"
                         "[level2]\nphases = auction ;\n",
                     scenario))
        << m_error;
    EXPECT_EQ(scenario.levels[0].rate, 5U);
}

TEST_F(ScenarioFile, AByteOrderMarkIsNamed) {
    EXPECT_EQ(
        Refusal("\xEF\xBB\xBF" + std::string(LEAST)),
        "s.ini:1: the file begins with the byte order mark of UTF-8: save it as UTF-8 without "
        "one");
    EXPECT_EQ(
        Refusal(std::string("\xFF\xFE[\0e\0", 6)),
        "s.ini:1: the file begins with the byte order mark of UTF-16: save it as UTF-8 without "
        "one");
    EXPECT_EQ(
        Refusal("\xFE\xFF"),
        "s.ini:1: the file begins with the byte order mark of UTF-16: save it as UTF-8 without "
        "one");
}

TEST_F(ScenarioFile, TheCommandLinesClockTakesThePlaceOfTheFiles) {
    std::ofstream(m_dir + "/s.ini")
        << "[exchange]\nproducts = all\n[clock]\ndate = 20261120\nend = 09:00:10\nspeed = 4\n"
           "skip = 08:59:00-08:59:30\n";
    Scenario scenario;
    ASSERT_TRUE(ReadScenario(m_dir + "/s.ini", scenario, m_error, {20261121, 85850, 2500}))
        << m_error;
    EXPECT_EQ(scenario.date, 20261121U);
    EXPECT_EQ(scenario.start, 85850U);
    EXPECT_EQ(scenario.speedMilli, 2500);
    EXPECT_EQ(scenario.lengthNs, 80 * SECOND);
    ASSERT_EQ(scenario.skips.size(), 1U);
    EXPECT_EQ(scenario.skips[0].fromNs, 10 * SECOND);
    ASSERT_TRUE(ReadScenario(m_dir + "/s.ini", scenario, m_error, {{}, 85850, {}})) << m_error;
    EXPECT_EQ(scenario.date, 20261120U);
    EXPECT_EQ(scenario.speedMilli, 4000);
}

TEST_F(ScenarioFile, WhatIsNotKnownOrMissingOrTwiceIsNamed) {
    EXPECT_EQ(RefusalOf("[levels]\nrate = 1\n"), "s.ini:6: [levels]: there is no such section");
    EXPECT_EQ(RefusalOf("begin = 09:00:00\n"),
              "s.ini:6: [clock] begin: there is no such key; there are date, start, end, speed, "
              "skip, file");
    EXPECT_EQ(RefusalOf("start = 09:00:00\n"),
              "s.ini:6: [clock] start is there twice, first in line 5");
    EXPECT_EQ(Refusal("[exchange]\nproducts = all\n"), "s.ini: [clock]: start is missing");
    EXPECT_EQ(Refusal("[exchange]\nproducts = all\n[clock]\nend = 09:00:00\n"),
              "s.ini:3: [clock]: start is missing");
    EXPECT_EQ(Refusal("[clock]\nstart = 09:00:00\n"),
              "s.ini: [exchange]: one of products and instruments is needed");
    EXPECT_EQ(Refusal("[exchange]\nproducts = all\ninstruments = list.txt\n"),
              "s.ini: [exchange]: one of products and instruments is needed");
    EXPECT_EQ(Refusal("[exchange]\nproducts = some\n"),
              "s.ini:2: [exchange] products = some: only \"all\" is known");
    EXPECT_EQ(Refusal("[exchange]\ninstruments = bad.txt\n"),
              "s.ini:2: [exchange] instruments = bad.txt: " + m_dir +
                  "/bad.txt:2: \"SR209\" is there twice");
    EXPECT_EQ(Refusal("[exchange]\ninstruments = none.txt\n"),
              "s.ini:2: [exchange] instruments = none.txt: " + m_dir +
                  "/none.txt: No such file or directory");
    EXPECT_EQ(Refusal("[exchange]\nno line of it\n"), "s.ini:2: syntax error: no line of it");
    Scenario scenario;
    EXPECT_FALSE(ReadScenario(m_dir, scenario, m_error));
    EXPECT_EQ(m_error, m_dir + ": Is a directory");
}

}  // namespace
