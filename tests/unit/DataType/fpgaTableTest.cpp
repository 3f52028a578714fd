// Recording a selection, writing it to the board's tables, reading it back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
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

TEST(StoreInstToGlob, ChannelsOfOneIndexShareAMask) {
    FpgaRig rig;
    rig.serv.StoreInstToGlob(0, 7, "SR209", 2);
    rig.serv.StoreInstToGlob(0, 7, "SR209", 5);
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(7, 0x0024)));
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(7, "SR209")));
    EXPECT_THAT(rig.serv.m_mapCmbChanBit, IsEmpty());
    EXPECT_THAT(rig.serv.m_mapCmbInsts, IsEmpty());
}

TEST(StoreInstToGlob, AnyOtherTypeIsTheCombinationTable) {
    for (const std::uint8_t type : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{255}}) {
        FpgaRig rig;
        rig.serv.StoreInstToGlob(type, 9, "SPD-A&B", 15);
        EXPECT_THAT(rig.serv.m_mapCmbChanBit, ElementsAre(Pair(9, 0x8000)));
        EXPECT_THAT(rig.serv.m_mapCmbInsts, ElementsAre(Pair(9, "SPD-A&B")));
        EXPECT_THAT(rig.serv.m_mapSglChanBit, IsEmpty());
    }
}

TEST(StoreInstToGlob, LaterNameOverwrites) {
    FpgaRig rig;
    rig.serv.StoreInstToGlob(0, 7, "SR209", 0);
    rig.serv.StoreInstToGlob(0, 7, "SR301", 0);
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(7, "SR301")));
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(7, 1)));
}

TEST(StoreInstToGlob, ShiftWrapsAt32AndTheMaskHas16Bits) {
    FpgaRig rig;
    rig.serv.StoreInstToGlob(0, 1, "A1", 33);
    rig.serv.StoreInstToGlob(0, 2, "A2", 16);
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(1, 2), Pair(2, 0)));
}

TEST(StoreInstsToGlob, RecordsBothSelections) {
    FpgaRig rig;
    const LogCapture log;
    rig.serv.StoreInstsToGlob({{5, "SR209"}, {3, "CF209"}}, {{8, "SPD-A&B"}}, 4);
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(3, "CF209"), Pair(5, "SR209")));
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(3, 0x10), Pair(5, 0x10)));
    EXPECT_THAT(rig.serv.m_mapCmbInsts, ElementsAre(Pair(8, "SPD-A&B")));
    EXPECT_THAT(rig.serv.m_mapCmbChanBit, ElementsAre(Pair(8, 0x10)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:4] Record func:Meeting conditions count "
                                         "is:OneLeg:2, Combine:1."));
    EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
}

TEST(StoreInstsToGlob, EmptySelectionIsSaid) {
    FpgaRig rig;
    const LogCapture log;
    rig.serv.StoreInstsToGlob({}, {}, 11);
    EXPECT_THAT(log.Lines(),
                ElementsAre("INFO [channel:11] Record func:Meeting conditions count "
                            "is:OneLeg:0, Combine:0.",
                            "INFO [channel:11] Matched subs inst count is 0. you doesn't "
                            "subscribe inst."));
    rig.serv.StoreInstsToGlob({}, {{1, "SPD-A&B"}}, 1);
    rig.serv.StoreInstsToGlob({{1, "SR209"}}, {}, 1);
    EXPECT_EQ(log.Lines().size(), 4U);
}

TEST(StoreInstsToGlob, WorksOnCopiesOfItsArguments) {
    FpgaRig rig;
    rig.serv.m_mapSglInsts = {{1, "SR209"}};
    rig.serv.StoreInstsToGlob(rig.serv.m_mapSglInsts, rig.serv.m_mapCmbInsts, 0);
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(1, "SR209")));
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(1, 1)));
    const std::map<std::uint16_t, std::string> sgl = {{5, "SR301"}};
    const std::map<std::uint16_t, std::string> cmb = {{6, "SPD-A&B"}};
    rig.serv.StoreInstsToGlob(sgl, cmb, 0);
    EXPECT_THAT(sgl, ElementsAre(Pair(5, "SR301")));
    EXPECT_THAT(cmb, ElementsAre(Pair(6, "SPD-A&B")));
}

