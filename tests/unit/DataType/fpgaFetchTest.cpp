// Reading the instrument names out of the board's tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <thread>

#include "fpgaFixture.h"
#include "logCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using velatest::Checked;
using velatest::DrvAccess;
using velatest::FpgaRig;
using velatest::LogCapture;
using velatest::Read;
using Table = velatest::FakeDrv::Table;

// The board changes the name of one entry before each read of it: reads[n] at attempt n, the last
// one from then on.
void ScriptName(FpgaRig& rig, Table table, unsigned int index, std::vector<std::string> reads) {
    const unsigned long addrReg = table == Table::Sgl ? 0x11002 : 0x12002;
    rig.drv.OnAccess([&rig, table, index, addrReg, reads,
                      next = std::size_t{0}](const DrvAccess& access) mutable {
        if (access.addr == addrReg && access.value == index * 64 + 4) {
            rig.drv.SetTableName(table, index, reads[std::min(next, reads.size() - 1)]);
            ++next;
        }
    });
}

TEST(FetchAllInst, EmptyBoardIsReadEightTimesAndLeavesTheMapAlone) {
    FpgaRig rig;
    rig.insts = {{"SR209", 1}, {"CF209", 2}};
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("CF209", 2), Pair("SR209", 1)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO New round, fetch from fpga, inst count:2."));
    std::vector<DrvAccess> expected;
    for (const unsigned long base : {0x11000UL, 0x12000UL}) {
        for (unsigned int index = 0; index < 4095; ++index) {
            for (int attempt = 0; attempt < 8; ++attempt) {
                for (const unsigned int word : {4U, 3U, 2U, 1U}) {
                    expected.push_back(Checked(base + 2, index * 64 + word));
                    expected.push_back(Read(base + 3, 0));
                }
            }
        }
    }
    EXPECT_TRUE(rig.drv.Accesses() == expected);
}

TEST(FetchAllInst, StableNameIsStoredAtAttempt1WithoutAMessage) {
    FpgaRig rig;
    rig.drv.SetTableName(Table::Sgl, 0, "SR209");
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SR209", 0)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO New round, fetch from fpga, inst count:1."));
    const std::vector<DrvAccess>& all = rig.drv.Accesses();
    const std::vector<DrvAccess> first(all.begin(), all.begin() + 17);
    // Two reads of the name, words 4 to 1, then the next entry.
    EXPECT_THAT(first,
                ElementsAre(Checked(0x11002, 4), Read(0x11003, 0x53523230), Checked(0x11002, 3),
                            Read(0x11003, 0x39000000), Checked(0x11002, 2), Read(0x11003, 0),
                            Checked(0x11002, 1), Read(0x11003, 0), Checked(0x11002, 4),
                            Read(0x11003, 0x53523230), Checked(0x11002, 3),
                            Read(0x11003, 0x39000000), Checked(0x11002, 2), Read(0x11003, 0),
                            Checked(0x11002, 1), Read(0x11003, 0), Checked(0x11002, 68)));
}

TEST(FetchAllInst, NameOf16CharactersHasNoEnd) {
    FpgaRig rig;
    rig.drv.SetTableName(Table::Cmb, 4094, "SPD-SR209&SR3012");
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SPD-SR209&SR3012", 4094)));
}

TEST(FetchAllInst, NameEndsAtItsFirstNul) {
    FpgaRig rig;
    rig.drv.SetTableName(Table::Sgl, 5, std::string_view("AB\0CD", 5));
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("AB", 5)));
}

TEST(FetchAllInst, Entry4095IsNotRead) {
    FpgaRig rig;
    rig.drv.SetTableName(Table::Sgl, 4095, "SR209");
    rig.drv.SetTableName(Table::Cmb, 4095, "SPD-A&B");
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, IsEmpty());
}

TEST(FetchAllInst, NameThatSettlesLateIsReported) {
    for (const Table table : {Table::Sgl, Table::Cmb}) {
        FpgaRig rig;
        ScriptName(rig, table, 12, {"SR2", "SR209", "SR209"});
        const LogCapture log;
        rig.serv.FetchAllInst();
        EXPECT_THAT(rig.insts, ElementsAre(Pair("SR209", 12)));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("WARN current read fpga 2 time, and this is equal previous, "
                                "current inst id:SR209 ",
                                "INFO New round, fetch from fpga, inst count:1."));
    }
}

TEST(FetchAllInst, EmptyReadBeforeTheNameCounts) {
    FpgaRig rig;
    ScriptName(rig, Table::Sgl, 12, {"", "CF301", "CF301"});
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("CF301", 12)));
    EXPECT_EQ(log.Lines().front(),
              "WARN current read fpga 2 time, and this is equal previous, current inst id:CF301 ");
}

