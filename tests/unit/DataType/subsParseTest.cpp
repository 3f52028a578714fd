#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "configFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Vela2_U50::ZceSubsInfo_t;
using velatest::LoadedConfig;
using velatest::LogCapture;

const char* const dashes = "INFO --------------------------------------------------------";

bool IsUntouched(const ZceSubsInfo_t& rules) {
    return rules.vecSubIds.empty() && rules.vecSubClasses.empty() && rules.bSubAll == 0 &&
           rules.bOptionsRecv == 0 && rules.bIpsRecv == 0 && rules.bSpdRecv == 0 &&
           rules.nReserved == 3 && rules.strSubIds.empty() && rules.strSubClasses.empty() &&
           rules.strOptions.empty() && rules.strIps.empty() && rules.strSpd.empty();
}

TEST(ParseSubsInst, FullSectionFillsTheRecordAndIsReported) {
    LoadedConfig rig(
        "[channel2]\ninsts = SR, CF, TA209, SR209C5000\noptions = recv\nips = norecv\nspd = "
        "recv\n");
    const LogCapture log;
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    const ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[2];
    EXPECT_THAT(rules.vecSubIds, ElementsAre("TA209", "SR209C5000"));
    EXPECT_THAT(rules.vecSubClasses, ElementsAre("SR", "CF"));
    EXPECT_EQ(rules.bSubAll, 0);
    EXPECT_EQ(rules.bOptionsRecv, 1);
    EXPECT_EQ(rules.bIpsRecv, 0);
    EXPECT_EQ(rules.bSpdRecv, 1);
    EXPECT_EQ(rules.nReserved, 3U);
    EXPECT_EQ(rules.strSubIds, "TA209,SR209C5000");
    EXPECT_EQ(rules.strSubClasses, "SR,CF");
    EXPECT_EQ(rules.strOptions, "recv");
    EXPECT_EQ(rules.strIps, "norecv");
    EXPECT_EQ(rules.strSpd, "recv");
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "INFO [channel:2] --------Channel 2 subscribed information is as below:--------",
            "INFO [channel:2] subId:TA209", "INFO [channel:2] subId:SR209C5000",
            "INFO [channel:2] subClass:SR,", "INFO [channel:2] subClass:CF,",
            "INFO [channel:2] options=recv", "INFO [channel:2] ips=norecv",
            "INFO [channel:2] spd=recv", dashes));
}

TEST(ParseSubsInst, TheSeparatorHas56Dashes) {
    EXPECT_EQ(std::string(dashes), "INFO " + std::string(56, '-'));
}

TEST(ParseSubsInst, BlanksEmptyItemsAndCaseInTheList) {
    LoadedConfig rig("[channel0]\ninsts = SR, cf ,TA209,,SR209C5000\noptions = recv\n");
    rig.cfg.ParseSubsInst();
    const ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[0];
    EXPECT_THAT(rules.vecSubIds, ElementsAre("TA209", "SR209C5000"));
    EXPECT_THAT(rules.vecSubClasses, ElementsAre("SR", "cf"));
    EXPECT_EQ(rules.strSubIds, "TA209,SR209C5000");
    EXPECT_EQ(rules.strSubClasses, "SR,cf");
}

TEST(ParseSubsInst, DuplicatesAreKept) {
    LoadedConfig rig("[channel0]\ninsts = SR,SR209,SR,SR209\noptions = x\n");
    rig.cfg.ParseSubsInst();
    EXPECT_THAT(rig.cfg.getArrayReference()[0].vecSubIds, ElementsAre("SR209", "SR209"));
    EXPECT_THAT(rig.cfg.getArrayReference()[0].vecSubClasses, ElementsAre("SR", "SR"));
}

TEST(ParseSubsInst, AllInAnyCaseOrWithinAClassSetsTheFlagAndIsKept) {
    for (const std::string item : {"all", "ALL", "aLl", "SMALLS"}) {
        LoadedConfig rig("[channel0]\ninsts = " + item + "\noptions = recv\n");
        const LogCapture log;
        rig.cfg.ParseSubsInst();
        EXPECT_EQ(rig.cfg.getArrayReference()[0].bSubAll, 1) << item;
        EXPECT_THAT(rig.cfg.getArrayReference()[0].vecSubClasses, ElementsAre(item));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("INFO [channel:0] --------Channel 0 subscribed information is as "
                                "below:--------",
                                "INFO [channel:0] You subscribe all subId !",
                                "INFO [channel:0] subClass:" + item + ",",
                                "INFO [channel:0] options=recv"));
    }
}