TEST(StoreInstsToGlob, EachFurtherSelectionAddsWhereverItsIndexesLie) {
    FpgaRig rig;
    std::map<std::uint16_t, std::string> sparse;
    std::map<std::uint16_t, std::string> dense;
    for (std::uint16_t index = 0; index < 300; ++index) {
        dense[index] = "SR209";
        if (index % 40 == 7) {
            sparse[index] = "CF209";
        }
    }
    sparse[65535] = "TA209";
    rig.serv.StoreInstsToGlob(dense, {}, 1);
    rig.serv.StoreInstsToGlob(dense, {}, 4);
    rig.serv.StoreInstsToGlob(sparse, {}, 3);
    EXPECT_EQ(rig.serv.m_mapSglChanBit.size(), 301U);
    EXPECT_EQ(rig.serv.m_mapSglInsts.size(), 301U);
    for (const auto& [index, mask] : rig.serv.m_mapSglChanBit) {
        const std::string& name = rig.serv.m_mapSglInsts[index];
        if (index == 65535) {
            EXPECT_EQ(mask, 0x08);
            EXPECT_EQ(name, "TA209");
        } else {
            EXPECT_EQ(mask, index % 40 == 7 ? 0x1A : 0x12) << index;
            EXPECT_EQ(name, index % 40 == 7 ? "CF209" : "SR209") << index;
        }
    }
}

TEST(StoreInstsToGlob, ChannelsWithoutABitLeaveAnEmptyMask) {
    FpgaRig rig;
    rig.serv.StoreInstsToGlob({{5, "SR209"}}, {}, 20);
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(5, 0)));
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(5, "SR209")));
}

TEST(StoreChannelsToGlob, OfTwoNamesTheLastChannelsStays) {
    FpgaRig rig;
    const LogCapture log;
    const std::map<std::uint16_t, std::string> sgl[] = {
        {{5, "SR209"}, {9, "SR301"}}, {}, {{5, "CF209"}}};
    const std::map<std::uint16_t, std::string> cmb[] = {{}, {}, {{8, "SPD-A&B"}}};
    rig.serv.StoreChannelsToGlob(sgl, cmb, 2);
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(5, "CF209"), Pair(9, "SR301")));
    EXPECT_THAT(rig.serv.m_mapSglChanBit, ElementsAre(Pair(5, 0x14), Pair(9, 0x04)));
    EXPECT_THAT(rig.serv.m_mapCmbInsts, ElementsAre(Pair(8, "SPD-A&B")));
    EXPECT_THAT(rig.serv.m_mapCmbChanBit, ElementsAre(Pair(8, 0x10)));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "INFO [channel:2] Record func:Meeting conditions count is:OneLeg:2, Combine:0.",
            "INFO [channel:3] Record func:Meeting conditions count is:OneLeg:0, Combine:0.",
            "INFO [channel:3] Matched subs inst count is 0. you doesn't subscribe inst.",
            "INFO [channel:4] Record func:Meeting conditions count is:OneLeg:1, Combine:1."));
}

TEST(SubsOneInst, WritesTheMaskOfTheEntry) {
    FpgaRig rig;
    rig.serv.StoreInstToGlob(0, 100, "SR209", 3);
    rig.serv.StoreInstToGlob(1, 100, "SPD-A&B", 3);
    rig.drv.SetTableName(Table::Sgl, 100, "SR209");
    const LogCapture log;
    rig.serv.SubsOneInst(0, 100, 0x8001);
    rig.serv.SubsOneInst(1, 100, 0x0010);
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Checked(0x11001, 0x8001), Checked(0x11000, 6400),
                                                Checked(0x12001, 0x0010), Checked(0x12000, 6400)));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("INFO Subscribes:Write to fpga:chanbit:0x8001, index:100, instId:SR209",
                    "INFO Subscribes:Write to fpga:chanbit:0x10, index:100, instId:SPD-A&B"));
    EXPECT_EQ(rig.drv.TableWord(Table::Sgl, 100, 0), 0x8001U);
    EXPECT_EQ(rig.drv.TableWord(Table::Cmb, 100, 0), 0x0010U);
    // The name stays as the board learnt it.
    EXPECT_EQ(rig.drv.TableWord(Table::Sgl, 100, 4), 0x53523230U);
}

TEST(SubsOneInst, CreatesAnEmptyNameIfThereIsNone) {
    FpgaRig rig;
    const LogCapture log;
    rig.serv.SubsOneInst(0, 65535, 1);
    rig.serv.SubsOneInst(1, 2, 1);
    EXPECT_THAT(rig.serv.m_mapSglInsts, ElementsAre(Pair(65535, "")));
    EXPECT_THAT(rig.serv.m_mapCmbInsts, ElementsAre(Pair(2, "")));
    EXPECT_EQ(rig.drv.Accesses()[1], Checked(0x11000, 65535 * 64));
    EXPECT_EQ(log.Lines()[0], "INFO Subscribes:Write to fpga:chanbit:0x1, index:65535, instId:");
}

