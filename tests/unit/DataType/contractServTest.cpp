#include "DataType/ContractServ.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <thread>

#include "contractFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using velatest::ContractRig;
using velatest::LogCapture;

TEST(OrderedId, IsFoundLetterByLetter) {
    ContractRig rig;
    rig.Rules(3).vecSubIds = {"SR209", "CF301"};
    EXPECT_TRUE(rig.serv.bOrderedId("SR209", 3));
    EXPECT_TRUE(rig.serv.bOrderedId("CF301", 3));
    EXPECT_FALSE(rig.serv.bOrderedId("sr209", 3));
    EXPECT_FALSE(rig.serv.bOrderedId("SR20", 3));
    EXPECT_FALSE(rig.serv.bOrderedId("SR2090", 3));
    EXPECT_FALSE(rig.serv.bOrderedId("", 3));
    EXPECT_FALSE(rig.serv.bOrderedId("SR209", 2));
}

TEST(OrderedClass, IsFoundLetterByLetter) {
    ContractRig rig;
    rig.Rules(15).vecSubClasses = {"SR", "cf"};
    EXPECT_TRUE(rig.serv.bOrderedClass("SR", 15));
    EXPECT_TRUE(rig.serv.bOrderedClass("cf", 15));
    EXPECT_FALSE(rig.serv.bOrderedClass("CF", 15));
    EXPECT_FALSE(rig.serv.bOrderedClass("S", 15));
    EXPECT_FALSE(rig.serv.bOrderedClass("SR", 14));
}

TEST(Ordered, ChannelBeyond15HasNothing) {
    ContractRig rig;
    const LogCapture log;
    EXPECT_FALSE(rig.serv.bOrderedId("SR209", 16));
    EXPECT_FALSE(rig.serv.bOrderedClass("SR", 0xFFFFFFFF));
    EXPECT_FALSE(rig.serv.OptionIsMeetCondition("SR209C5000", 16));
    EXPECT_TRUE(rig.serv.Id_chkPresent(16));
    EXPECT_EQ(log.LinesOf("WARN").size(), 4U);
}

TEST(OptionIsMeetCondition, NothingWithoutTheOptionsSwitch) {
    ContractRig rig;
    rig.Rules(0).bSubAll = 1;
    rig.Rules(0).vecSubClasses = {"SR"};
    rig.Rules(0).vecSubIds = {"SR209", "SR209C5000"};
    EXPECT_FALSE(rig.serv.OptionIsMeetCondition("SR209C5000", 0));
    rig.Rules(0).bOptionsRecv = 1;
    EXPECT_TRUE(rig.serv.OptionIsMeetCondition("SR209C5000", 0));
}

TEST(OptionIsMeetCondition, ByClassOrUnderlyingOrAll) {
    ContractRig rig;
    for (unsigned int channel = 0; channel < 4; ++channel) {
        rig.Rules(channel).bOptionsRecv = 1;
    }
    rig.Rules(0).vecSubClasses = {"SR"};
    rig.Rules(1).vecSubIds = {"SR209"};
    rig.Rules(2).bSubAll = 1;
    for (unsigned int channel = 0; channel < 4; ++channel) {
        EXPECT_EQ(rig.serv.OptionIsMeetCondition("SR209C5000", channel), channel != 3);
        EXPECT_EQ(rig.serv.OptionIsMeetCondition("SR301P5000", channel),
                  channel == 0 || channel == 2);
        EXPECT_EQ(rig.serv.OptionIsMeetCondition("CF209P5000", channel), channel == 2);
    }
}

TEST(OptionIsMeetCondition, ItsOwnIdDoesNotSelectIt) {
    ContractRig rig;
    rig.Rules(0).bOptionsRecv = 1;
    rig.Rules(0).vecSubIds = {"SR209C5000"};
    EXPECT_FALSE(rig.serv.OptionIsMeetCondition("SR209C5000", 0));
}

TEST(Judge, AllSelectsFuturesButNoOptionsAndNoSpreads) {
    ContractRig rig;
    rig.insts = {{"SR209", 1},
                 {"CF301", 2},
                 {"SR209C5000", 3},
                 {"SPD-SR209&SR301", 4},
                 {"IPS-SR209&CF301", 5}};
    rig.Rules(6).bSubAll = 1;
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapSglSubs[6], ElementsAre(Pair(1, "SR209"), Pair(2, "CF301")));
    EXPECT_THAT(rig.serv.m_mapCmbSubs[6], IsEmpty());
}

