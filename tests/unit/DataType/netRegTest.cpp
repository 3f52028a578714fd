#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "configFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using velatest::DrvAccess;
using velatest::LoadedConfig;
using velatest::LogCapture;

DrvAccess Write(unsigned long addr, unsigned int value) {
    return {"WriteInt32", addr, value};
}

const char* const allL5 =
    "L5_DSTMAC = 01:00:5e:01:02:03\nL5_DSTIP = 239.1.2.3\nL5_DSTPORT = 30001\n"
    "L5_SRCMAC = 00:1b:21:aa:bb:cc\nL5_SRCIP = 192.168.1.10\nL5_SRCPORT = 0x7532\n";
const char* const allL1 =
    "L1_DSTMAC = 01:00:5e:0A:0B:0C\nL1_DSTIP = 239.3.2.1\nL1_DSTPORT = 40001\n"
    "L1_SRCMAC = ff:fe:fd:fc:fb:fa\nL1_SRCIP = 10.0.0.255\nL1_SRCPORT = 010\n";

const std::vector<DrvAccess> writesL5 = {
    Write(0x301, 0x0100), Write(0x302, 0x5e010203), Write(0x303, 0xEF010203), Write(0x304, 30001),
    Write(0x305, 0x001B), Write(0x306, 0x21AABBCC), Write(0x307, 0xC0A8010A), Write(0x308, 30002)};
const std::vector<DrvAccess> writesL1 = {
    Write(0x311, 0x0100), Write(0x312, 0x5e0A0B0C), Write(0x313, 0xEF030201), Write(0x314, 40001),
    Write(0x315, 0xFFFE), Write(0x316, 0xFDFCFBFA), Write(0x317, 0x0A0000FF), Write(0x318, 8)};
const std::vector<std::string> linesL5 = {"INFO config:L5_DSTMAC=01:00:5e:01:02:03",
                                          "INFO config:L5_DSTIP=239.1.2.3",
                                          "INFO config:L5_DSTPORT=30001",
                                          "INFO config:L5_SRCMAC=00:1b:21:aa:bb:cc",
                                          "INFO config:L5_SRCIP=192.168.1.10",
                                          "INFO config:L5_SRCPORT=30002"};