TEST(SubsFromGlobInsts, WritesAllMasksInIndexOrderThenReadsThemBack) {
    FpgaRig rig;
    rig.serv.StoreInstToGlob(1, 2, "SPD-A&B", 1);
    rig.serv.StoreInstToGlob(0, 9, "SR209", 0);
    rig.serv.StoreInstToGlob(0, 3, "CF209", 4);
    const LogCapture log;
    rig.serv.SubsFromGlobInsts();
    EXPECT_THAT(rig.drv.Accesses(),
                ElementsAre(Checked(0x11001, 0x10), Checked(0x11000, 192), Checked(0x11001, 0x1),
                            Checked(0x11000, 576), Checked(0x12001, 0x2), Checked(0x12000, 128),
                            Checked(0x11002, 192), Read(0x11003, 0x10), Checked(0x11002, 576),
                            Read(0x11003, 0x1), Checked(0x12002, 128), Read(0x12003, 0x2)));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("WARN Subscribe:Meeting conditions count is:OneLeg:2, Combine:1. Now write to "
                    "fpga!",
                    "INFO Subscribes:Write to fpga:chanbit:0x10, index:3, instId:CF209",
                    "INFO Subscribes:Write to fpga:chanbit:0x1, index:9, instId:SR209",
                    "INFO Subscribes:Write to fpga:chanbit:0x2, index:2, instId:SPD-A&B",
                    "INFO Subscribes:Write to fpga Over!",
                    "INFO Already write into fpga, now read back!"));
}

TEST(SubsFromGlobInsts, NothingToWriteIsSaid) {
    FpgaRig rig;
    const LogCapture log;
    rig.serv.SubsFromGlobInsts();
    EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("WARN Subscribe:Meeting conditions count is:OneLeg:0, Combine:0. Now write to "
                    "fpga!",
                    "INFO Warning !! The number of contracts that comply with the subscription "
                    "rules is 0. You subscribe no contract !!",
                    "INFO Subscribes:Write to fpga Over!",
                    "INFO Already write into fpga, now read back!"));
}

TEST(SubsFromGlobInsts, OneTableAloneIsNotNothing) {
    for (const std::uint8_t type : {std::uint8_t{0}, std::uint8_t{1}}) {
        FpgaRig rig;
        rig.serv.StoreInstToGlob(type, 1, "X1", 0);
        const LogCapture log;
        rig.serv.SubsFromGlobInsts();
        EXPECT_EQ(log.Lines().size(), 4U);
    }
}

TEST(IsSubscribeOk, OneCommonBitSuffices) {
    FpgaRig rig;
    rig.drv.SetTableWord(Table::Sgl, 6, 0, 0x0001);
    const LogCapture log;
    EXPECT_TRUE(rig.serv.IsSubscribeOk(0, 6, 0x0003));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Checked(0x11002, 384), Read(0x11003, 1)));
}

TEST(IsSubscribeOk, NoCommonBitIsReported) {
    FpgaRig rig;
    rig.drv.SetTableWord(Table::Cmb, 6, 0, 0xFFFF0004);
    const LogCapture log;
    EXPECT_FALSE(rig.serv.IsSubscribeOk(1, 6, 0x0003));
    EXPECT_FALSE(rig.serv.IsSubscribeOk(0, 4095, 0x8000));
    EXPECT_THAT(log.Lines(),
                ElementsAre("WARN Attention! Maybe subscribed fail! Type 1, index:6, "
                            "shouldbe:0x3, fpgavalue:0xffff0004,",
                            "WARN Attention! Maybe subscribed fail! Type 0, index:4095, "
                            "shouldbe:0x8000, fpgavalue:0x0,"));
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Checked(0x12002, 384), Read(0x12003, 0xFFFF0004),
                                                Checked(0x11002, 4095 * 64), Read(0x11003, 0)));
}

TEST(IsSubscribeOk, FailedReadIsAFailure) {
    FpgaRig rig;
    rig.drv.SetTableWord(Table::Sgl, 6, 0, 1);
    rig.drv.FailReads(0x11003);
    EXPECT_FALSE(rig.serv.IsSubscribeOk(0, 6, 1));
}

TEST(ReadBackAllInst, FailuresAreOnlyLogged) {
    FpgaRig rig;
    rig.serv.StoreInstToGlob(0, 1, "SR209", 0);
    rig.serv.StoreInstToGlob(0, 2, "SR301", 0);
    rig.serv.StoreInstToGlob(1, 3, "IPS-A&B", 0);
    rig.drv.SetTableWord(Table::Sgl, 2, 0, 1);
    const LogCapture log;
    rig.serv.ReadBackAllInst();
    EXPECT_THAT(rig.drv.Accesses(),
                ElementsAre(Checked(0x11002, 64), Read(0x11003, 0), Checked(0x11002, 128),
                            Read(0x11003, 1), Checked(0x12002, 192), Read(0x12003, 0)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Already write into fpga, now read back!",
                                         "WARN Attention! Maybe subscribed fail! Type 0, index:1, "
                                         "shouldbe:0x1, fpgavalue:0x0,",
                                         "WARN Attention! Maybe subscribed fail! Type 1, index:3, "
                                         "shouldbe:0x1, fpgavalue:0x0,"));
}