TEST(Judge, SpreadsGoByTheirOwnSwitchAlone) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}, {"SPD-SR209&SR301", 4}, {"IPS-SR209&CF301", 5}};
    rig.Rules(0).bSpdRecv = 1;
    rig.Rules(1).bIpsRecv = 1;
    rig.Rules(2).vecSubIds = {"SPD-SR209&SR301", "IPS-SR209&CF301"};
    rig.Rules(2).vecSubClasses = {"SPD", "IPS"};
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapCmbSubs[0], ElementsAre(Pair(4, "SPD-SR209&SR301")));
    EXPECT_THAT(rig.serv.m_mapCmbSubs[1], ElementsAre(Pair(5, "IPS-SR209&CF301")));
    EXPECT_THAT(rig.serv.m_mapCmbSubs[2], IsEmpty());
    for (unsigned int channel = 0; channel < 3; ++channel) {
        EXPECT_THAT(rig.serv.m_mapSglSubs[channel], IsEmpty());
    }
}

TEST(Judge, PrefixIsTheFirstFourCharacters) {
    ContractRig rig;
    rig.insts = {{"SPD-", 1},  {"SPD", 2},   {"SP", 3},   {"", 4},
                 {"SPDX1", 5}, {"spd-a", 6}, {"XSPD-", 7}};
    rig.Rules(0).bSpdRecv = 1;
    rig.Rules(0).bSubAll = 1;
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapCmbSubs[0], ElementsAre(Pair(1, "SPD-")));
    EXPECT_THAT(rig.serv.m_mapSglSubs[0],
                ElementsAre(Pair(2, "SPD"), Pair(3, "SP"), Pair(4, ""), Pair(5, "SPDX1"),
                            Pair(6, "spd-a"), Pair(7, "XSPD-")));
}

TEST(Judge, FutureByClassOrById) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}, {"SR301", 2}, {"CF209", 3}, {"S209", 4}};
    rig.Rules(0).vecSubClasses = {"SR"};
    rig.Rules(1).vecSubIds = {"CF209", "SR301"};
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapSglSubs[0], ElementsAre(Pair(1, "SR209"), Pair(2, "SR301")));
    EXPECT_THAT(rig.serv.m_mapSglSubs[1], ElementsAre(Pair(2, "SR301"), Pair(3, "CF209")));
}

TEST(Judge, OptionsGoToTheSingleLegSelection) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}, {"SR209C5000", 2}, {"SR209P5000", 3}, {"SR301C5000", 4}};
    rig.Rules(0).vecSubIds = {"SR209"};
    rig.Rules(0).bOptionsRecv = 1;
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapSglSubs[0],
                ElementsAre(Pair(1, "SR209"), Pair(2, "SR209C5000"), Pair(3, "SR209P5000")));
}

TEST(Judge, LaterNameOfAnIndexWins) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}, {"CF209", 1}, {"SPD-B", 2}, {"SPD-A", 2}};
    rig.Rules(0).bSubAll = 1;
    rig.Rules(0).bSpdRecv = 1;
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapSglSubs[0], ElementsAre(Pair(1, "SR209")));
    EXPECT_THAT(rig.serv.m_mapCmbSubs[0], ElementsAre(Pair(2, "SPD-B")));
}

TEST(Judge, SecondSelectionAddsToTheFirst) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}};
    rig.Rules(0).bSubAll = 1;
    rig.serv.JudgeAndFilterSubsInst();
    rig.insts = {{"CF209", 2}, {"SR301", 1}};
    rig.serv.JudgeAndFilterSubsInst();
    EXPECT_THAT(rig.serv.m_mapSglSubs[0], ElementsAre(Pair(1, "SR301"), Pair(2, "CF209")));
}

TEST(Judge, CountsOfEveryChannelAreLogged) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}, {"SR301", 2}, {"SPD-A", 3}};
    rig.Rules(2).bSubAll = 1;
    rig.Rules(15).bSpdRecv = 1;
    const LogCapture log;
    rig.serv.JudgeAndFilterSubsInst();
    std::vector<std::string> expected = {"INFO Begin match needed inst! AllInstNum:3."};
    for (int channel = 0; channel < 16; ++channel) {
        expected.push_back("INFO [channel:" + std::to_string(channel) +
                           "] Filter needed sgl count:" + (channel == 2 ? "2" : "0") +
                           ", cmb count:" + (channel == 15 ? "1" : "0") + ".");
    }
    EXPECT_EQ(log.Lines(), expected);
}

TEST(Judge, EmptyListSelectsNothing) {
    ContractRig rig;
    rig.Rules(0).bSubAll = 1;
    const LogCapture log;
    rig.serv.JudgeAndFilterSubsInst();
    const std::vector<std::string> lines = log.Lines();
    ASSERT_EQ(lines.size(), 17U);
    EXPECT_EQ(lines[0], "INFO Begin match needed inst! AllInstNum:0.");
    EXPECT_EQ(lines[1], "INFO [channel:0] Filter needed sgl count:0, cmb count:0.");
    EXPECT_EQ(lines[16], "INFO [channel:15] Filter needed sgl count:0, cmb count:0.");
}

