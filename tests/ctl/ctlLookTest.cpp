#include <gmock/gmock.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ctl/ChannelInstruments.h"
#include "ctlFixture.h"
#include "memory/FaultText.h"
#include "memory/Faults.h"

namespace {

using nlohmann::json;
using ZceBoard::CRegisterFile;
using ZceBoard::Fault;

class CtlLook : public boardtest::CtlFixture {
  protected:
    // A board in the middle of its work, every word another.
    CtlLook() {
        ZceBoard::BoardStats& stats = Shm().stats;
        stats.date = 20261120;
        stats.hhmmss = 90501;
        stats.millisecond = 42;
        stats.phase = 2;
        stats.paused = 1;
        stats.source = 1;
        stats.speedMilli = 2500;
        stats.instruments[0] = 30;
        stats.instruments[1] = 4;
        stats.feeds[0] = 1;
        stats.feeds[1] = 3;
        stats.parsed = 12345678901;
        stats.requests = 17;
        Shm().header.boardResets = 5;
        Shm().header.coreResets = 6;
        Shm().header.ignoredTableWrites = 7;
        m_registers.Poke(0x11, 2);
        m_registers.Poke(0x12, 1);
        for (uint32_t k = 0; k < 4; ++k) {
            m_registers.Poke(0x200b + k, 100 + k);
            m_registers.Poke(0x210b + k, 200 + k);
        }
        Name(0, 0, "SR209", 0x9);
        Name(0, 1, "CF301", 0);
        Name(0, 4095, "SR209C5000", 0x8000);
        Name(1, 2, "SPD-SR209&SR301", 0x8);
        SetChannel(0, 1, 2, 1000);
        SetChannel(3, 0, 1, 3000);
        Shm().a2c[3].control.backPressure = 34;
        Shm().a2c[3].control.fifoErrors = 35;
    }

    void Name(uint32_t table, uint32_t entry, const std::string& name, uint32_t mask) {
        m_registers.StoreName(table, entry, name);
        Shm().tables[table][size_t{entry} * 64] = mask;
    }

    void SetChannel(size_t number, uint32_t open, uint32_t openings, uint64_t first) {
        ZceBoard::ChannelStats& stats = Shm().stats.channels[number];
        stats.open = open;
        stats.openings = openings;
        for (size_t k = 0; k < 5; ++k) {
            stats.sent[k] = first + k;
        }
        stats.other = first + 5;
        stats.dropped = first + 6;
    }