template <typename Entry>
std::vector<Entry> Joined(std::vector<Entry> first, const std::vector<Entry>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST(NetReg, AllTwelveKeysGiveSixteenWritesInGroupOrderThenBothSwitches) {
    // The order of the keys in the file plays no part.
    LoadedConfig rig(std::string(allL1) + allL5);
    const LogCapture log;
    rig.cfg.CfgNetReg();
    EXPECT_EQ(rig.drv.Accesses(),
              Joined(Joined(writesL5, writesL1), {Write(0x300, 1), Write(0x310, 1)}));
    EXPECT_EQ(log.Lines(),
              Joined(linesL5,
                     {"INFO config:L1_DSTMAC=01:00:5e:0A:0B:0C", "INFO config:L1_DSTIP=239.3.2.1",
                      "INFO config:L1_DSTPORT=40001", "INFO config:L1_SRCMAC=ff:fe:fd:fc:fb:fa",
                      "INFO config:L1_SRCIP=10.0.0.255", "INFO config:L1_SRCPORT=8",
                      "INFO 0x300 write 1, L5 net version switch open!",
                      "INFO 0x310 write 1, L1 net version switch open!"}));
}

TEST(NetReg, OneFullFeedLeavesTheOtherAlone) {
    LoadedConfig rig(allL5);
    const LogCapture log;
    rig.cfg.CfgNetReg();
    EXPECT_EQ(rig.drv.Accesses(), Joined(writesL5, {Write(0x300, 1)}));
    EXPECT_EQ(log.Lines(), Joined(linesL5, {"INFO 0x300 write 1, L5 net version switch open!"}));
}

TEST(NetReg, NoKeysWriteAndLogNothing) {
    LoadedConfig rig;
    const LogCapture log;
    rig.cfg.CfgNetReg();
    EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(NetReg, PortZeroCountsAsAbsentAndKeepsTheSwitchClosed) {
    std::string config = allL1;
    config.replace(config.find("= 010"), 5, "= 0");
    LoadedConfig rig(config);
    const LogCapture log;
    rig.cfg.CfgNetReg();
    std::vector<DrvAccess> writes = writesL1;
    writes.pop_back();
    EXPECT_EQ(rig.drv.Accesses(), writes);
    EXPECT_EQ(log.Lines().back(),
              "INFO Netfunction: L1 config item count is 5. Maybe lack item! please check! ");
}

TEST(NetReg, OpenedSwitchesAreReportedBeforeLackingItems) {
    LoadedConfig rig(std::string(allL1) + "L5_SRCIP = 1.2.3.4\n");
    const LogCapture log;
    rig.cfg.CfgNetReg();
    EXPECT_EQ(rig.drv.Accesses(),
              Joined(Joined({Write(0x307, 0x01020304)}, writesL1), {Write(0x310, 1)}));
    const std::vector<std::string> lines = log.Lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "INFO 0x310 write 1, L1 net version switch open!");
    EXPECT_EQ(lines[lines.size() - 1],
              "INFO Netfunction: L5 config item count is 1. Maybe lack item! please check! ");
}

TEST(NetReg, LackingItemsOfBothFeedsAreReportedL5First) {
    LoadedConfig rig("L1_DSTPORT = 1\nL5_DSTPORT = 2\nL5_SRCPORT = 3\n");
    const LogCapture log;
    rig.cfg.CfgNetReg();
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Write(0x304, 2), Write(0x308, 3), Write(0x314, 1)));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "INFO config:L5_DSTPORT=2", "INFO config:L5_SRCPORT=3", "INFO config:L1_DSTPORT=1",
            "INFO Netfunction: L5 config item count is 2. Maybe lack item! please check! ",
            "INFO Netfunction: L1 config item count is 1. Maybe lack item! please check! "));
}

// Each item alone goes to its own register.
struct ItemCase {
    const char* line;
    std::vector<DrvAccess> writes;
};

const std::vector<ItemCase> itemCases = {
    {"L5_DSTMAC = 1:2:3:4:5:6", {Write(0x301, 0x0102), Write(0x302, 0x03040506)}},
    {"L5_SRCMAC = 1:2:3:4:5:6", {Write(0x305, 0x0102), Write(0x306, 0x03040506)}},
    {"L1_DSTMAC = 1:2:3:4:5:6", {Write(0x311, 0x0102), Write(0x312, 0x03040506)}},
    {"L1_SRCMAC = 1:2:3:4:5:6", {Write(0x315, 0x0102), Write(0x316, 0x03040506)}},
    {"L5_DSTIP = 1.2.3.4", {Write(0x303, 0x01020304)}},
    {"L5_SRCIP = 1.2.3.4", {Write(0x307, 0x01020304)}},
    {"L1_DSTIP = 1.2.3.4", {Write(0x313, 0x01020304)}},
    {"L1_SRCIP = 1.2.3.4", {Write(0x317, 0x01020304)}},
    {"L5_DSTPORT = 65535", {Write(0x304, 0xFFFF)}},
    {"L5_SRCPORT = 65535", {Write(0x308, 0xFFFF)}},
    {"L1_DSTPORT = 65535", {Write(0x314, 0xFFFF)}},
    {"L1_SRCPORT = 65535", {Write(0x318, 0xFFFF)}},
    // Ports are not checked.
    {"L1_SRCPORT = 70000", {Write(0x318, 70000)}},
    {"L1_SRCPORT = -1", {Write(0x318, 0xFFFFFFFF)}},
    // Parts of an address are cut to their low 8 bits.
    {"L5_DSTIP = 256.257.-1.4", {Write(0x303, 0x0001FF04)}},
    // Malformed addresses are written and counted all the same; what is lacking is 0.
    {"L5_DSTIP = 1.2", {Write(0x303, 0x01020000)}},
    {"L5_DSTIP = none", {Write(0x303, 0)}},
    {"L5_DSTIP =", {Write(0x303, 0)}},
    {"L5_DSTMAC = 00-1b-21", {Write(0x301, 0), Write(0x302, 0)}},
    {"L5_DSTMAC = 1:2:3:zz:5:6", {Write(0x301, 0x0102), Write(0x302, 0x03000000)}},
    {"L5_DSTMAC =", {Write(0x301, 0), Write(0x302, 0)}},
    {"L5_DSTMAC = fffffffffffffffffffff:2:3:4:5:6",
     {Write(0x301, 0xFF02), Write(0x302, 0x03040506)}}};