TEST(ParseSubsInst, AllOfTwoItemsAcrossABlankSetsTheFlag) {
    LoadedConfig rig("[channel0]\ninsts = A L L\noptions = recv\n");
    rig.cfg.ParseSubsInst();
    EXPECT_EQ(rig.cfg.getArrayReference()[0].bSubAll, 1);
    EXPECT_THAT(rig.cfg.getArrayReference()[0].vecSubClasses, ElementsAre("ALL"));
}

TEST(ParseSubsInst, OnlySpreadsNeedNoOptions) {
    LoadedConfig rig("[channel0]\nips = recv\nspd = norecv\n[channel1]\nips = recv\n");
    const LogCapture log;
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    EXPECT_EQ(rig.cfg.getArrayReference()[0].bIpsRecv, 1);
    EXPECT_EQ(rig.cfg.getArrayReference()[0].bSpdRecv, 0);
    EXPECT_EQ(rig.cfg.getArrayReference()[0].strSpd, "norecv");
    EXPECT_EQ(rig.cfg.getArrayReference()[1].bIpsRecv, 1);
    // The separator comes with the key spd alone.
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:0] ips=recv", "INFO [channel:0] spd=norecv",
                                         dashes, "INFO [channel:1] ips=recv"));
}

TEST(ParseSubsInst, OptionsWithoutInstsAreNotRead) {
    LoadedConfig rig("[channel0]\noptions = recv\n");
    const LogCapture log;
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    EXPECT_TRUE(IsUntouched(rig.cfg.getArrayReference()[0]));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(ParseSubsInst, EmptyInstsCountAsPresent) {
    LoadedConfig rig("[channel0]\ninsts =\noptions = recv\n");
    const LogCapture log;
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    EXPECT_EQ(rig.cfg.getArrayReference()[0].bOptionsRecv, 1);
    EXPECT_THAT(log.Lines(), ElementsAre("INFO [channel:0] --------Channel 0 subscribed "
                                         "information is as below:--------",
                                         "INFO [channel:0] options=recv"));
}

TEST(ParseSubsInst, TheWordRecvIsExact) {
    LoadedConfig rig("[channel0]\ninsts = SR\noptions = RECV\nips = Recv\nspd = recv1\n");
    const LogCapture log;
    rig.cfg.ParseSubsInst();
    const ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[0];
    EXPECT_EQ(rules.bOptionsRecv + rules.bIpsRecv + rules.bSpdRecv, 0);
    EXPECT_EQ(rules.strOptions, "RECV");
    EXPECT_EQ(rules.strIps, "Recv");
    EXPECT_EQ(rules.strSpd, "recv1");
    EXPECT_TRUE(log.Has("INFO [channel:0] options=norecv"));
    EXPECT_TRUE(log.Has("INFO [channel:0] ips=norecv"));
    EXPECT_TRUE(log.Has("INFO [channel:0] spd=norecv"));
}

TEST(ParseSubsInst, MissingOptionsStopsAtThatChannel) {
    std::string config;
    for (int channel = 0; channel < 16; ++channel) {
        config += "[channel" + std::to_string(channel) + "]\ninsts = all,SR209\n" +
                  (channel == 3 ? "" : "options = recv\n") + "ips = recv\nspd = recv\n";
    }
    LoadedConfig rig(config);
    const LogCapture log;
    EXPECT_EQ(rig.cfg.ParseSubsInst(), -1);
    for (unsigned int channel = 0; channel < 16; ++channel) {
        const ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[channel];
        if (channel > 3) {
            EXPECT_TRUE(IsUntouched(rules)) << channel;
            continue;
        }
        EXPECT_THAT(rules.vecSubIds, ElementsAre("SR209"));
        EXPECT_THAT(rules.vecSubClasses, ElementsAre("all"));
        EXPECT_EQ(rules.bSubAll, 1);
        EXPECT_EQ(rules.bOptionsRecv + rules.bIpsRecv + rules.bSpdRecv, channel == 3 ? 0 : 3);
    }
    EXPECT_EQ(log.Lines().back(),
              "ERROR [channel:3] Error! In subscribe labek ,Lack item: options=xxx , please check "
              "!");
}

TEST(ParseSubsInst, AllSixteenChannelsAreReadWithoutLeadingZeros) {
    LoadedConfig rig(
        "[channel15]\nspd = recv\n[channel05]\nspd = recv\n[channel16]\nspd = recv\n"
        "[Channel7]\nSPD = recv\nunknown = 1\n");
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    for (unsigned int channel = 0; channel < 16; ++channel) {
        EXPECT_EQ(rig.cfg.getArrayReference()[channel].bSpdRecv,
                  channel == 15 || channel == 7 ? 1 : 0);
    }
}

TEST(ParseSubsInst, SecondCallAppendsTheSameItems) {
    LoadedConfig rig("[channel0]\ninsts = SR,SR209\noptions = recv\n");
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    const LogCapture log;
    EXPECT_EQ(rig.cfg.ParseSubsInst(), 0);
    const ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[0];
    EXPECT_THAT(rules.vecSubIds, ElementsAre("SR209", "SR209"));
    EXPECT_THAT(rules.vecSubClasses, ElementsAre("SR", "SR"));
    EXPECT_EQ(rules.strSubIds, "SR209,SR209");
    EXPECT_EQ(rules.strSubClasses, "SR,SR");
    EXPECT_EQ(log.LinesOf("INFO").size(), 6U);
}

TEST(ParseSubsInst, FlagsAreNeverClearedButAllIsAssignedAfresh) {
    LoadedConfig rig("[channel0]\ninsts = SR\noptions = norecv\nips = norecv\nspd = norecv\n");
    ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[0];
    rules.bSubAll = rules.bOptionsRecv = rules.bIpsRecv = rules.bSpdRecv = 1;
    rig.cfg.ParseSubsInst();
    EXPECT_EQ(rules.bSubAll, 0);
    EXPECT_EQ(rules.bOptionsRecv + rules.bIpsRecv + rules.bSpdRecv, 3);
}

TEST(ParseSubsInst, FillsTheObjectsOwnArrayAlone) {
    LoadedConfig rig("[channel0]\ninsts = SR,SR209,all\noptions = recv\nips=recv\nspd=recv\n");
    rig.cfg.ParseSubsInst();
    EXPECT_TRUE(IsUntouched(Vela2_U50::m_stSubsInfo[0]));
}

TEST(ParseSubsInst, WithoutFileThereAreNoRules) {
    Vela2_U50::CZceConfigFile cfg("", nullptr, nullptr);
    EXPECT_EQ(cfg.ParseSubsInst(), 0);
    EXPECT_TRUE(IsUntouched(cfg.getArrayReference()[0]));
}

TEST(ParseRawInsts, CommasAtTheEndsVanish) {
    LoadedConfig rig;
    rig.cfg.ParseRawInsts(",,SR,,209,CF1X,", 15);
    const ZceSubsInfo_t& rules = rig.cfg.getArrayReference()[15];
    EXPECT_THAT(rules.vecSubIds, ElementsAre("209", "CF1X"));
    EXPECT_THAT(rules.vecSubClasses, ElementsAre("SR"));
    EXPECT_EQ(rules.strSubIds, "209,CF1X");
}

TEST(ParseRawInsts, NothingGivesNothing) {
    LoadedConfig rig;
    rig.cfg.ParseRawInsts("", 0);
    rig.cfg.ParseRawInsts(",,,", 0);
    EXPECT_TRUE(IsUntouched(rig.cfg.getArrayReference()[0]));
}

TEST(ParseRawInsts, ChannelBeyond15IsRefused) {
    LoadedConfig rig;
    const LogCapture log;
    rig.cfg.ParseRawInsts("SR", 16);
    EXPECT_THAT(log.Lines(),
                ElementsAre("WARN [channel:16] There is no such channel, its rules are ignored."));
}

}  // namespace