TEST(StoreAll, HandsOverEveryChannel) {
    ContractRig rig;
    rig.serv.m_mapSglSubs[0] = {{1, "SR209"}};
    rig.serv.m_mapSglSubs[15] = {{1, "SR209"}, {2, "CF209"}};
    rig.serv.m_mapCmbSubs[7] = {{9, "SPD-A"}};
    const LogCapture log;
    EXPECT_TRUE(rig.serv.StoreAllSubsInstToFpga());
    EXPECT_THAT(rig.fpga.m_mapSglChanBit, ElementsAre(Pair(1, 0x8001), Pair(2, 0x8000)));
    EXPECT_THAT(rig.fpga.m_mapCmbChanBit, ElementsAre(Pair(9, 0x0080)));
    EXPECT_EQ(log.LinesOf("INFO").size(), 16U + 13U);
    EXPECT_THAT(rig.Drv().Accesses(), IsEmpty());
}

TEST(Selection, RunsRulesLackReportFilterAndRecordInThisOrder) {
    ContractRig rig("[channel0]\ninsts = SR,XX999\noptions = recv\n");
    rig.insts = {{"SR209", 1}, {"SR209C5000", 2}, {"CF209", 3}};
    const LogCapture log;
    EXPECT_EQ(rig.serv.FilterAndStoreToGlobMap(), 1);
    EXPECT_THAT(rig.fpga.m_mapSglInsts, ElementsAre(Pair(1, "SR209"), Pair(2, "SR209C5000")));
    const std::vector<std::string> lines = log.Lines();
    ASSERT_GT(lines.size(), 7U);
    EXPECT_EQ(lines[0],
              "INFO [channel:0] --------Channel 0 subscribed information is as below:--------");
    EXPECT_EQ(lines[4],
              "WARN [channel:0] Warning!! Hasn't receive these insts:XX999! The program continues "
              "to run");
    EXPECT_EQ(lines[5], "INFO Begin match needed inst! AllInstNum:3.");
    EXPECT_EQ(lines[6], "INFO [channel:0] Filter needed sgl count:2, cmb count:0.");
    EXPECT_EQ(lines[22],
              "INFO [channel:0] Record func:Meeting conditions count is:OneLeg:2, Combine:0.");
}

TEST(Selection, GoesOnWithWhatCouldBeParsed) {
    ContractRig rig(
        "[channel0]\ninsts = SR\noptions = norecv\n[channel1]\ninsts = CF\n"
        "[channel2]\ninsts = SR\noptions = norecv\n");
    rig.insts = {{"SR209", 1}, {"CF209", 2}};
    EXPECT_EQ(rig.serv.FilterAndStoreToGlobMap(), 1);
    EXPECT_THAT(rig.fpga.m_mapSglChanBit, ElementsAre(Pair(1, 0x0001), Pair(2, 0x0002)));
}

TEST(Selection, RepeatedOneAppendsTheRulesAgain) {
    ContractRig rig("[channel0]\ninsts = SR\noptions = norecv\n");
    rig.serv.FilterAndStoreToGlobMap();
    rig.serv.FilterAndStoreToGlobMap();
    EXPECT_THAT(rig.Rules(0).vecSubClasses, ElementsAre("SR", "SR"));
}

// Whether a thread of this process waits for something, or has ended.
bool IsWaiting(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const auto name = stat.rfind(')');
    return name == std::string::npos || stat.substr(name, 3) == ") S";
}

TEST(Selection, WaitsForTheOrderLockAndHoldsItThroughout) {
    ContractRig rig("[channel0]\ninsts = SR209\noptions = norecv\n");
    rig.insts = {{"SR209", 1}};
    std::unique_lock<std::mutex> order(Vela2_U50::CContractServ::order_mutex);
    std::unique_lock<std::mutex> tables(Vela2_U50::CZceFpgaServ::subscribe_mutex);
    const LogCapture log;
    std::atomic<pid_t> thread = 0;
    std::thread selection([&rig, &thread] {
        thread = gettid();
        rig.serv.FilterAndStoreToGlobMap();
    });
    while (thread == 0 || !IsWaiting(thread)) {
        std::this_thread::yield();
    }
    // Not even the rules have been read.
    EXPECT_THAT(log.Lines(), IsEmpty());
    order.unlock();
    const char* const record =
        "INFO [channel:0] Record func:Meeting conditions count is:OneLeg:1, Combine:0.";
    while (!log.Has(record) || !IsWaiting(thread)) {
        std::this_thread::yield();
    }
    // The selection is in its last step, which needs the tables' lock for each instrument.
    EXPECT_FALSE(order.try_lock());
    EXPECT_THAT(rig.fpga.m_mapSglChanBit, IsEmpty());
    tables.unlock();
    selection.join();
    EXPECT_THAT(rig.fpga.m_mapSglChanBit, ElementsAre(Pair(1, 1)));
    EXPECT_TRUE(order.try_lock());
}

}  // namespace