TEST(NetReg, EachItemGoesToItsRegister) {
    for (const ItemCase& one : itemCases) {
        SCOPED_TRACE(one.line);
        LoadedConfig rig(std::string(one.line) + "\n");
        const LogCapture log;
        rig.cfg.CfgNetReg();
        EXPECT_EQ(rig.drv.Accesses(), one.writes);
        EXPECT_EQ(log.Lines().size(), 2U);
    }
}

TEST(NetReg, NegativePortIsLoggedUnsigned) {
    LoadedConfig rig("L1_SRCPORT = -1\n");
    const LogCapture log;
    rig.cfg.CfgNetReg();
    EXPECT_EQ(log.Lines().front(), "INFO config:L1_SRCPORT=4294967295");
}

TEST(NetReg, MalformedItemsCompleteAFeed) {
    std::string config = allL5;
    config.replace(config.find("239.1.2.3"), 9, "nowhere!!");
    LoadedConfig rig(config);
    rig.cfg.CfgNetReg();
    EXPECT_EQ(rig.drv.Accesses().back(), Write(0x300, 1));
}

TEST(NetReg, FailedWritesChangeNothingOfTheSequence) {
    LoadedConfig rig(allL5);
    rig.drv.FailWrites(0x301);
    rig.drv.FailWrites(0x300);
    rig.cfg.CfgNetReg();
    EXPECT_EQ(rig.drv.Accesses(), Joined(writesL5, {Write(0x300, 1)}));
}

struct LinkCase {
    unsigned int status;
    std::vector<std::string> lines;
};

const char* const fibre0 =
    "ERROR The fiber 0 is not connected, status is incorrect! Please modify or contact technical "
    "support!";
const char* const notFully = "WARN Warning! The fiber optic cable is not fully connected.";
const std::vector<LinkCase> linkCases = {
    {0xF, {"INFO Fiber linkstatus 0x103:0xf."}},
    {0xE, {"INFO Fiber linkstatus 0x103:0xe.", fibre0, notFully}},
    {0x1, {"INFO Fiber linkstatus 0x103:0x1.", notFully}},
    {0x0, {"INFO Fiber linkstatus 0x103:0x0.", fibre0, notFully}},
    {0x1F, {"INFO Fiber linkstatus 0x103:0x1f.", notFully}}};

TEST(LinkStatus, IsReported) {
    for (const LinkCase& one : linkCases) {
        SCOPED_TRACE(one.status);
        LoadedConfig rig;
        rig.drv.SetReg(0x103, one.status);
        const LogCapture log;
        rig.cfg.PrintSwitchStatus();
        EXPECT_EQ(log.Lines(), one.lines);
        EXPECT_THAT(rig.drv.Accesses(), ElementsAre(DrvAccess{"ReadInt32", 0x103, one.status}));
    }
}

TEST(LinkStatus, FailedReadReportsZero) {
    LoadedConfig rig;
    rig.drv.SetReg(0x103, 0xF);
    rig.drv.FailReads(0x103);
    const LogCapture log;
    rig.cfg.PrintSwitchStatus();
    EXPECT_THAT(log.Lines(), ElementsAre("INFO Fiber linkstatus 0x103:0x0.", fibre0, notFully));
}

}  // namespace