    CRegisterFile m_registers{Shm()};
};

TEST_F(CtlLook, StatusTellsHowTheBoardStands) {
    EXPECT_EQ(Said({"status"}),
              "board         bus 0, process 4711\n"
              "clock         2026-11-20 09:05:01.042, trading, paused, speed 2.5\n"
              "traffic       scenario\n"
              "instruments   single-leg 30 (learnt 3, subscribed 2), combinations 4 (learnt 1, "
              "subscribed 1)\n"
              "switch        0x2 (L1 on, L5 off)\n"
              "map transmit  on\n"
              "link          0xf (all connected)\n"
              "feeds         L5 ok, L1 wrong\n"
              "parsed        12345678901\n"
              "requests      17\n"
              "resets        board 5, core 6\n"
              "faults        none\n"
              "\n"
              "channel  state   openings  type 2  type 17  type 18  type 19  type 20  other  "
              "dropped  instruments\n"
              "      0  open           2    1000     1001     1002     1003     1004   1005     "
              "1006            1\n"
              "      3  closed         1    3000     3001     3002     3003     3004   3005     "
              "3006            2\n");
}

TEST_F(CtlLook, StatusNamesFaultsAndALinkThatIsDownAsHostsReadIt) {
    ZceBoard::FaultSetting setting{};
    std::string error;
    ASSERT_TRUE(ZceBoard::ParseFault("link-down value=6", setting, error)) << error;
    ZceBoard::CFaults(Shm()).Set(setting);
    m_registers.Poke(0x10, 1);
    const std::string text = Said({"status"});
    EXPECT_THAT(text, testing::HasSubstr("link          0x6 (not connected: 0, 3)\n"));
    EXPECT_THAT(text, testing::HasSubstr("faults        link-down value=6\n"));
    EXPECT_THAT(text, testing::HasSubstr("switch        0x2 (L1 on, L5 off), held in reset\n"));
}

TEST_F(CtlLook, AStatusOfABoardWhoseChannelsWereNeverOpenSaysSo) {
    Shm().stats.channels[0].openings = 0;
    Shm().stats.channels[3].openings = 0;
    EXPECT_THAT(Said({"status"}), testing::EndsWith("\nno channel was ever open\n"));
    EXPECT_EQ(json::parse(Said({"status", "--json"}))["channels"], json::array());
}

TEST_F(CtlLook, WordsThatNoBoardWritesAreShownAsSuch) {
    Shm().stats.phase = 4;
    Shm().stats.source = 4;
    Shm().stats.feeds[0] = 4;
    const std::string text = Said({"status"});
    EXPECT_THAT(text, testing::HasSubstr("09:05:01.042, ?, paused"));
    EXPECT_THAT(text, testing::HasSubstr("traffic       ?\n"));
    EXPECT_THAT(text, testing::HasSubstr("feeds         L5 ?, L1 wrong\n"));
}

constexpr const char* channelsJson = R"([
    {"channel": 0, "open": true, "openings": 2, "type2": 1000, "type17": 1001, "type18": 1002,
     "type19": 1003, "type20": 1004, "other": 1005, "total": 4010, "dropped": 1006,
     "subscribed": 1, "back_pressure": 0, "fifo_errors": 0},
    {"channel": 3, "open": false, "openings": 1, "type2": 3000, "type17": 3001, "type18": 3002,
     "type19": 3003, "type20": 3004, "other": 3005, "total": 12010, "dropped": 3006,
     "subscribed": 2, "back_pressure": 34, "fifo_errors": 35}])";

TEST_F(CtlLook, StatusForProgramsHasEveryWordUnderItsKey) {
    ZceBoard::FaultSetting setting{};
    std::string error;
    ASSERT_TRUE(ZceBoard::ParseFault("read-fails every=3 limit=9", setting, error)) << error;
    ZceBoard::CFaults faults(Shm());
    faults.Set(setting);
    for (int k = 0; k < 4; ++k) {
        faults.Strikes(Fault::ReadFails);
    }
    json expected = json::parse(R"({
        "bus": 0, "date": "2026-11-20", "time": "09:05:01.042", "phase": "trading",
        "paused": true, "speed": 2.5, "pid": 4711, "source": "scenario",
        "instruments": {"single": {"exchange": 30, "learnt": 3, "subscribed": 2},
                        "combination": {"exchange": 4, "learnt": 1, "subscribed": 1}},
        "switch": {"word": 2, "L1": true, "L5": false},
        "map_transmit": true, "held_in_reset": false, "link": 15,
        "feeds": {"L5": "ok", "L1": "wrong"},
        "parsed": 12345678901, "requests": 17, "resets": {"board": 5, "core": 6},
        "faults": [{"kind": "read-fails", "register": null, "every": 3, "limit": 9,
                    "occasions": 4, "strikes": 1}]})");
    expected["channels"] = json::parse(channelsJson);
    EXPECT_EQ(json::parse(Said({"--json", "status"})), expected);
}

TEST_F(CtlLook, CountersTellChannelsAndParseCounters) {
    EXPECT_EQ(Said({"counters"}),
              "channel  state   openings  type 2  type 17  type 18  type 19  type 20  other  "
              "dropped  back pressure  FIFO errors\n"
              "      0  open           2    1000     1001     1002     1003     1004   1005     "
              "1006              0            0\n"
              "      3  closed         1    3000     3001     3002     3003     3004   3005     "
              "3006             34           35\n"
              "\n"
              "parse counters  type 17  type 18  type 19  type 20\n"
              "group A             100      101      102      103\n"
              "group B             200      201      202      203\n"
              "\n"
              "parsed 12345678901, requests 17, table writes ignored 7\n");
    json expected = json::parse(R"({
        "bus": 0,
        "parse_counters": {"a": {"type17": 100, "type18": 101, "type19": 102, "type20": 103},
                           "b": {"type17": 200, "type18": 201, "type19": 202, "type20": 203}},
        "parsed": 12345678901, "requests": 17, "ignored_table_writes": 7})");
    expected["channels"] = json::parse(channelsJson);
    EXPECT_EQ(json::parse(Said({"counters", "--json"})), expected);
}