TEST(FetchAllInst, EmptyReadBetweenTwoEqualOnesDoesNotMatter) {
    FpgaRig rig;
    ScriptName(rig, Table::Sgl, 12, {"CF301", "", "CF301", "OTHER"});
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("CF301", 12)));
    EXPECT_EQ(log.Lines().front(),
              "WARN current read fpga 2 time, and this is equal previous, current inst id:CF301 ");
}

TEST(FetchAllInst, AlternatingNameIsNotStored) {
    FpgaRig rig;
    ScriptName(rig, Table::Sgl, 12, {"A1", "B1", "A1", "B1", "A1", "B1", "A1", "B1"});
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre("INFO New round, fetch from fpga, inst count:0."));
}

TEST(FetchAllInst, TheEighthReadIsTheLast) {
    FpgaRig last;
    ScriptName(last, Table::Sgl, 12, {"A1", "B1", "A1", "B1", "A1", "B1", "OK1", "OK1"});
    const LogCapture log;
    last.serv.FetchAllInst();
    EXPECT_THAT(last.insts, ElementsAre(Pair("OK1", 12)));
    EXPECT_EQ(log.Lines().front(),
              "WARN current read fpga 7 time, and this is equal previous, current inst id:OK1 ");
    FpgaRig late;
    ScriptName(late, Table::Sgl, 12, {"A1", "B1", "A1", "B1", "A1", "B1", "A1", "OK1", "OK1"});
    late.serv.FetchAllInst();
    EXPECT_THAT(late.insts, IsEmpty());
}

TEST(FetchAllInst, NameReadForTheEntryBeforeDoesNotCount) {
    // Entry 3 reads a name at its last attempt, entry 4 the same one at its first: neither settles.
    FpgaRig rig;
    rig.drv.OnAccess([&rig,
                      attempts = std::map<unsigned long, int>()](const DrvAccess& access) mutable {
        if (access.addr == 0x11002 && (access.value == 3 * 64 + 4 || access.value == 4 * 64 + 4)) {
            const auto index = static_cast<unsigned int>(access.value / 64);
            const int attempt = attempts[index]++;
            const bool named = attempt == (index == 3 ? 7 : 0);
            rig.drv.SetTableName(Table::Sgl, index, named ? "SR209" : "");
        }
    });
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, IsEmpty());
}

TEST(FetchAllInst, KnownNamesGetTheTablesIndexAndTheCombinationTableWins) {
    FpgaRig rig;
    rig.insts = {{"SR209", 77}, {"KEPT1", 5}};
    rig.drv.SetTableName(Table::Sgl, 3, "SR209");
    rig.drv.SetTableName(Table::Sgl, 4, "TWICE1");
    rig.drv.SetTableName(Table::Cmb, 9, "TWICE1");
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("KEPT1", 5), Pair("SR209", 3), Pair("TWICE1", 9)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO New round, fetch from fpga, inst count:3."));
}

TEST(FetchAllInst, FailingReadsLookLikeAnEmptyBoard) {
    FpgaRig rig;
    rig.drv.Record(false);
    rig.drv.SetTableName(Table::Sgl, 3, "SR209");
    rig.drv.SetTableName(Table::Cmb, 3, "SPD-A&B");
    rig.drv.FailReads(0x11003);
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SPD-A&B", 3)));
}

TEST(FetchAllInst, OneFailedReadMakesTheNameSettleLater) {
    FpgaRig rig;
    rig.drv.SetTableName(Table::Sgl, 0, "SR209");
    rig.drv.FailAccess(3);  // word 3 of the first attempt: the name reads SR20
    const LogCapture log;
    rig.serv.FetchAllInst();
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SR209", 0)));
    EXPECT_EQ(log.Lines().front(),
              "WARN current read fpga 2 time, and this is equal previous, current inst id:SR209 ");
}

TEST(FetchAllInst, HoldsTheLock) {
    FpgaRig rig;
    rig.drv.Record(false);
    bool held = false;
    rig.drv.OnAccess([&held, first = true](const DrvAccess&) mutable {
        if (first) {
            first = false;
            std::thread([&held] {
                const std::unique_lock<std::mutex> lock(Vela2_U50::CZceFpgaServ::subscribe_mutex,
                                                        std::try_to_lock);
                held = !lock.owns_lock();
            }).join();
        }
    });
    rig.serv.FetchAllInst();
    EXPECT_TRUE(held);
}

}  // namespace