TEST(ConToAscii, PacksTheFirstCharacterHighest) {
    FpgaRig rig;
    std::array<unsigned int, 5> words = {9, 9, 9, 9, 9};
    rig.serv.conToAscii("SR209C5000", words.data());
    EXPECT_THAT(words, ElementsAre(0x53523230, 0x39433530, 0x30300000, 0, 9));
}

TEST(ConToAscii, TakesSixteenCharactersAndCutsMore) {
    FpgaRig rig;
    std::array<unsigned int, 5> words = {9, 9, 9, 9, 9};
    const LogCapture log;
    rig.serv.conToAscii("ABCDEFGHIJKLMNOP", words.data());
    EXPECT_THAT(words, ElementsAre(0x41424344, 0x45464748, 0x494A4B4C, 0x4D4E4F50, 9));
    EXPECT_THAT(log.Lines(), IsEmpty());
    rig.serv.conToAscii("ABCDEFGHIJKLMNOPQ", words.data());
    EXPECT_THAT(words, ElementsAre(0x41424344, 0x45464748, 0x494A4B4C, 0x4D4E4F50, 9));
    EXPECT_THAT(log.Lines(), ElementsAre("WARN The instrument name ABCDEFGHIJKLMNOPQ is longer "
                                         "than 16 characters and is cut."));
    rig.serv.conToAscii("", words.data());
    EXPECT_THAT(words, ElementsAre(0, 0, 0, 0, 9));
}

TEST(SubsOneInstWithName, WritesMaskAndThreeWordsOfTheName) {
    FpgaRig rig(3);
    rig.drv.SetTableWord(Table::Sgl, 10, 0, 0x0100);
    rig.serv.SubsOneInstWithName(0, "SR209C5000XYZ", 10);
    EXPECT_THAT(
        rig.drv.Accesses(),
        ElementsAre(Checked(0x11002, 640), Read(0x11003, 0x0100), Checked(0x11001, 0x0108),
                    Checked(0x11000, 640), Checked(0x11001, 0x53523230), Checked(0x11000, 641),
                    Checked(0x11001, 0x39433530), Checked(0x11000, 642),
                    Checked(0x11001, 0x30305859), Checked(0x11000, 643)));
}

TEST(SubsOneInstWithName, CombinationTakesTheMaskFromTheSingleLegTable) {
    FpgaRig rig(0);
    rig.drv.SetTableWord(Table::Sgl, 1, 0, 0x0400);
    rig.drv.SetTableWord(Table::Cmb, 1, 0, 0x0002);
    rig.serv.SubsOneInstWithName(1, "IPS", 1);
    EXPECT_THAT(rig.drv.Accesses(),
                ElementsAre(Checked(0x11002, 64), Read(0x11003, 0x0400), Checked(0x12001, 0x0401),
                            Checked(0x12000, 64), Checked(0x12001, 0x49505300),
                            Checked(0x12000, 65), Checked(0x12001, 0), Checked(0x12000, 66),
                            Checked(0x12001, 0), Checked(0x12000, 67)));
}

// Whether an operation runs while another thread could not take the lock.
template <typename Operation>
bool HoldsLock(FpgaRig& rig, Operation operation) {
    bool held = false;
    rig.drv.OnAccess([&held](const DrvAccess&) {
        std::thread([&held] {
            held = !Vela2_U50::CZceFpgaServ::subscribe_mutex.try_lock();
            if (!held) {
                Vela2_U50::CZceFpgaServ::subscribe_mutex.unlock();
            }
        }).join();
    });
    operation();
    return held;
}

TEST(SubscribeMutex, IsHeldByTheOperationsThatSayso) {
    FpgaRig rig;
    EXPECT_TRUE(HoldsLock(rig, [&] { rig.serv.IsSubscribeOk(0, 1, 1); }));
    EXPECT_TRUE(HoldsLock(rig, [&] { rig.serv.SubsOneInstWithName(0, "SR209", 1); }));
    EXPECT_FALSE(HoldsLock(rig, [&] { rig.serv.SubsOneInst(0, 1, 1); }));
    EXPECT_FALSE(HoldsLock(rig, [&] { rig.serv.FpgaStartTrans(); }));
}

}  // namespace