TEST_F(CtlLook, RegistersAreShownWithWhatTheyAre) {
    m_registers.Poke(0x106, 20261120);
    m_registers.Poke(0x1ffff, 0xffffffff);
    EXPECT_EQ(Said({"registers", "0x10-0x13", "262", "0x1ffff"}),
              "register  value          decimal  meaning\n"
              "0x10      0x00000000           0  reset\n"
              "0x11      0x00000002           2  feed switch\n"
              "0x12      0x00000001           1  map transmit\n"
              "0x13      0x00000000           0\n"
              "0x106     0x01352900    20261120  trading date\n"
              "0x1ffff   0xffffffff  4294967295\n");
    EXPECT_EQ(json::parse(Said({"registers", "--json", "0x11", "0x13"})), json::parse(R"({
        "bus": 0,
        "registers": [{"register": 17, "value": 2, "meaning": "feed switch"},
                      {"register": 19, "value": 0, "meaning": null}]})"));
}

TEST_F(CtlLook, WithoutARangeAllNamedRegistersAreShown) {
    std::istringstream lines(Said({"registers"}));
    std::string line;
    std::vector<std::string> shown;
    while (std::getline(lines, line)) {
        shown.push_back(line.substr(0, line.find(' ')) + line.substr(line.rfind("  ") + 1));
    }
    EXPECT_THAT(
        shown,
        testing::ElementsAre(
            "register meaning", "0x10 reset", "0x11 feed switch", "0x12 map transmit",
            "0x103 link status", "0x104 time of day, first copy", "0x105 time of day, second copy",
            "0x106 trading date", "0x300 L5 net version switch",
            "0x301 L5 destination MAC, upper 2 bytes", "0x302 L5 destination MAC, lower 4 bytes",
            "0x303 L5 destination IP", "0x304 L5 destination port",
            "0x305 L5 source MAC, upper 2 bytes", "0x306 L5 source MAC, lower 4 bytes",
            "0x307 L5 source IP", "0x308 L5 source port", "0x310 L1 net version switch",
            "0x311 L1 destination MAC, upper 2 bytes", "0x312 L1 destination MAC, lower 4 bytes",
            "0x313 L1 destination IP", "0x314 L1 destination port",
            "0x315 L1 source MAC, upper 2 bytes", "0x316 L1 source MAC, lower 4 bytes",
            "0x317 L1 source IP", "0x318 L1 source port", "0x200b parse counter A, type 17",
            "0x200c parse counter A, type 18", "0x200d parse counter A, type 19",
            "0x200e parse counter A, type 20", "0x210b parse counter B, type 17",
            "0x210c parse counter B, type 18", "0x210d parse counter B, type 19",
            "0x210e parse counter B, type 20", "0x11000 single-leg table, write address",
            "0x11001 single-leg table, write data", "0x11002 single-leg table, read address",
            "0x11003 single-leg table, read data", "0x12000 combination table, write address",
            "0x12001 combination table, write data", "0x12002 combination table, read address",
            "0x12003 combination table, read data"));
}

TEST_F(CtlLook, ATablesReadDataAreTheWordAtItsReadAddress) {
    m_registers.Poke(0x11002, 4095 * 64);
    m_registers.Poke(0x12002, 2 * 64);
    EXPECT_EQ(Said({"registers", "0x11003", "0x12003"}),
              "register  value       decimal  meaning\n"
              "0x11003   0x00008000    32768  single-leg table, read data\n"
              "0x12003   0x00000008        8  combination table, read data\n");
    m_registers.Poke(0x11002, 4096 * 64);
    EXPECT_THAT(Said({"registers", "0x11003"}), testing::HasSubstr("0x00000000"));
}

TEST_F(CtlLook, LookingChangesNothingAndIsNoOccasionForAFault) {
    ZceBoard::CFaults faults(Shm());
    for (const Fault kind : {Fault::ReadFails, Fault::NameChanges}) {
        faults.Set({kind, 2, ZceBoard::FAULT_ANY, 0, 0});
    }
    const auto copy = [this] {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&Shm());
        return std::vector<unsigned char>(bytes, bytes + offsetof(ZceBoard::BoardShm, a2c));
    };
    const std::vector<unsigned char> before = copy();
    for (const char* command : {"status", "registers", "tables", "counters"}) {
        Said({command});
        Said({command, "--json"});
    }
    Said({"registers", "0-0x1ffff"});
    Said({"fault", "list"});
    EXPECT_TRUE(before == copy());
}

TEST_F(CtlLook, TablesShowWhatGoesToSomeChannel) {
    EXPECT_EQ(Said({"tables"}),
              "table        index  name             channels  mask\n"
              "single           0  SR209            0,3       0x0009\n"
              "single        4095  SR209C5000       15        0x8000\n"
              "combination      2  SPD-SR209&SR301  3         0x0008\n"
              "3 shown; single-leg: 3 learnt, 2 subscribed; combinations: 1 learnt, 1 "
              "subscribed\n");
}

TEST_F(CtlLook, TablesOfAChannelShowWhatGoesToItAndAllWhatWasLearntToo) {
    EXPECT_EQ(Said({"tables", "--channel", "3"}),
              "table        index  name             channels  mask\n"
              "single           0  SR209            0,3       0x0009\n"
              "combination      2  SPD-SR209&SR301  3         0x0008\n"
              "2 shown; single-leg: 3 learnt, 2 subscribed; combinations: 1 learnt, 1 "
              "subscribed\n");
    EXPECT_EQ(Said({"tables", "--channel", "7"}),
              "0 shown; single-leg: 3 learnt, 2 subscribed; combinations: 1 learnt, 1 "
              "subscribed\n");
    EXPECT_THAT(Said({"tables", "--all"}),
                testing::AllOf(
                    testing::HasSubstr("\nsingle           1  CF301                      0x0000\n"),
                    testing::HasSubstr("\n4 shown; ")));
}

TEST_F(CtlLook, TablesForPrograms) {
    EXPECT_EQ(json::parse(Said({"tables", "--json", "--channel", "0"})), json::parse(R"({
        "bus": 0,
        "entries": [{"table": "single", "index": 0, "name": "SR209", "channels": [0, 3],
                     "mask": 9}],
        "counts": {"single": {"learnt": 3, "subscribed": 2},
                   "combination": {"learnt": 1, "subscribed": 1}}})"));
}

TEST_F(CtlLook, ANameThatCannotBePrintedReachesNoTerminal) {
    Name(0, 5, "\x1b[2J\xff", 1);
    EXPECT_THAT(Said({"tables"}), testing::HasSubstr("single           5  ?[2J?  "));
    EXPECT_EQ(json::parse(Said({"tables", "--json"}))["entries"][1]["name"], "?[2J?");
}

using ChannelInstruments = boardtest::CtlFixture;

TEST_F(ChannelInstruments, AreThoseOfTheMaskAndThoseThatHadMessages) {
    CRegisterFile registers(Shm());
    for (uint32_t index = 0; index < 4; ++index) {
        registers.StoreName(0, index, "CF30" + std::to_string(index));
    }
    registers.StoreName(1, 4094, "SPD-CF301&CF302\x01");
    Shm().tables[0][64] = 0x8000;
    Shm().tables[0][128] = 0x7FFF;
    Shm().instruments[15].sent[0][1] = 3;
    Shm().instruments[15].sent[0][3] = 12345678901;
    Shm().instruments[14].sent[0][0] = 1;
    Shm().instruments[15].sent[1][4094] = 2;
    Shm().instruments[15].sent[1][4095] = 1;
    std::string text;
    for (const auto& one : ZceBoard::TakeInstruments(Shm(), 15)) {
        text += std::to_string(one.table) + "/" + std::to_string(one.index) + " " + one.name +
                (one.bSubscribed ? " yes " : " no ") + std::to_string(one.messages) + "\n";
    }
    EXPECT_EQ(text,
              "0/1 CF301 yes 3\n"
              "0/3 CF303 no 12345678901\n"
              "1/4094 SPD-CF301&CF302? no 2\n"
              "1/4095  no 1\n");
}

}  // namespace
